"""The explained survivors: survivors.txt holds a line "FILE: OLD LINE -> NEW LINE", as the report prints it, and below
it, indented, the reason why no test can or should notice.  Lines that begin with # are remarks."""
import pathlib

_LIST = pathlib.Path(__file__).parent / "survivors.txt"


class Malformed(Exception):
    pass


def key(mutant):
    return f"{mutant.path}: {mutant.change}"


def explained(mutants):
    """The reasons by key."""
    reasons, current = {}, None
    for number, line in enumerate(_LIST.read_text().splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        if not line.startswith(" "):
            current = line.strip()
            reasons[current] = ""
        elif current is not None:
            reasons[current] = f"{reasons[current]} {line.strip()}".strip()
        else:
            raise Malformed(f"{_LIST}:{number}: a reason without a mutant above it")
    known = {key(mutant) for mutant in mutants}
    for entry, reason in reasons.items():
        if not reason:
            raise Malformed(f"{_LIST}: '{entry}' has no reason below it")
        if entry not in known:
            raise Malformed(f"{_LIST}: '{entry}' is no mutant of these sources; take it out or write it as reported")
    return reasons
