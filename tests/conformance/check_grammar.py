#!/usr/bin/env python3
"""tests/conformance/check_grammar.py   run from the root

Turns the ABNF of docs/protocol.md into regular expressions and holds messages against its rules: the examples of the
document, and messages that each rule has to refuse."""
import pathlib
import re
import sys

CORE = {'HTAB': r'\t', 'LF': r'\n', 'CR': r'\r', 'DIGIT': '[0-9]', 'ALPHA': '[A-Za-z]', 'HEXDIG': '[0-9A-F]'}
TOKEN = re.compile(r'\s*(%s"[^"]*"|"[^"]*"|%x[0-9A-Fa-f]+(?:-[0-9A-Fa-f]+)?|\d*\*\d*|\d+(?=[A-Za-z(])|[A-Za-z][A-Za-z0-9-]*|[()\[\]/])')


def rules(text):
    block = re.search(r'^```abnf\n(.*?)\n```', text, re.M | re.S).group(1)
    lines = [line.split(';')[0] for line in block.splitlines()]
    found, name = {}, None
    for line in lines:
        begin = re.match(r'([a-z-]+)\s+=(.*)', line)
        if begin:
            name = begin.group(1)
            found[name] = begin.group(2)
        elif name and line.strip():
            found[name] += ' ' + line
    return found


def pattern(name, grammar, using=()):
    """The rule as a regular expression; a rule that uses itself has none."""
    if name in using:
        sys.exit(f'the rule {name} uses itself')
    tokens, text = [], grammar[name].strip()
    while text:
        token = TOKEN.match(text)
        if not token:
            sys.exit(f'the rule {name} is no ABNF at: {text}')
        tokens.append(token.group(1))
        text = text[token.end():].strip()
    out, count = '', None
    opened = []
    for token in tokens:
        if token in ('(', '['):
            opened.append((token, count))
            out, count = out + '(?:', None
            continue
        if token == '/':
            out += '|'
            continue
        if re.fullmatch(r'\d*\*\d*|\d+', token):
            least, star, most = token.partition('*')
            count = f'{{{least or 0},{most}}}' if star else f'{{{least}}}'
            continue
        if token in (')', ']'):
            kind, count = opened.pop()
            out += ')' + ('?' if kind == '[' else count or '')
            count = None
            continue
        if token.startswith('%x'):
            ends = token[2:].split('-')
            item = '[' + '-'.join(f'\\x{int(end, 16):02x}' for end in ends) + ']'
        elif '"' in token:
            item = '(?:' + re.escape(token[token.index('"') + 1:-1]) + ')'
        elif token in CORE:
            item = CORE[token]
        else:
            item = '(?:' + pattern(token, grammar, using + (name,)) + ')'
        out += item + (count or '')
        count = None
    return '(?:' + out + ')'


def unescaped(text):
    return text.replace('\\t', '\t').replace('\\n', '\n').replace('\\r', '\r')


# What each command of an example is, besides a message.
RULES = {'QUERY': ['query'], 'GETDOC': ['getdoc'], 'HIT': ['hit', 'document'], 'RAW': ['raw'],
         'SEARCHCOMPLETE': ['searchcomplete'], 'ERROR': ['error'], 'PING': ['ping'], 'PONG': ['pong'],
         'SETDEBUGLEVEL': ['setdebuglevel'], 'STARTUPANNOUNCEMENT': ['announcement'],
         'SHUTDOWNANNOUNCEMENT': ['shutdown-notice'], 'SHUTDOWN': ['shutdown']}
MORE = [('getdoc-request', '\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=packages\t@RECTYPE=packages\t@MACROFILE=\t@DOCNUM=17'
         '\t@SCRIPT=\t@SEQNUM=0\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n', True),
        ('getdoc-request', '\t@COMMAND=GETDOC\t@SEARCHGROUP=packages\t@DOCNUM=17\n', False),
        ('status', '\t@COMMAND=RAW\t<!--korvo matches=~1234 first=21 shown=10 shards=3/4 ms=12-->\n', True),
        ('status', '\t@COMMAND=RAW\t<!--korvo matches=x first=21 shown=10 shards=3/4 ms=12-->\n', False),
        ('search-answer', '\t@COMMAND=HIT\t@DOCNUM=1\n\t@COMMAND=RAW\tx\n\t@COMMAND=SEARCHCOMPLETE\n', True),
        ('search-answer', '\t@COMMAND=SEARCHCOMPLETE\n\t@COMMAND=HIT\t@DOCNUM=1\n', False),
        ('message', '\t@COMMAND=QUERY\tmail', False), ('message', '@COMMAND=QUERY\tmail\n', False),
        ('message', '\t@COMMAND=QUERY\tma\0il\n', False), ('message', '\t@COMMAND=QUERY\r\n', False),
        ('raw', '\t@COMMAND=RAW\n', False), ('query', '\t@COMMAND=query\tx\n', False), ('pong', '\t@COMMAND=PONG\n', False),
        ('document', '\t@COMMAND=HIT\tPackage=adduser\n', False), ('document-answer', '\t@COMMAND=ERROR\tno\n', True),
        ('setdebuglevel', '\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=info\n', False),
        ('announcement', '\t@COMMAND=STARTUPANNOUNCEMENT\tID=a\tTYPE=S\n', False),
        ('announcement', '\t@COMMAND=STARTUPANNOUNCEMENT\tADMINPORT=9\tCLIENTPORT=8\tIP=127.0.0.1\tTYPE=S\tID=a\n', True),
        ('document', '\t@COMMAND=HIT\t' + 1022 * 'N' + '=x\t\n', True),
        ('document', '\t@COMMAND=HIT\t' + 1023 * 'N' + '=x\t\n', False),
        ('document-answer', '\t@COMMAND=ERROR\n', True), ('document-answer', '\t@COMMAND=NEWS\tno\n', False),
        ('search-answer', '\t@COMMAND=RAW\tx\n\t@COMMAND=HIT\t@DOCNUM=1\n', True),
        ('no-hit', '\t@COMMAND=ERROR\tUnable to retreive document.', True),
        ('no-document', '\t@COMMAND=ERROR\tUnable to locate Document Server.', True)]
OWN = {'locate SearchMgr': 'no-searchmgr', 'connect to': 'no-connection', 'receive from': 'no-stream'}


def main():
    text = pathlib.Path('docs/protocol.md').read_text()
    grammar = rules(text)
    compiled = {name: re.compile(pattern(name, grammar)) for name in grammar}
    shown = set(re.findall(r'`(\\t@COMMAND=[^`]*\\n)`', text) + re.findall(r'^    (\\t@COMMAND=.*)$', text, re.M))
    tries = list(MORE)
    for example in sorted(shown):
        message = unescaped(example)
        word = re.search('@COMMAND=([A-Z]*)', message).group(1)
        tries.append(('message', message, True))
        fits = [name for name in RULES[word] if compiled[name].fullmatch(message)]
        tries.append((fits[0] if fits else RULES[word][0], message, True))
        tries += [(rule, message, True) for words, rule in OWN.items() if words in message]
    wrong = [(rule, message) for rule, message, good in tries if (compiled[rule].fullmatch(message) is not None) != good]
    for rule, message in wrong:
        print(f'the rule {rule} is wrong about {message!r}')
    if len(shown) < 15:
        print('docs/protocol.md has hardly any example')
    return 1 if wrong or len(shown) < 15 else 0


if __name__ == '__main__':
    sys.exit(main())
