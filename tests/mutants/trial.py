"""A worker: a copy of the tree with its own build, in which one mutant after the other is built and tested."""
import dataclasses
import hashlib
import json
import os
import pathlib
import shlex
import shutil
import subprocess
import time

import mutations
import sandbox

# The tests of a folder and then those of the folders that depend on it; the tools are slow, and last.
TESTS = {
    "debug": ("debug", "net", "protocol", "macro", "commmgr", "core", "config", "system", "tools"),
    "net": ("net", "protocol", "debug", "commmgr", "core", "config", "system", "macro", "tools"),
    "protocol": ("protocol", "commmgr", "core", "config", "macro", "system", "tools"),
    "config": ("config", "commmgr", "core", "system", "tools"),
    "macro": ("macro", "commmgr", "system", "tools"),
    "core": ("core", "commmgr", "system", "tools"),
    "commmgr": ("commmgr", "core", "system", "tools"),
    "web": ("web",),  # it takes little more than constants from the folders below
}
BUILD_SECONDS = 600
SHORTEST_PATIENCE = 10  # seconds that one test may take; most programs end in a fraction of one
CMAKE = ("-G", "Ninja", "-DCMAKE_BUILD_TYPE=", "-DCMAKE_CXX_FLAGS=-O0", "-DKORVO_STATIC=OFF", "-DKORVO_BACKENDS=OFF",
         "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST")

KILLED, TIMEOUT, SURVIVED, EQUIVALENT, NOT_COMPILED = "killed", "timeout", "survived", "equivalent", "not compiled"


class Unusable(Exception):
    """The unchanged tree does not build or does not pass."""


@dataclasses.dataclass(frozen=True)
class Verdict:
    mutant: mutations.Mutant
    outcome: str
    where: str  # the test program that killed it
    seconds: float


def _copy(root, target):
    """What git knows or would take; a file that is alike is left alone, so that it is not built again."""
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=root,
                            check=True, capture_output=True, text=True).stdout
    names = {name for name in listed.split("\0") if name and (root / name).is_file()}
    for old in [path for path in target.rglob("*") if path.is_file()]:
        if str(old.relative_to(target)) not in names:
            old.unlink()
    for name in names:
        copy = target / name
        if copy.is_file() and copy.read_bytes() == (root / name).read_bytes():
            continue
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(root / name, copy)


class Worker:
    def __init__(self, number, root):
        home = root / "build" / "mutants" / str(number)
        self._tree, self._build, self._log = home / "tree", home / "build", home / "log"
        self._sandbox = sandbox.Sandbox(number, home / "scratch")
        self._patience, self._code = {}, {}
        self._tree.mkdir(parents=True, exist_ok=True)
        _copy(root, self._tree)

    def prepare(self):
        """Builds the unchanged tree, which has to pass every test, and takes the time of each."""
        self._run_or_fail(["cmake", "-S", self._tree, "-B", self._build, *CMAKE])
        tests = sorted({test for tests in TESTS.values() for test in tests})
        self._run_or_fail(["ninja", "-C", self._build, "-j1", *(f"{test}_test" for test in tests)])
        for test in tests:
            self._patience[test] = 300
            start = time.monotonic()
            if self._test(test) != SURVIVED:
                raise Unusable(f"{test}_test fails without a mutant: see {self._log}")
            self._patience[test] = max(SHORTEST_PATIENCE, 2 * (time.monotonic() - start))  # alone as long as all
        commands = json.loads((self._build / "compile_commands.json").read_text())
        self._commands = {os.path.relpath(entry["file"], self._tree): entry["command"] for entry in commands}

    def _run_or_fail(self, command):
        with open(self._log, "wb") as log:
            if subprocess.run(command, stdout=log, stderr=subprocess.STDOUT).returncode != 0:
                raise Unusable(f"{command[0]} fails without a mutant: see {self._log}")

    def try_out(self, mutant):
        path, start = self._tree / mutant.path, time.monotonic()
        source = path.read_text()
        self._remember_code(mutant.path)
        path.write_text(mutant.apply(source))
        try:
            outcome, where = self._judge(mutant)
        finally:
            path.write_text(source)
        return Verdict(mutant, outcome, where, time.monotonic() - start)

    def _judge(self, mutant):
        tests = TESTS[mutant.path.split("/")[0]]
        for test in tests:
            if not self._compile(f"{test}_test"):
                return NOT_COMPILED, ""
            outcome = self._test(test)
            if outcome != SURVIVED:
                return outcome, test
            if test == tests[0] and self._same_code(mutant.path):
                return EQUIVALENT, ""
        return SURVIVED, ""

    def _compile(self, target):
        with open(self._log, "wb") as log:
            return subprocess.run(["ninja", "-C", self._build, "-j1", target], stdout=log, stderr=subprocess.STDOUT,
                                  timeout=BUILD_SECONDS).returncode == 0

    def _test(self, test):
        # The first failed assertion says it all; a test that goes on with the next would write, and be waited for, for long.
        command = [self._build / "bin" / f"{test}_test", "--gtest_break_on_failure"]
        status = self._sandbox.run(command, self._patience[test], self._log)
        return TIMEOUT if status is None else SURVIVED if status == 0 else KILLED

    # The optimizer finds much that is no change.  Of a header, all that may include it is compared.

    def _sources(self, path):
        if path.endswith(".cpp"):
            return [path]
        return [source for source in self._commands if source.split("/")[0] in mutations.FOLDERS]

    def _assembled(self, source):
        words = shlex.split(self._commands[source])
        words[words.index("-o") + 1] = "-"
        words[words.index("-c")] = "-S"
        done = subprocess.run([*words, "-O2"], cwd=self._build, capture_output=True, timeout=BUILD_SECONDS)
        return hashlib.sha256(done.stdout).hexdigest() if done.returncode == 0 else None

    def _remember_code(self, path):
        for source in self._sources(path):
            if source not in self._code:
                self._code[source] = self._assembled(source)

    def _same_code(self, path):
        return all(self._assembled(source) == self._code[source] for source in self._sources(path))
