#!/usr/bin/env python3
"""run.py N [SEED]: changes the sources of the daemon and of korvo-web in N places, one at a time, and sees whether the
tests notice.

Works in copies of the tree below build/mutants; leaves a line per mutant in build/mutants/results.txt.
Exit status 1: a mutant survived that survivors.txt does not explain, or survivors.txt explains what is no mutant.
"""
import collections
import fcntl
import pathlib
import sys
import time

import draw
import mutations
import sandbox
import survivors
import trial

ROOT = pathlib.Path(__file__).resolve().parents[2]
RESULTS = ROOT / "build" / "mutants" / "results.txt"
DEFAULT_SEED = 1
WORKERS = 2


def refuse(status, text):
    print(f"{sys.argv[0]}: {text}", file=sys.stderr)
    sys.exit(status)


def arguments():
    words = sys.argv[1:]
    if len(words) not in (1, 2) or not all(word.isdecimal() for word in words) or int(words[0]) == 0:
        refuse(64, "mutants takes how many, and a seed if you like, as in ./check.sh mutants 30 7")
    return int(words[0]), int(words[1]) if len(words) == 2 else DEFAULT_SEED


def take_results():
    """The results' file, which belongs to one run at a time, as the workers' copies do."""
    RESULTS.parent.mkdir(parents=True, exist_ok=True)
    file = open(RESULTS, "a")
    try:
        fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        refuse(75, f"another run works in {RESULTS.parent}; wait for its end")
    file.truncate(0)
    return file


def line(verdict):
    mutant = verdict.mutant
    return f"{mutant.path}:{mutant.line} {mutant.kind}: {mutant.change}"


def report(verdicts, reasons, seconds):
    """Prints it; how many survivors nobody has explained."""
    alive = [verdict for verdict in verdicts if verdict.outcome == trial.SURVIVED]
    unexplained = [verdict for verdict in alive if survivors.key(verdict.mutant) not in reasons]
    for verdict in alive:
        word = "survived" if verdict in unexplained else "explained"
        print(f"{word} {line(verdict)}")
    for verdict in verdicts:
        if verdict.outcome in (trial.KILLED, trial.TIMEOUT) and survivors.key(verdict.mutant) in reasons:
            print(f"explained, yet killed by {verdict.where}_test {line(verdict)}")
    count = collections.Counter(verdict.outcome for verdict in verdicts)
    counted = sum(verdict.outcome not in draw.NOT_COUNTED for verdict in verdicts)
    print(f"{counted} mutants: {count[trial.KILLED]} killed, {count[trial.TIMEOUT]} timeout, "
          f"{len(alive)} survived ({len(alive) - len(unexplained)} explained); "
          f"drawn again: {count[trial.NOT_COMPILED]} did not compile, "
          f"{count[trial.EQUIVALENT]} gave the same code; {seconds:.0f} s, "
          f"{seconds * WORKERS / max(1, len(verdicts)):.1f} s a trial and core")
    return len(unexplained)


def write(verdict, file):
    where = f" by {verdict.where}_test" if verdict.where else ""
    print(f"{verdict.outcome}{where} {verdict.seconds:.1f} s {line(verdict)}", file=file, flush=True)


def main():
    wanted, seed = arguments()
    if not sandbox.available():
        refuse(69, "cannot make process and network namespaces, which hold a mutant in; run as root")
    results = take_results()
    mutants = mutations.all_mutants(ROOT)
    try:
        reasons = survivors.explained()
        print(f"Mutants: {wanted} of {len(mutants)}, seed {seed}", flush=True)
        workers = [trial.Worker(number, ROOT) for number in range(WORKERS)]
        draw.prepare(workers)
    except (survivors.Malformed, trial.Unusable) as failure:
        refuse(70, failure)
    start = time.monotonic()
    verdicts = draw.try_out(workers, draw.order(mutants, seed), wanted, lambda verdict: write(verdict, results))
    unexplained = report(verdicts, reasons, time.monotonic() - start)
    outdated = survivors.outdated(reasons, mutants)
    for entry in outdated:
        print(f"no mutant of these sources any more, take it out of survivors.txt: {entry}")
    sys.exit(1 if unexplained or outdated else 0)


main()
