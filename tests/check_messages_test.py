#!/usr/bin/env python3
"""What tests/check_messages.py counts as a message, and what it says of a file that is not as the sources are."""
import contextlib
import io
import os
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import check_messages
from check_messages import messages

SOURCE = r'''
#define DPRINTF(stream, level, ...) Print(__VA_ARGS__)
void HEXDUMP(std::FILE *stream, int level, const void *address, int length, const char *title);
void Tell(int level) {
  DPRINTF(nullptr, kWarning, "[A: b] gone (%d, %s)\n", Number(1, 2), "[C: d] no\n");
  DPRINTF(nullptr, kInfo, "@[A: c] more\tand\nmore\n");
  DPRINTF(nullptr, again ? kStatus : kFatal, "\n[bare]\n");
  DPRINTF(nullptr, kWarning, "[A: b] gone (%d, %s)\n", 3, "");  // "[D: e] in a remark\n"
  DPRINTF(nullptr, kInfo, "@%-47s\n", line);
  HEXDUMP(nullptr, kInfo, text, 3, "a title\n");
  HEXDUMP(nullptr, kInfo, text, 3, nullptr);
  DPRINTF(nullptr, level, "[A: c] set\n");
}
'''
LINES = ['A: b\t103\tgone (%d, %s)', r'A: c' '\t101\t' r'more\tand\nmore',
         'A: c\t105\tset', 'A: c\t104\tset', 'A: c\t103\tset', 'A: c\t102\tset', 'A: c\t101\tset',
         '-\t102\t[bare]', '-\t104\t[bare]', '-\t101\tHEXDUMP of a title', '-\t101\tHEXDUMP @ %08x for %1d bytes']


class CheckMessages(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        for path in ('net/a.cpp', messages.SOURCE, messages.PAGE):
            pathlib.Path(path).parent.mkdir(parents=True)
        pathlib.Path('net/a.cpp').write_text(SOURCE)

    def check(self, lines):
        messages.SOURCE.write_text('# a remark\n' + ''.join(f'{line}\twhy\twhat of it\twhat to do\n' for line in lines))
        messages.PAGE.write_text(messages.page(messages.read()))
        return self.said()

    def said(self):
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            status = check_messages.main()
        *faults, last = output.getvalue().splitlines()
        self.assertEqual((status, last), (1 if faults else 0, f'{len(LINES)} messages; {len(faults)} faults'))
        return faults

    def test_all_of_them(self):
        self.assertEqual(self.check(LINES), [])

    def test_one_that_is_missing(self):
        for at, line in enumerate(LINES):
            module, level, text = line.split('\t')
            self.assertEqual(self.check(LINES[:at] + LINES[at + 1:]),
                             [f'share/korvo/messages: there is no line for level {level} of [{module}] {text}'])

    def test_one_too_many(self):
        self.assertEqual(self.check(LINES + ['C: d\t103\tno']),
                         ['share/korvo/messages: nothing writes at level 103 [C: d] no'])
        self.assertEqual(self.check(LINES[:1] + LINES),
                         ['share/korvo/messages: two lines at level 103 have [A: b] gone (%d, %s)'])

    def test_another_level(self):
        self.assertEqual(self.check(['A: b\t104\tgone (%d, %s)'] + LINES[1:]),
                         ['share/korvo/messages: there is no line for level 103 of [A: b] gone (%d, %s)',
                          'share/korvo/messages: nothing writes at level 104 [A: b] gone (%d, %s)'])

    def test_another_order(self):
        self.assertEqual(self.check(LINES[1:2] + LINES[:1] + LINES[2:]),
                         [r'share/korvo/messages: before [A: c] more\tand\nmore belongs [A: b] gone (%d, %s)'])

    def test_a_page_of_other_messages(self):
        self.check(LINES)
        with messages.PAGE.open('a') as page:
            page.write('.Pp\n')
        self.assertEqual(self.said(), ['docs/korvo-messages.7: run scripts/messages.py, which makes another page'])

    def test_a_line_that_is_no_message(self):
        for line in ('', 'A: b\t103\tgone', 'A: b\t106\tgone\twhy\twhat of it\twhat to do', 'A: b\t103\tgone\t\tb\tc'):
            messages.SOURCE.write_text(line + '\n')
            with self.assertRaises(SystemExit) as ended:
                messages.read()
            self.assertEqual(str(ended.exception), 'share/korvo/messages:1: expected module, level, text, cause, effect '
                             'and remedy, parted by tabs')

    def test_what_the_page_would_take_for_its_own(self):
        line = messages.Message('A: b', 103, '-"x" \\n  don\'t No f() ', '.Sh no', "'no", 'see a. It goes on')
        page = messages.page([line])
        self.assertIn('.It "103\\ \\ \\-\\(dqx\\(dq \\en\\ \\ don\\(aqt No f(\\&)\\ \\&"\n'
                      '\\&.Sh no\n.br\nEffect: \\(aqno\n.br\nRemedy: see a.\nIt goes on\n', page)


if __name__ == '__main__':
    unittest.main()
