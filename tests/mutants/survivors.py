"""The explained survivors: survivors.txt holds a line "FILE: OLD LINE -> NEW LINE", as the report prints it, and below
it, indented, the reason why no test can or should notice.  Lines that begin with # are remarks."""
import pathlib

_LIST = pathlib.Path(__file__).parent / "survivors.txt"


class Malformed(Exception):
    pass


def key(mutant):
    return f"{mutant.path}: {mutant.change}"


def explained(file=_LIST):
    """The reasons by key."""
    reasons, current = {}, None
    for number, line in enumerate(file.read_text().splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        if not line.startswith(" "):
            current = line.strip()
            reasons[current] = ""
        elif current is not None:
            reasons[current] = f"{reasons[current]} {line.strip()}".strip()
        else:
            raise Malformed(f"{file}:{number}: a reason without a mutant above it")
    for entry, reason in reasons.items():
        if not reason:
            raise Malformed(f"{file}: '{entry}' has no reason below it")
    return reasons


def outdated(reasons, mutants):
    """The explained ones that the sources do not have any more, or never had in these words."""
    known = {key(mutant) for mutant in mutants}
    return [entry for entry in reasons if entry not in known]
