#!/usr/bin/env python3
"""tests/conformance/check_documents.py   run from the root

Fails when a case says a sentence that its document does not have, when a case says nothing, and when an example of
docs/protocol.md or docs/macro-format.md is in no case."""
import pathlib
import re
import sys

LEAST = {'daemon': 150, 'searchmgr': 60, 'docmgr': 40, 'client': 30}
SHORTEST = 20  # characters of a sentence


def folded(text):
    return ' '.join(text.split())


def cases(path):
    """(line, name, what it says) of each case."""
    found, lines = [], path.read_text().splitlines()
    for number, line in enumerate(lines, 1):
        if line.startswith('case '):
            found.append([number, line.split()[1], ''])
        elif line.startswith('says ') and found:
            says = line[5:]
            for more in lines[number:]:
                if not more[:1].isspace():
                    break
                says += ' ' + more
            found[-1][2] = folded(says)
    return found


def examples(document, text):
    """The messages that a document shows, each as it stands in a transcript."""
    if document == 'protocol.md':
        shown = re.findall(r'`(\\t@COMMAND=[^`]*\\n)`', text) + re.findall(r'^    (\\t@COMMAND=.*)$', text, re.M)
        return sorted(set(shown))
    blocks = dict(re.findall(r'^```(bytes|document|output)\n(.*?)\n```', text, re.M | re.S))
    return [''.join('\\x' + byte for byte in blocks['bytes'].split()), blocks['document'], blocks['output']]


def main():
    documents = {name: pathlib.Path('docs', name).read_text() for name in ('protocol.md', 'macro-format.md')}
    sentences = {name: folded(text) for name, text in documents.items()}
    wrong, whole = [], ''
    for role, least in LEAST.items():
        count = 0
        for path in sorted(pathlib.Path('conformance', role).glob('*.transcript')):
            whole += path.read_text()
            for line, name, says in cases(path):
                count += 1
                document, _, sentence = says.partition(': ')
                if document not in sentences:
                    wrong.append(f'{path}:{line}: {name} says no sentence of a document')
                elif len(sentence) < SHORTEST or sentence not in sentences[document]:
                    wrong.append(f'{path}:{line}: docs/{document} does not say: {sentence}')
        if count < least:
            wrong.append(f'conformance/{role} has {count} cases, not {least}')
    for name, text in documents.items():
        for example in examples(name, text):
            if example not in whole:
                wrong.append(f'docs/{name}: no case has the example {example}')
    for line in wrong:
        print(line)
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
