#!/usr/bin/env python3
"""scripts/messages.py   makes docs/korvo-messages.7 out of share/korvo/messages; run from the root"""
import itertools
import pathlib
import re
import sys
from typing import NamedTuple

SOURCE = pathlib.Path('share/korvo/messages')
PAGE = pathlib.Path('docs/korvo-messages.7')
NONE = '-'  # the module of a text that begins with no bracket
LINE = 80   # bytes of a line of the page

HEAD = r'''.\" Made by scripts/messages.py; change share/korvo/messages.
.Dd November 22, 2026
.Dt KORVO-MESSAGES 7
.Os
.Sh NAME
.Nm korvo-messages
.Nd what the programs of the search service write to the log
.Sh DESCRIPTION
These are the texts that
.Xr korvo-commmgr 8 ,
.Xr korvo-searchmgr 8 ,
.Xr korvo-docmgr 8
and
.Xr korvo-engine 8
write to the log, each with what causes it, what it means for the service and
what to do about it.
.Pp
A message is a line of hyphens, a line with the process id and the time, and
the text.
The text begins with a module in square brackets; the sections below have the
names of the modules.
A text of several lines, or one that goes on behind another without a line of
hyphens, belongs to the message before it.
The section
.Sx Without a module
has the texts that begin otherwise.
.Pp
The number before a text is its level: 101 INFO, 102 STATUS, 103 WARNING,
104 FATAL, 105 OFF.
A program starts at 103 and writes what has that level or a higher one;
.Xr korvoctl 8
changes it.
Not all that has level 104 is a failure: the configuration that a program has
read is shown with it.
.Pp
A text stands here as the program's source has it: %s stands for a text, %d and
%u for a number, %c for a character, %x for a hexadecimal number; \en is a line
end and \et a tab.
errno is a number of
.Xr errno 3 .
rc is 1 for success, else that number with a minus sign, or \-2 for an address
that cannot be used, \-3 for an argument that cannot be used and \-4 for a line
that is longer than its buffer.
.Pp
Where a failed system call is reported as error 0, the socket could not even be
asked; standard output has the number then, in a line
.Dq errno = .
'''
TAIL = r'''.Sh FILES
.Bl -tag -width Ds
.It Pa /usr/local/korvo/share/korvo/messages
the same texts, a line each, parted by tabs
.El
.Sh SEE ALSO
.Xr errno 3 ,
.Xr korvo.conf 5 ,
.Xr korvo.db 5 ,
.Xr korvo-deploy 7 ,
.Xr korvo-limits 7 ,
.Xr korvo-commmgr 8 ,
.Xr korvo-docmgr 8 ,
.Xr korvo-engine 8 ,
.Xr korvo-searchmgr 8 ,
.Xr korvoctl 8
'''


class Message(NamedTuple):
    module: str
    level: int
    text: str
    cause: str
    effect: str
    remedy: str


def read(path=SOURCE):
    messages = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line.startswith('#'):
            continue
        fields = line.split('\t')
        if len(fields) != len(Message._fields) or not all(fields) or re.fullmatch('10[1-5]', fields[1]) is None:
            sys.exit(f'{path}:{number}: expected module, level, text, cause, effect and remedy, parted by tabs')
        messages.append(Message(fields[0], int(fields[1]), *fields[2:]))
    return messages


def escaped(text):
    """What stands for itself wherever it is in the page."""
    for byte, code in (('\\', r'\e'), ('-', r'\-'), ("'", r'\(aq'), ('"', r'\(dq'), ('`', r'\(ga'), ('^', r'\(ha'),
                       ('~', r'\(ti'), ('()', r'(\&)')):
        text = text.replace(byte, code)
    return text


def filled(sentences):
    """Lines of the page, each sentence on a line of its own, parted where there is no more room."""
    for sentence in re.split(r'(?<=[.:;]) (?=[A-Z])', sentences):
        line = ''
        for word in escaped(sentence).split(' '):
            if line and len(line) + 1 + len(word) > LINE:
                yield line
                line = word
            else:
                line = f'{line} {word}' if line else word
            if line.startswith('.'):
                line = r'\&' + line
        yield line


def page(messages):
    lines = [HEAD.rstrip('\n'), '.Sh MESSAGES']
    for module, group in itertools.groupby(messages, lambda message: message.module):
        lines += ['.Ss ' + ('Without a module' if module == NONE else escaped(module)), '.Bl -tag -width Ds']
        for message in group:
            # Blanks that stand together are the text's own; quotes keep its words from being macros.
            text = re.sub('  +| $', lambda blanks: r'\ ' * len(blanks.group()), escaped(message.text))
            lines.append(rf'.It "{message.level}\ \ {text}\&"')
            lines += filled(message.cause)
            lines.append('.br')
            lines += filled('Effect: ' + message.effect)
            lines.append('.br')
            lines += filled('Remedy: ' + message.remedy)
        lines.append('.El')
    return '\n'.join(lines) + '\n' + TAIL


if __name__ == '__main__':
    PAGE.write_text(page(read()))
