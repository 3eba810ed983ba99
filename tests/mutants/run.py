#!/usr/bin/env python3
"""run.py N [SEED]: changes the daemon's sources in N places, one at a time, and sees whether the tests notice.

Works in copies of the tree below build/mutants; leaves a line per mutant in build/mutants/results.txt.
Exit status 1: a mutant survived that survivors.txt does not explain.
"""
import collections
import pathlib
import sys
import time

import draw
import mutations
import sandbox
import survivors
import trial

ROOT = pathlib.Path(__file__).resolve().parents[2]
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


def line(verdict):
    mutant = verdict.mutant
    return f"{mutant.path}:{mutant.line} {mutant.kind}: {mutant.change}"


def write_results(verdicts):
    with open(ROOT / "build" / "mutants" / "results.txt", "w") as file:
        for verdict in sorted(verdicts, key=lambda verdict: (verdict.mutant.path, verdict.mutant.start)):
            print(f"{verdict.outcome} {verdict.where} {verdict.seconds:.1f} s {line(verdict)}", file=file)


def report(verdicts, reasons, seconds):
    """Prints it; how many survivors nobody has explained."""
    write_results(verdicts)
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


def progress(total):
    done = collections.Counter()

    def tell(verdict):
        done[verdict.outcome] += 1
        if sum(done.values()) % 25 == 0:
            print(f"  {sum(done.values())} tried for {total}: {dict(done)}", file=sys.stderr, flush=True)

    return tell


def main():
    wanted, seed = arguments()
    if not sandbox.available():
        refuse(69, "cannot make process and network namespaces, which hold a mutant in; run as root")
    mutants = mutations.all_mutants(ROOT)
    try:
        reasons = survivors.explained(mutants)
        print(f"Mutants: {wanted} of {len(mutants)}, seed {seed}", flush=True)
        workers = [trial.Worker(number, ROOT) for number in range(WORKERS)]
        draw.prepare(workers)
    except (survivors.Malformed, trial.Unusable) as failure:
        refuse(70, failure)
    start = time.monotonic()
    verdicts = draw.try_out(workers, draw.order(mutants, seed), wanted, progress(wanted))
    sys.exit(1 if report(verdicts, reasons, time.monotonic() - start) > 0 else 0)


main()
