#!/usr/bin/env python3
"""What tests/coverage/check.py lets pass and what it refuses."""
import contextlib
import io
import json
import os
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import check

SOURCE = """\
static int Sign(int a) {
  return a < 0 ? -1 :
      Text(a,
           1);
}
"""
ENTRY = 'net/a.cpp: Sign: 2 of 2: return a < 0 ? -1 :'


class Check(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)

    def report(self, **counts):
        """A report of a file in each folder: in net/a.cpp the line 2 has those counts, in the others all runs."""
        files = []
        for folder in check.FOLDERS:
            path = pathlib.Path(folder, 'a.cpp')
            path.parent.mkdir(exist_ok=True)
            path.write_text(SOURCE)
            count, branches = (counts['line'], counts['branches']) if folder == 'net' else (9, [5] * 20)
            files.append({'file': str(path),
                          'functions': [{'name': '(anonymous namespace)::Sign(int)', 'lineno': 1}],
                          'lines': [self.line(1, 9, []), self.line(counts.get('at', 2), count, branches),
                                    {'line_number': 5, 'count': 0, 'branches': [], 'gcovr/noncode': True}]})
        return files

    def line(self, number, count, branches):
        return {'line_number': number, 'count': count, 'branches': [{'count': each} for each in branches],
                'gcovr/noncode': False}

    def check(self, files, explained=''):
        pathlib.Path('report').write_text(json.dumps({'files': files}))
        pathlib.Path('list').write_text(explained)
        output, faults = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(faults):
            try:
                status = check.main(['report', 'list'])
            except SystemExit as end:
                status = end.code
        return status, output.getvalue().splitlines(), faults.getvalue().splitlines()

    def test_everything_runs(self):
        status, output, faults = self.check(self.report(line=3, branches=[1, 2]), '# nothing\n')
        self.assertEqual((status, faults), (0, []))
        self.assertEqual(output, ['16 of 16 lines, 142 of 142 branches: 100.00 of 100'])

    def test_idle_branch(self):
        report = self.report(line=3, branches=[3, 0])
        status, _, faults = self.check(report)
        self.assertEqual((status, faults), (1, ['net/a.cpp:2: this branch never runs, and list does not explain it: ' +
                                                ENTRY]))
        status, output, faults = self.check(report, ENTRY + '\n  no number is small\n')
        self.assertEqual((status, faults), (0, []))
        self.assertEqual(output[0], 'net/a.cpp:2: branch 2 of 2: no number is small')

    def test_explained_branch_that_runs(self):
        status, _, faults = self.check(self.report(line=3, branches=[1, 2]), ENTRY + '\n  a reason\n')
        self.assertEqual((status, faults), (1, ['list:1: this branch runs, or is no more: ' + ENTRY]))

    def test_other_branch_of_an_explained_line(self):
        status, _, faults = self.check(self.report(line=3, branches=[0, 3]), ENTRY + '\n  a reason\n')
        self.assertEqual((status, len(faults)), (1, 2))

    def test_entry_counts_once(self):
        status, _, faults = self.check(self.report(line=3, branches=[3, 0]), 2 * (ENTRY + '\n') + '  a reason\n')
        self.assertEqual((status, faults), (1, ['list:2: this branch runs, or is no more: ' + ENTRY]))

    def test_statement_of_several_lines_is_told_whole(self):
        _, _, faults = self.check(self.report(at=3, line=3, branches=[0, 3]))
        self.assertEqual(len(faults), 1)
        self.assertTrue(faults[0].endswith(': net/a.cpp: Sign: 1 of 2: Text(a, 1);'), faults)

    def test_idle_line(self):
        status, output, faults = self.check(self.report(line=0, branches=[]))
        self.assertEqual((status, faults), (1, ['net/a.cpp:2: this line never runs: return a < 0 ? -1 :']))
        self.assertEqual(output, ['15 of 16 lines, 140 of 140 branches: 100.00 of 100'])

    def test_too_few_branches(self):
        explained = ''.join('net/a.cpp: Sign: %d of 5: return a < 0 ? -1 :\n' % each for each in (1, 2, 3, 4, 5))
        status, output, faults = self.check(self.report(line=3, branches=[0] * 5), explained + '  a reason\n')
        self.assertEqual(output[-1], '16 of 16 lines, 140 of 145 branches: 96.55 of 100')
        self.assertEqual((status, faults), (1, ['report: less than 97 of 100 branches run']))

    def test_malformed_list(self):
        report = self.report(line=3, branches=[3, 0])
        for text in (ENTRY + '\n', '  a reason\n', 'net/a.cpp\n', ENTRY + '\n  a reason\n  another\n'):
            status, _, faults = self.check(report, text)
            self.assertEqual((status, len(faults)), (1, 1), text)

    def test_report_without_a_folder(self):
        status, _, faults = self.check(self.report(line=3, branches=[1, 2])[1:])
        self.assertEqual((status, len(faults)), (70, 1))

    def test_bad_use(self):
        with contextlib.redirect_stderr(io.StringIO()):
            for arguments, status in (([], 64), (['report'], 64), (['none', 'list'], 66)):
                with self.assertRaises(SystemExit) as end:
                    check.main(arguments)
                self.assertEqual(end.exception.code, status)


if __name__ == '__main__':
    unittest.main()
