#!/usr/bin/env python3
"""tests/check_texts.py   lists the texts of the sources that no test expects; run from the root

A text is any string literal with a letter in it, whatever it is for, joined with the literals that "+" adds to it.
It is expected when a string of the tests of its folder, or of the system tests, holds all of it: the literal's fixed
bytes one for one, and where it converts or adds a value, a value that this conversion prints or an expression of the
test.  A test compares its strings, so that whoever changes a text, or takes the expectation away, fails here; strings
that a test must not find, or shows beside a failure, prove nothing and do not count.

tests/texts_unexpected.txt names the texts that need no expectation, each with the reason.  Exit status 1: a text is
missing, or a line of that file names none that is.
"""
import pathlib
import re
import sys

FOLDERS = ['debug', 'net', 'protocol', 'config', 'macro', 'core', 'commmgr', 'tools',
           'store', 'index', 'manager', 'searchmgr', 'docmgr', 'engine', 'web']
# The core's tests drive the daemon with calls that fail; the managers' tests run both managers.
TESTS_OF = {'commmgr': ['commmgr', 'core'], 'store': ['store', 'searchmgr', 'docmgr', 'service'],
            'searchmgr': ['searchmgr', 'manager', 'service'], 'docmgr': ['docmgr', 'manager', 'service'],
            'manager': ['manager', 'searchmgr', 'docmgr', 'service'],
            'engine': ['engine', 'service']}
EXCEPTIONS = pathlib.Path('tests/texts_unexpected.txt')
HOLE = '\ufffc'  # stands for an operand that is no literal

TOKEN = re.compile(
    r'''(?P<skip>//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*|\s+)'''
    r'''|R"(?P<mark>[^()\s\\]*)\((?P<raw>.*?)\)(?P=mark)"|"(?P<text>(?:[^"\\\n]|\\.)*)"|'(?:[^'\\\n]|\\.)*\''''
    r'''|<<=|>>=|[=!<>+*/|&-]=|&&|\|\||<<|::|->|\+\+|--|\w+|.''', re.S | re.M | re.X)
ESCAPE = re.compile(r'\\(x[0-9a-fA-F]+|[0-7]{1,3}|.)', re.S)
ESCAPES = {'n': '\n', 't': '\t', 'r': '\r', 'v': '\v', 'f': '\f', 'a': '\a', 'b': '\b'}

OPEN, CLOSE = {'(', '[', '{'}, {')', ']', '}'}
ENDS = {',', ';', '?', ':', '=', '==', '!=', '<=', '>=', '+=', '<<', '&&', '||', 'return', 'case', 'else'}
CONVERSION = re.compile(r'%(?P<flags>[-+ #0]*)(?P<width>\d*)(?:\.\d+)?(?:hh|h|ll|l|z)?(?P<kind>[diuxXcsfg%])')
VALUES = {'d': r'-?\d+', 'i': r'-?\d+', 'u': r'\d+', 'x': '[0-9a-f]+', 'X': '[0-9A-F]+', 'c': '.',
          'f': r'-?\d+\.\d+', 'g': r'-?\d[\d.e+-]*'}


class Literal(str):
    """The bytes of adjacent literals, and the line that they begin on."""

    def __new__(cls, text, line):
        self = super().__new__(cls, text)
        self.line = line
        return self


def unescape(text):
    def one(match):
        code = match.group(1)
        if code[0] == 'x':
            return chr(int(code[1:], 16))
        return chr(int(code, 8)) if code[0].isdigit() else ESCAPES.get(code, code)
    return ESCAPE.sub(one, text)


def tokens(source):
    """The tokens without comments and preprocessor lines; adjacent literals are one Literal."""
    found = []
    for match in TOKEN.finditer(source):
        if match.group('skip') is not None:
            continue
        raw, text = match.group('raw'), match.group('text')
        if raw is None and text is None:
            found.append(match.group(0))
            continue
        literal = unescape(text) if raw is None else raw
        line = source.count('\n', 0, match.start()) + 1
        if found and isinstance(found[-1], Literal):
            literal, line = found[-1] + literal, found.pop().line
        found.append(Literal(literal, line))
    return found


def group_end(items, start):
    depth = 0
    for at in range(start, len(items)):
        if not isinstance(items[at], Literal):
            depth += (items[at] in OPEN) - (items[at] in CLOSE)
        if depth == 0:
            return at
    return len(items) - 1


def strings(items):
    """(line, text) of every string expression among the tokens: literals joined by +, HOLE for other operands."""
    found, chain, operand = [], [], []

    def end_operand():
        literals = [item for item in operand if isinstance(item, Literal)]
        plain = all(isinstance(item, Literal) or item in ('std', '::', 'string', 'string_view', 's', 'sv')
                    for item in operand)
        chain.append(literals[0] if len(literals) == 1 and plain else HOLE)
        if not plain:
            found.extend((literal.line, str(literal)) for literal in literals)
        operand.clear()

    def end_chain():
        if operand:
            end_operand()
        lines = [piece.line for piece in chain if isinstance(piece, Literal)]
        if lines:
            found.append((lines[0], ''.join(chain)))
        chain.clear()

    at = 0
    while at < len(items):
        item = items[at]
        if isinstance(item, Literal):
            operand.append(item)
        elif item in OPEN:
            end = group_end(items, at)
            inner = items[at + 1:end]
            within = strings(inner)
            # A literal in brackets, or in std::string(...), is the operand itself.
            if len(inner) == 1 and within and all(word in ('std', '::', 'string', 'string_view') for word in operand):
                operand.append(inner[0])
            else:
                found += within
                operand.append('()')
            if item == '{':
                end_chain()
            at = end
        elif item == '+':
            end_operand()
        elif item in ENDS:
            end_chain()
        else:
            operand.append(item)
        at += 1
    end_chain()
    return found


