#!/usr/bin/env python3
"""scripts/syntax.py [--check]   makes the files by which editors colour the sources of macros

The words are those of the assembler's table, tools/macro/form.cpp, and of the language around them, tools/macro/assemble.cpp and block.cpp.
With --check nothing is written: the status is 1 where a file is not what these make of it.
"""
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDER = ROOT / 'docs/examples/macro'


def words():
    """(instructions, words of the language), each in the order of its source."""
    form = (ROOT / 'tools/macro/form.cpp').read_text(encoding='utf-8')
    language = ''.join((ROOT / 'tools/macro' / name).read_text(encoding='utf-8') for name in ('assemble.cpp', 'block.cpp'))
    instructions = re.findall(r'^ *\{"([a-z0-9-]+)", kOp', form, re.M)
    others = re.findall(r'word == "([a-z-]+)"', language) + re.findall(r'TakeUpTo\(assembly, "([a-z-]+)"', language)
    others = [word for word in dict.fromkeys(others) if word != 'if-field']  # which is refused
    if not instructions or 'page' not in others or 'end-page' not in others:
        sys.exit('syntax.py: the words are not found where they were')
    return instructions, others


def vim(instructions, others):
    return f'''" Page macros of Korvo.  Copy this file to ~/.vim/syntax, and put this line into ~/.vim/filetype.vim:
"   au BufRead,BufNewFile *.ms setfiletype korvomacro
" Made by scripts/syntax.py.
if exists("b:current_syntax")
  finish
endif
syn case match
syn iskeyword @,48-57,-,_
syn match korvoConstant "\\<[A-Z_][A-Za-z0-9_]*\\>"
syn match korvoNumber "\\<\\(0x[0-9a-fA-F]\\+\\|\\d\\+\\)\\>"
syn keyword korvoInstruction {' '.join(instructions)}
syn keyword korvoLanguage {' '.join(word for word in others if word not in ('page', 'end-page'))}
syn match korvoEscape contained "\\\\\\([ntr\\"\\\\]\\|x[0-9a-fA-F]\\{{2}}\\)"
syn region korvoText start=+"+ skip=+\\\\.+ end=+"+ oneline contains=korvoEscape
syn match korvoComment ";.*$"
syn match korvoValue contained "{{{{.\\{{-}}}}}}"
syn region korvoPage matchgroup=korvoLanguage start="^\\s*page\\>" end="^\\s*end-page\\>" contains=korvoValue
hi def link korvoInstruction Statement
hi def link korvoLanguage PreProc
hi def link korvoConstant Constant
hi def link korvoNumber Number
hi def link korvoEscape Special
hi def link korvoText String
hi def link korvoComment Comment
hi def link korvoValue Identifier
hi def link korvoPage String
let b:current_syntax = "korvomacro"
'''


def any_of(group):
    """A pattern for one of the words, none of which may be the front of a longer one."""
    return r'\b(?:' + '|'.join(sorted(group, key=lambda word: (-len(word), word))) + r')(?![\w-])'


def grammar(instructions, others):
    value = {'match': r'\{\{.*?\}\}', 'name': 'variable.other.korvomacro'}
    return json.dumps({
        'comment': 'Made by scripts/syntax.py.',
        'name': 'Korvo page macro',
        'scopeName': 'source.korvomacro',
        'fileTypes': ['ms'],
        'patterns': [
            {'begin': r'^\s*page\b', 'end': r'^\s*end-page\b', 'contentName': 'string.unquoted.korvomacro',
             'beginCaptures': {'0': {'name': 'keyword.control.korvomacro'}},
             'endCaptures': {'0': {'name': 'keyword.control.korvomacro'}}, 'patterns': [value]},
            {'match': ';.*$', 'name': 'comment.line.semicolon.korvomacro'},
            {'begin': '"', 'end': '"|$', 'name': 'string.quoted.double.korvomacro',
             'patterns': [{'match': r'\\(?:[ntr"\\]|x[0-9a-fA-F]{2})', 'name': 'constant.character.escape.korvomacro'}]},
            {'match': any_of(others), 'name': 'keyword.control.korvomacro'},
            {'match': any_of(instructions), 'name': 'keyword.other.korvomacro'},
            {'match': r'\b(?:0x[0-9a-fA-F]+|[0-9]+)\b', 'name': 'constant.numeric.korvomacro'},
            {'match': r'\b[A-Z_][A-Za-z0-9_]*\b', 'name': 'constant.other.korvomacro'},
        ],
    }, indent=2) + '\n'


def extension():
    return json.dumps({
        'name': 'korvo-macro',
        'description': 'Page macros of Korvo.  Made by scripts/syntax.py.',
        'version': '1.0.0',
        'publisher': 'korvo',
        'engines': {'vscode': '^1.60.0'},
        'contributes': {
            'languages': [{'id': 'korvomacro', 'aliases': ['Korvo page macro'], 'extensions': ['.ms']}],
            'grammars': [{'language': 'korvomacro', 'scopeName': 'source.korvomacro',
                          'path': './korvomacro.tmLanguage.json'}],
        },
    }, indent=2) + '\n'


def main():
    made = words()
    files = {'vim/korvomacro.vim': vim(*made), 'vscode/korvomacro.tmLanguage.json': grammar(*made),
             'vscode/package.json': extension()}
    wrong = 0
    for name, text in files.items():
        path = FOLDER / name
        if '--check' not in sys.argv:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding='utf-8')
        elif not path.exists() or path.read_text(encoding='utf-8') != text:
            print(f'{path.relative_to(ROOT)} is not what scripts/syntax.py makes of it')
            wrong = 1
    return wrong


if __name__ == '__main__':
    sys.exit(main())
