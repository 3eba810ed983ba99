#!/usr/bin/env python3
"""tests/check_messages.py   holds share/korvo/messages to the sources, and its manual page to it; run from the root

The texts are the literals of DPRINTF and HEXDUMP in the folders of the service's programs.  Each has a line at each
level that it is written with, in the order of its module's first text in the folders, and no line is without a text.

Exit status 1: a line is missing, one is too many or out of its place, or docs/korvo-messages.7 is another page.
"""
import pathlib
import re
import sys

sys.dont_write_bytecode = True
sys.path += [str(pathlib.Path(__file__).parent), str(pathlib.Path(__file__).parent.parent / 'scripts')]
import check_texts
import messages

FOLDERS = ['debug', 'net', 'protocol', 'config', 'macro', 'core', 'commmgr', 'store', 'manager', 'searchmgr', 'docmgr',
           'engine']
LEVELS = {'kInfo': 101, 'kStatus': 102, 'kWarning': 103, 'kFatal': 104, 'kOff': 105}
WRITERS = ('DPRINTF', 'HEXDUMP')
PREFIX = re.compile(r'\[([^]]+)\] (.*)', re.S)


def arguments(items):
    """The arguments of a call, each a list of tokens."""
    found, depth = [[]], 0
    for item in items:
        if not isinstance(item, check_texts.Literal):
            depth += (item in check_texts.OPEN) - (item in check_texts.CLOSE)
            if item == ',' and depth == 0:
                found.append([])
                continue
        found[-1].append(item)
    return found


def levels(argument):
    """The numbers that a level can be.  A variable of that name can be any."""
    named = [LEVELS[item] for item in argument if item in LEVELS]
    return named or (sorted(LEVELS.values(), reverse=True) if argument == ['level'] else [])


def dumped(argument):
    """What HEXDUMP makes of its title."""
    if argument == ['nullptr']:
        return r'HEXDUMP @ %08x for %1d bytes'
    return 'HEXDUMP of ' + argument[0]


def shown(text):
    """(module, text) as a line of the file has them."""
    text = text.removeprefix('@').strip('\n')
    prefixed = PREFIX.fullmatch(text)
    module, text = prefixed.groups() if prefixed else (messages.NONE, text)
    for byte, code in (('\\', r'\\'), ('\n', r'\n'), ('\t', r'\t')):
        text = text.replace(byte, code)
    return module, text


def calls(path):
    """(level, text) of every call of a source that writes to the log."""
    items = check_texts.tokens(path.read_text())
    for at, item in enumerate(items[:-1]):
        if isinstance(item, check_texts.Literal) or item not in WRITERS or items[at + 1] != '(' or items[at - 1] == 'void':
            continue
        given = arguments(items[at + 2:check_texts.group_end(items, at + 1)])
        text = dumped(given[4]) if item == 'HEXDUMP' else given[2][0]
        # The titles of dumps are counted where HEXDUMP is called; a dump's own lines are no texts.
        if item == 'DPRINTF' and text.startswith('HEXDUMP') or not check_texts.is_text(text):
            continue
        for level in levels(given[1]):
            yield level, text


def expected():
    """(module, level, text) of every line, in its order."""
    found = []
    for folder in FOLDERS:
        for path in check_texts.sources(folder):
            for level, text in calls(path):
                module, text = shown(text)
                if (module, level, text) not in found:
                    found.append((module, level, text))
    modules = list(dict.fromkeys(module for module, _, _ in found if module != messages.NONE)) + [messages.NONE]
    return sorted(found, key=lambda line: modules.index(line[0]))


def faults():
    wanted = expected()
    found = [message[:3] for message in messages.read()]
    for module, level, text in wanted:
        if (module, level, text) not in found:
            yield f'{messages.SOURCE}: there is no line for level {level} of [{module}] {text}'
    for at, (module, level, text) in enumerate(found):
        if (module, level, text) not in wanted:
            yield f'{messages.SOURCE}: nothing writes at level {level} [{module}] {text}'
        elif (module, level, text) in found[:at]:
            yield f'{messages.SOURCE}: two lines at level {level} have [{module}] {text}'
    if set(found) == set(wanted) and len(found) == len(wanted) and found != wanted:
        at = next(at for at, line in enumerate(found) if line != wanted[at])
        yield f'{messages.SOURCE}: before [{found[at][0]}] {found[at][2]} belongs [{wanted[at][0]}] {wanted[at][2]}'
    if messages.PAGE.read_text() != messages.page(messages.read()):
        yield f'{messages.PAGE}: run scripts/messages.py, which makes another page'


def main():
    wrong = list(faults())
    for fault in wrong:
        print(fault)
    print(f'{len(expected())} messages; {len(wrong)} faults')
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