def compared(items):
    """The tokens of a test without the strings that it must not find and those that it shows beside a failure."""
    kept, at = [], 0
    while at < len(items):
        item = items[at]
        if isinstance(item, Literal) or not re.fullmatch('(EXPECT|ASSERT)_[A-Z_]+|ADD_FAILURE|FAIL|SCOPED_TRACE', item):
            kept.append(item)
            at += 1
            continue
        end = group_end(items, at + 1)
        inner = items[at + 2:end]
        absent = 'npos' in inner
        refused = item.endswith(('_FALSE', '_NE', '_TRACE')) != absent
        kept += [';'] if refused else ['('] + compared(inner) + [')', ';']
        at = end + 1
        while at < len(items) and items[at] == '<<':
            while at < len(items) and items[at] != ';':
                at += 1
    return kept


def value(kind):
    """What stands for one conversion: what it prints, an expression of the test, or a mark that the test fills in."""
    if kind == '%':
        return '%'
    return '[^\\n\\0]*?' if kind == 's' else f'(?: *{VALUES[kind]} *|{HOLE}|<[a-z]+>)'


def pattern(text):
    """What a test has to hold.  One expression may stand for conversions that only signs and blanks part."""
    if text.startswith('@['):
        text = text[1:]  # the log drops it
    result, run, end = '', '', 0
    for match in CONVERSION.finditer(text.replace(HOLE, '%s')):
        fixed = re.escape(text.replace(HOLE, '%s')[end:match.start()])
        if run and re.search('[A-Za-z\n]', fixed) is None:
            run += fixed + value(match.group('kind'))
        else:
            result += (f'(?:{run}|{HOLE})' if run else '') + fixed
            run = value(match.group('kind'))
        end = match.end()
    result += (f'(?:{run}|{HOLE})' if run else '') + re.escape(text.replace(HOLE, '%s')[end:])
    # No piece of a longer word.
    before = '(?<![A-Za-z0-9])' if text[:1].isalnum() else ''
    behind = '(?![A-Za-z0-9])' if text[-1:].isalnum() else ''
    return re.compile(before + result + behind)


def is_text(text):
    return re.search('[A-Za-z]', CONVERSION.sub('', text)) is not None


def literals(path, select=lambda items: items):
    """(line, text) of every string of a source, of those tokens that select leaves."""
    return strings(select(tokens(path.read_text())))


def sources(folder):
    return sorted(path for path in pathlib.Path(folder).rglob('*') if path.suffix in ('.cpp', '.h'))


def expectations(folder):
    """Every string that the tests of a folder compare, with a NUL between two."""
    paths = [path for tests in TESTS_OF.get(folder, [folder]) + ['system'] for path in sources(f'tests/{tests}')]
    return '\0'.join(text for path in paths for _, text in literals(path, compared))


def texts():
    """(path, line, text, whether a test expects it) of every text."""
    for folder in FOLDERS:
        expected = expectations(folder)
        for path in sources(folder):
            for line, text in literals(path):
                if is_text(text):
                    yield path, line, text, pattern(text).search(expected) is not None


def exceptions():
    """{(path, text): line of the file}.  A line is: path, literal, reason."""
    named = {}
    for number, line in enumerate(EXCEPTIONS.read_text().splitlines(), 1):
        if not line or line.startswith('#'):
            continue
        path, rest = line.split(' ', 1)
        text = next((item for item in tokens(rest) if isinstance(item, Literal)), None)
        if text is None or not rest.startswith('"') or rest.endswith('"'):
            sys.exit(f'{EXCEPTIONS}:{number}: expected PATH "TEXT" REASON')
        named[path, str(text)] = number
    return named


def shown(text):
    for byte, code in (('\\', '\\\\'), ('\n', '\\n'), ('\t', '\\t'), ('\r', '\\r'), ('"', '\\"')):
        text = text.replace(byte, code)
    return f'"{text}"'


def main():
    named, wrong, count = exceptions(), 0, 0
    used = set()
    for path, line, text, expected in texts():
        count += 1
        text = text.replace(HOLE, '<value>')
        if expected:
            continue
        used.add((str(path), text))
        if (str(path), text) not in named:
            print(f'{path}:{line}: no test expects {shown(text)}')
            wrong += 1
    for path, text in named.keys() - used:
        print(f'{EXCEPTIONS}:{named[path, text]}: {path} has no such text that no test expects: {shown(text)}')
        wrong += 1
    print(f'{count} texts, {len(used)} of them without an expectation; {wrong} faults')
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
