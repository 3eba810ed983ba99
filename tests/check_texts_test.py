#!/usr/bin/env python3
"""What tests/check_texts.py counts as a text and as its expectation."""
import contextlib
import io
import os
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import check_texts


class CheckTexts(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        self.write(check_texts.EXCEPTIONS, '')

    def write(self, path, text):
        pathlib.Path(path).parent.mkdir(parents=True, exist_ok=True)
        pathlib.Path(path).write_text(text)

    def check(self, source, test, exceptions=''):
        self.write('net/a.cpp', source)
        self.write('tests/net/a_test.cpp', test)
        self.write(check_texts.EXCEPTIONS, exceptions)
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            status = check_texts.main()
        return status, output.getvalue().splitlines()[:-1]

    def assert_expected(self, source, *tests):
        for test in tests:
            self.assertEqual(self.check(source, test), (0, []), test)

    def assert_missing(self, source, *tests):
        for test in tests:
            status, lines = self.check(source, test)
            self.assertEqual((status, len(lines)), (1, 1), f'{test} {lines}')
            self.assertTrue(lines[0].startswith('net/a.cpp:1: no test expects "'), lines)

    def test_plain_text(self):
        source = r'DPRINTF(nullptr, kInfo, "[A: b] gone\n");'
        self.assert_expected(source, r'EXPECT_EQ(log, "[A: b] gone\n");', r'EXPECT_EQ(log, "x\n" "[A: b] " "gone\ny");',
                             r'EXPECT_EQ(log, Head() + "[A: b] gone\n");', r'EXPECT_NE(npos, log.find("[A: b] gone\n"));')
        self.assert_missing(source, '', r'EXPECT_EQ(log, "[A: b] gine\n");', r'EXPECT_EQ(log, "[A: b] gone");',
                            r'EXPECT_EQ(log, "[A: b] ", "gone\n");', r'// "[A: b] gone\n"')

    def test_texts_that_a_test_does_not_want_or_only_shows(self):
        self.assert_missing(r'Say("gone\n");', r'EXPECT_NE(log, "gone\n");', r'EXPECT_FALSE(Has(log, "gone\n"));',
                            r'EXPECT_EQ(npos, log.find("gone\n"));', r'EXPECT_TRUE(ok) << "gone\n";',
                            r'SCOPED_TRACE("gone\n");')

    def test_conversions(self):
        source = r'DPRINTF(nullptr, kInfo, "[A] %s is %d (0x%0x)\n", name, rc, rc);'
        self.assert_expected(source, r'EXPECT_EQ(log, "[A] any name is -5 (0xf)\n");',
                             r'EXPECT_EQ(log, "[A] " + name + " is " + Num(rc) + " (0x" + Hex(rc) + ")\n");',
                             r'EXPECT_EQ(log, Filled("[A] x is <rc> (0xf)\n"));')
        self.assert_missing(source, r'EXPECT_EQ(log, "[A] x is many (0xf)\n");', r'EXPECT_EQ(log, "[A] x is 5 (0xf");',
                            r'EXPECT_EQ(log, "[A] x" + Rest() + "\n");', r'EXPECT_EQ(log, "[A] x\ny is 5 (0xf)\n");')

    def test_one_expression_stands_for_conversions_without_a_letter_between_them(self):
        self.assert_expected(r'Say("to %s:%d\n");', r'EXPECT_EQ(log, "to " + Place() + "\n");')
        self.assert_missing(r'Say("to %s port %d\n");', r'EXPECT_EQ(log, "to " + Place() + "\n");')

    def test_pieces_that_are_added_are_one_text(self):
        source = 'return option + " takes " + std::to_string(n) + std::string(" bytes");'
        self.assert_expected(source, 'EXPECT_EQ(Wrong(), "--to takes 5 bytes");')
        self.assert_missing(source, 'EXPECT_EQ(Wrong(), "--to takes 5"); EXPECT_EQ(x, " bytes");')

    def test_a_continuation_loses_its_mark(self):
        self.assert_expected(r'DPRINTF(nullptr, kInfo, "@[A] more\n");', r'EXPECT_EQ(log, "[A] more\n");')

    def test_a_word_is_no_piece_of_a_longer_one(self):
        self.assert_missing('Send("HIT");', 'EXPECT_EQ(line, "HITS");')

    def test_what_is_no_text(self):
        self.assert_expected('Find("\\t\\n %d=", 7); // "a comment"\n#include "net/a.h"', '')

    def test_tests_of_another_folder_prove_nothing_and_system_tests_do(self):
        test = 'EXPECT_EQ(line, "HIT");'
        self.write('tests/tools/a_test.cpp', test)
        self.assert_missing('Send("HIT");', '')
        self.write('tests/system/a_test.cpp', test)
        self.assert_expected('Send("HIT");', '')

    def test_exceptions(self):
        entry = r'net/a.cpp "[A] gone\n" no call leads there' + '\n'
        source = r'Say("[A] gone\n");'
        self.assertEqual(self.check(source, '', '# why\n\n' + entry), (0, []))
        for case in (self.check(source, f'EXPECT_EQ(log, "[A] gone\\n");', entry), self.check('', '', entry)):
            self.assertEqual(case, (1, ['tests/texts_unexpected.txt:1: net/a.cpp has no such text that no test expects: '
                                        r'"[A] gone\n"']))
        with self.assertRaisesRegex(SystemExit, 'texts_unexpected.txt:1: expected PATH "TEXT" REASON'):
            self.check(source, '', 'net/a.cpp "[A] gone\\n"\n')


if __name__ == '__main__':
    unittest.main()
