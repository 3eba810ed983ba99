#!/usr/bin/env python3
"""tests/conformance/check_documents.py   run from the root

Fails when a case says a sentence that its document does not have, when a case says nothing, when an example of
docs/protocol.md or docs/macro-format.md is in no case, and when no case is for a sentence of docs/protocol.md that
tests/conformance/no_case.txt does not explain: there stands the sentence, and below it, indented, why it has none."""
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


def sentences_of(text):
    """What a document says: sentences, items of lists and rows of tables."""
    text = re.sub(r'^```.*?^```$', '', text, flags=re.M | re.S)
    blocks = ['']
    lines = text.splitlines()
    for line, following in zip(lines, lines[1:] + ['']):
        if line.startswith('|'):
            if not re.match(r'\|[-|]+$', line) and not re.match(r'\|[-|]+$', following):
                blocks.append(line)
        elif not line or line.startswith(('#', '    ', '- ', '|')):
            blocks.append(line[2:] if line.startswith('- ') else '')
        else:
            blocks[-1] += ' ' + line
    found = []
    for block in map(folded, blocks):
        begin = 0
        # A full stop within a code span ends nothing.
        for end in re.finditer(r'(?<=[.]) (?=[A-Z`*])', re.sub('`[^`]*`', lambda span: '`' * len(span[0]), block)):
            found.append(block[begin:end.start()])
            begin = end.end()
        found.append(block[begin:])
    return [sentence for sentence in found if sentence]


def without_case(text, said):
    """Sentences that need a case, and explanations that are needed no more."""
    bare = [sentence for sentence in sentences_of(text) if not any(quote in sentence or sentence in quote for quote in said)]
    lines = pathlib.Path('tests/conformance/no_case.txt').read_text().splitlines()
    reasons = {folded(line): folded(reason) for line, reason in zip(lines, lines[1:] + ['']) if not line.startswith(' ')}
    wrong = [f'docs/protocol.md: no case says: {sentence}' for sentence in bare if not reasons.get(sentence)]
    return wrong + [f'tests/conformance/no_case.txt: needed no more: {line}' for line in reasons if line not in bare]


def main():
    documents = {name: pathlib.Path('docs', name).read_text() for name in ('protocol.md', 'macro-format.md')}
    sentences = {name: folded(text) for name, text in documents.items()}
    wrong, whole, said = [], '', set()
    for role, least in LEAST.items():
        count = 0
        for path in sorted(pathlib.Path('conformance', role).glob('*.transcript')):
            whole += path.read_text()
            for line, name, says in cases(path):
                count += 1
                document, _, sentence = says.partition(': ')
                if document == 'protocol.md':
                    said.add(sentence)
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
    wrong += without_case(documents['protocol.md'], said)
    for line in wrong:
        print(line)
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
