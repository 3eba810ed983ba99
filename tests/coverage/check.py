#!/usr/bin/env python3
"""tests/coverage/check.py REPORT LIST   holds a report of gcovr (--json) against the list of what never runs

Every line of the daemon and of korvo-web runs, and so does every branch but those that the list explains: at least
97 of 100.  The explained ones and the figures go to standard output.  Whatever is otherwise is a line on standard error,
and exit status 1.
"""
import collections
import json
import re
import sys

FOLDERS = {"commmgr", "config", "core", "debug", "macro", "net", "protocol", "web"}
LEAST = 97  # of 100 branches
ENTRY = re.compile(r"(\S+): (\S+): (\d+) of (\d+): (.+)")

# What never runs.  A branch is known by what stands there, for line numbers shift; number counts from 1 as gcov does.
Line = collections.namedtuple("Line", "file at text")
Branch = collections.namedtuple("Branch", "file function number count text")


def fail(status, text):
    print(text, file=sys.stderr)
    sys.exit(status)


def bare(signature):
    """The name of a function without its arguments, its result and the like."""
    head = signature.replace("(anonymous namespace)::", "").split("(")[0]
    return re.sub(r"<.*", "", head).split()[-1]


def statement(texts, at):
    """The text from that line, the first being 1, to where its brackets close."""
    text = texts[at - 1]
    while text.count("(") > text.count(")") and at < len(texts):
        text += " " + texts[at]
        at += 1
    return text


class Report:
    def __init__(self, path):
        self.lines = self.branches = 0
        self.idle_lines = []     # of Line
        self.idle_branches = []  # of (line number, Branch)
        with open(path) as report:
            files = json.load(report)["files"]
        if {file["file"].split("/")[0] for file in files} != FOLDERS:
            fail(70, "%s: it is not of the folders %s" % (path, ", ".join(sorted(FOLDERS))))
        for file in sorted(files, key=lambda each: each["file"]):
            self.read_file(file)

    def read_file(self, file):
        with open(file["file"]) as source:
            texts = [line.strip() for line in source]
        functions = sorted((each["lineno"], bare(each["name"])) for each in file["functions"])
        for line in file["lines"]:
            if line["gcovr/noncode"]:
                continue
            at, branches = line["line_number"], line["branches"]
            self.lines += 1
            self.branches += len(branches)
            if line["count"] == 0:
                self.idle_lines.append(Line(file["file"], at, texts[at - 1]))
            function = [name for begin, name in functions if begin <= at][-1:] or ["-"]
            for number, branch in enumerate(branches, 1):
                if branch["count"] == 0:
                    idle = Branch(file["file"], function[0], number, len(branches), statement(texts, at))
                    self.idle_branches.append((at, idle))


def read_list(path):
    """(line number, Branch, reason) of every entry: one or more of them, and then their reason, indented."""
    entries, waiting = [], []
    with open(path) as text:
        for at, line in enumerate(text.read().splitlines(), 1):
            match = ENTRY.fullmatch(line)
            if match:
                file, function, number, count, source = match.groups()
                waiting.append((at, Branch(file, function, int(number), int(count), source)))
            elif line.startswith(" ") and waiting:
                entries += [(begin, branch, line.strip()) for begin, branch in waiting]
                waiting = []
            elif line and not line.startswith("#"):
                fail(1, "%s:%d: this is neither an entry, nor the reason of one, nor a comment" % (path, at))
    if waiting:
        fail(1, "%s:%d: this entry has no reason" % (path, waiting[0][0]))
    return entries


def compare(report, path):
    """Prints the explained branches; the faults."""
    faults = ["%s:%d: this line never runs: %s" % line for line in report.idle_lines]
    unexplained = list(report.idle_branches)
    for entry, branch, reason in read_list(path):
        found = next((each for each in unexplained if each[1] == branch), None)
        if found is None:
            faults.append("%s:%d: this branch runs, or is no more: %s: %s: %d of %d: %s" % (path, entry, *branch))
            continue
        unexplained.remove(found)
        print("%s:%d: branch %d of %d: %s" % (branch.file, found[0], branch.number, branch.count, reason))
    for at, branch in unexplained:
        faults.append("%s:%d: this branch never runs, and %s does not explain it: %s: %s: %d of %d: %s" %
                      (branch.file, at, path, *branch))
    return faults


def main(arguments):
    if len(arguments) != 2:
        fail(64, "usage: tests/coverage/check.py REPORT LIST")
    path, explained = arguments
    try:
        report = Report(path)
        faults = compare(report, explained)
    except OSError as error:
        fail(66, "%s: %s" % (error.filename, error.strerror))
    lines = report.lines - len(report.idle_lines)
    branches = report.branches - len(report.idle_branches)
    print("%d of %d lines, %d of %d branches: %.2f of 100" %
          (lines, report.lines, branches, report.branches, 100 * branches / report.branches))
    if 100 * branches < LEAST * report.branches:
        faults.append("%s: less than %d of 100 branches run" % (path, LEAST))
    for fault in faults:
        print(fault, file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
