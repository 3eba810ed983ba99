"""Which mutants a run takes, and the workers that try them."""
import collections
import queue
import random
import threading

import trial

NOT_COUNTED = (trial.NOT_COMPILED, trial.EQUIVALENT)


def order(mutants, seed):
    """All of them, drawn by the seed so that the first N, for any N, are spread over kinds and files in proportion."""
    strata = collections.defaultdict(list)
    for mutant in mutants:
        strata[mutant.kind, mutant.path].append(mutant)
    chance, placed = random.Random(seed), []
    for key in sorted(strata):
        members = strata[key]
        chance.shuffle(members)
        first = chance.random()
        placed += [((rank + first) / len(members), key, rank, mutant) for rank, mutant in enumerate(members)]
    return [mutant for *_, mutant in sorted(placed, key=lambda entry: entry[:3])]


def _by_file(mutants):
    """A worker takes a file whole: its object is then all that a mutant compiles.  The longest come first."""
    files = collections.defaultdict(list)
    for mutant in mutants:
        files[mutant.path].append(mutant)
    return sorted(files.values(), key=len, reverse=True)


def _try_all(workers, mutants, tell):
    files, failures = queue.SimpleQueue(), []
    for group in _by_file(mutants):
        files.put(group)

    def work(worker):
        try:
            while not failures:
                for mutant in files.get_nowait():
                    tell(worker.try_out(mutant))
        except queue.Empty:
            pass
        except Exception as failure:
            failures.append(failure)

    _in_threads(work, workers)
    if failures:
        raise failures[0]


def _in_threads(work, workers):
    threads = [threading.Thread(target=work, args=(worker,)) for worker in workers]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def prepare(workers):
    failures = []

    def work(worker):
        try:
            worker.prepare()
        except Exception as failure:
            failures.append(failure)

    _in_threads(work, workers)
    if failures:
        raise failures[0]


def try_out(workers, mutants, wanted, tell):
    """Tries mutants in their order until as many as wanted count."""
    lock, verdicts, at = threading.Lock(), [], 0

    def keep(verdict):
        with lock:
            verdicts.append(verdict)
            tell(verdict)

    while True:
        counted = sum(verdict.outcome not in NOT_COUNTED for verdict in verdicts)
        if counted >= wanted or at == len(mutants):
            return verdicts
        batch = mutants[at:at + wanted - counted]
        at += len(batch)
        _try_all(workers, batch, keep)
