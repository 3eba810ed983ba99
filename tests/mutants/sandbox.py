"""Runs a test program so that a mutant can harm nothing outside: in its own process, mount and network namespaces,
under limits, and killed whole when nothing comes of it any more."""
import os
import pathlib
import signal
import subprocess
import sys
import time

_CONFINE = pathlib.Path(__file__).parent / "confine.py"
_FIRST_UID = 60100  # one that nobody has, for each worker its own: processes are counted by user


def _namespaces():
    mapped = [] if os.geteuid() == 0 else ["--map-root-user"]
    die_with_us = ["setpriv", "--pdeathsig", "KILL"]
    return [*die_with_us, "unshare", *mapped, "--fork", "--pid", "--net", "--mount-proc", "--kill-child"]


def available():
    return subprocess.run([*_namespaces(), "true"], stderr=subprocess.DEVNULL).returncode == 0


class Sandbox:
    def __init__(self, number, scratch):
        self._uid = str(_FIRST_UID + number) if os.geteuid() == 0 else "-"
        self._scratch = scratch
        scratch.mkdir(parents=True, exist_ok=True)
        if self._uid != "-":
            os.chown(scratch, int(self._uid), int(self._uid))

    def run(self, command, patience, output):
        """The exit status; None when it wrote nothing for that many seconds, as a program without a next test does."""
        cpu_seconds = str(int(patience) + 1)
        command = [*_namespaces(), sys.executable, "-I", "-S", str(_CONFINE), self._uid, cpu_seconds, *command]
        with open(output, "wb") as out:
            process = subprocess.Popen(command, cwd=self._scratch, stdin=subprocess.DEVNULL, stdout=out,
                                       stderr=subprocess.DEVNULL, env={**os.environ, "TMPDIR": str(self._scratch)},
                                       start_new_session=True)
            try:
                return self._wait(process, patience, out.fileno())
            finally:
                self._end(process)
                self._empty()

    @staticmethod
    def _wait(process, patience, out):
        left = patience
        while left > 0:
            try:
                return process.wait(left)
            except subprocess.TimeoutExpired:
                left = os.fstat(out).st_mtime + patience - time.time()
        return None

    @staticmethod
    def _end(process):
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()

    def _empty(self):
        subprocess.run(["find", str(self._scratch), "-mindepth", "1", "-delete"], stderr=subprocess.DEVNULL)
