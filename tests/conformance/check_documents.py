#!/usr/bin/env python3
"""tests/conformance/check_documents.py   run from the root

Fails when a case says a sentence that its document does not have, when a case says nothing, when an example of
docs/protocol.md or docs/macro-format.md is in no case, and when no case is for a sentence of them that
tests/conformance/no_case.txt does not explain: there stands the sentence, and below it, indented, why it has none. A
heading there, as `## The text`, stands for all sentences below it."""
import pathlib
import re
import sys

LEAST = {'daemon': 150, 'searchmgr': 60, 'docmgr': 40, 'client': 30}
SHORTEST = 20  # characters of a sentence
FORMS = {'\\t@NAME=VALUE', '\\tFIELDLIST=...'}  # of which every example is one


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


def examples(text):
    """What a document shows of messages, documents, macros and pages, each as it stands in a transcript."""
    shown = re.findall(r'^    (\\t.*)$', text, re.M)
    for kind, block in re.findall(r'^```(\w+)\n(.*?)\n```', text, re.M | re.S):
        if kind == 'bytes':
            shown.append(''.join('\\x' + byte for byte in block.split()))
        elif kind in ('document', 'output'):
            shown.append(block)
        elif kind not in ('abnf', 'macro'):  # the tests grammar and examples have these
            sys.exit(f'an example of the kind {kind} is held against nothing')
    # A message, or a value that is shown behind "as in".
    shown += re.findall(r'`(\\t[^`]*[^`t][^`]*)`', text)
    for values in re.findall(r'\bas in ((?:`[^`]*`(?:,? or |, )?)+)', text):
        shown += re.findall('`([^`]*)`', values)
    return sorted({example for example in shown if example not in FORMS})


def sentences_of(text):
    """What a document says: sentences, items of lists and rows of tables."""
    text = re.sub(r'^```.*?^```$', '', text, flags=re.M | re.S)
    blocks = ['']
    lines = text.splitlines()
    for line, following in zip(lines, lines[1:] + ['']):
        if line.startswith('|'):
            if not re.match(r'\|[-|]+$', line) and not re.match(r'\|[-|]+$', following):
                blocks.append(line)
        elif not line or line.startswith(('#', '    ', '|')):
            blocks.append('')
        elif item := re.match(r'(?:-|\d+[.]) (.*)', line):
            blocks.append(item[1])
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


def sections_of(text):
    """(heading, what stands below it), a heading with its signs."""
    text = re.sub(r'^```.*?^```$', '', text, flags=re.M | re.S)
    parts = re.split(r'^(#+ .*)$', text, flags=re.M)
    return zip([''] + parts[1::2], parts[::2])


def without_case(documents, said):
    """Sentences that need a case, and explanations that are needed no more."""
    lines = pathlib.Path('tests/conformance/no_case.txt').read_text().splitlines()
    reasons = {folded(line): folded(reason) for line, reason in zip(lines, lines[1:] + ['']) if not line.startswith(' ')}
    wrong, needed = [], set()
    for name, text in documents.items():
        for heading, section in sections_of(text):
            bare = [sentence for sentence in sentences_of(section)
                    if not any(quote in sentence or sentence in quote for quote in said[name])]
            needed |= {heading, *bare} if bare else set()
            wrong += [f'docs/{name}: no case says: {sentence}' for sentence in bare
                      if not reasons.get(sentence) and not reasons.get(heading)]
    return wrong + [f'tests/conformance/no_case.txt: needed no more: {line}' for line in reasons if line not in needed]


def main():
    documents = {name: pathlib.Path('docs', name).read_text() for name in ('protocol.md', 'macro-format.md')}
    sentences = {name: folded(text) for name, text in documents.items()}
    wrong, whole, said = [], '', {name: set() for name in documents}
    for role, least in LEAST.items():
        count = 0
        for path in sorted(pathlib.Path('conformance', role).glob('*.transcript')):
            whole += path.read_text()
            for line, name, says in cases(path):
                count += 1
                document, _, sentence = says.partition(': ')
                said.get(document, set()).add(sentence)
                if document not in sentences:
                    wrong.append(f'{path}:{line}: {name} says no sentence of a document')
                elif len(sentence) < SHORTEST or sentence not in sentences[document]:
                    wrong.append(f'{path}:{line}: docs/{document} does not say: {sentence}')
        if count < least:
            wrong.append(f'conformance/{role} has {count} cases, not {least}')
    for name, text in documents.items():
        for example in examples(text):
            if example not in whole:
                wrong.append(f'docs/{name}: no case has the example {example}')
    wrong += without_case(documents, said)
    for line in wrong:
        print(line)
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
