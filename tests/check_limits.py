#!/usr/bin/env python3
"""tests/check_limits.py   holds the numbers of docs/korvo-limits.7 to the constants of the sources; run from the root

A line '.\\" NUMBER FILE EXPRESSION' of the page says what a number of its item comes from: the constants and the sizes
of arrays in that file, or in several that "+" joins; default("NAME") of a setting; behind("TEXT"), the number there.  An item goes from one .It to the next.

Exit status 1: an expression gives another number or knows a name that the file does not have, a number stands in no
item that it belongs to, or an item has a number of two digits or more that no such line explains.
"""
import functools
import pathlib
import re
import sys

PAGE = pathlib.Path('docs/korvo-limits.7')
SOURCE = re.compile(r'\.\\" (\d+) (\S+/\S+) (.+)')
NUMBER = re.compile(r'(?<![\w.-])\d{2,}')
CONSTANT = re.compile(r'\bconstexpr\s[^;]*;')
VALUE = re.compile(r'\b(k[A-Z]\w*)(?:\s*=\s*|\(|\{)"?([^;,)}"]+)')
ARRAY = re.compile(r'\bchar (\w+)\[(\w+)\]')
SETTING = re.compile(r'Number\("([a-z-]+)", "(\d+)"')
# What the system defines.
SYSTEM = {'INT16_MAX': ('int16_t', 2**15 - 1), 'INT32_MAX': ('int32_t', 2**31 - 1), 'FD_SETSIZE': ('FD_SETSIZE', 1024)}


def plain(text):
    return re.sub(r"(?<=[\da-fA-F])(?:'(?=\d)|[uUlL]+\b)", '', text)


@functools.cache
def names(files):
    """The value of each name in the sources, as far as numbers make it."""
    text = ''.join(pathlib.Path(file).read_text() for file in files.split('+'))
    found = {name: number for name, (word, number) in SYSTEM.items() if word in text}
    settings = {name: int(number) for name, number in SETTING.findall(text)}
    found |= {'len': len, 'default': settings.__getitem__,
              'behind': lambda words: int(re.search(re.escape(words) + r'(\d+)', text).group(1))}
    if files == 'store/record.h':
        found |= names('protocol/cmd_hdr.h')
    for constant in CONSTANT.findall(text):
        for name, value in VALUE.findall(constant):
            try:
                found[name] = eval(plain(value), {'__builtins__': {}}, found)
            except (NameError, SyntaxError, TypeError):
                pass
    for name, size in ARRAY.findall(text):
        found[name] = int(size) if size.isdigit() else found.get(size)
    return found


def items(page):
    """(line, [(line, number, files, expression)], text) of each item; the lines of sources stand before or in it."""
    found, sources, waiting = [], [], []
    for number, line in enumerate(page.splitlines(), 1):
        source = SOURCE.fullmatch(line)
        if source:
            waiting.append((number, *source.groups()))
        elif line.startswith(('.It', '.Sh', '.Ss')):
            found.append([number, waiting, [] if line.startswith('.S') else [line]])
            waiting = []
        elif found and not line.startswith(('.\\"', '.Dd')):
            found[-1][1] += waiting
            waiting = []
            found[-1][2].append(line)
    return [(number, sources, '\n'.join(text)) for number, sources, text in found]


def fault_of(source):
    line, number, files, expression = source
    try:
        value = eval(expression, {'__builtins__': {}}, names(files))
    except (NameError, KeyError, FileNotFoundError, TypeError, AttributeError) as error:
        return f'{PAGE}:{line}: {files} has no {expression}: {error}'
    return None if value == int(number) else f'{PAGE}:{line}: {expression} of {files} is {value}, not {number}'


def faults(page):
    for line, sources, text in items(page):
        for source in sources:
            if fault := fault_of(source):
                yield fault
            elif not re.search(rf'(?<![\w.-]){source[1]}(?!\d)', text):
                yield f'{PAGE}:{source[0]}: {source[1]} does not stand there'
        explained = {number for _, number, _, _ in sources}
        for number in NUMBER.findall(text):
            if number not in explained and number not in ('104', '503', '504', '429'):  # a level, and what HTTP says
                yield f'{PAGE}:{line}: nothing says where {number} comes from'


def main():
    page = PAGE.read_text()
    wrong = list(faults(page))
    for fault in wrong:
        print(fault)
    print(f'{sum(len(sources) for _, sources, _ in items(page))} numbers; {len(wrong)} faults')
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
