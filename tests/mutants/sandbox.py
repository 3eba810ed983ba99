"""Runs a test program so that a mutant can harm nothing outside: in its own process, mount and network namespaces,
under limits, and with a time limit after which all of it is killed."""
import os
import pathlib
import signal
import subprocess
import sys

_CONFINE = pathlib.Path(__file__).parent / "confine.py"
_FIRST_UID = 60100  # one that nobody has, for each worker its own: processes are counted by user


def _namespaces():
    mapped = [] if os.geteuid() == 0 else ["--map-root-user"]
    return ["unshare", *mapped, "--fork", "--pid", "--net", "--mount-proc", "--kill-child"]


def available():
    return subprocess.run([*_namespaces(), "true"], stderr=subprocess.DEVNULL).returncode == 0


class Sandbox:
    def __init__(self, number, scratch):
        self._uid = str(_FIRST_UID + number) if os.geteuid() == 0 else "-"
        self._scratch = scratch
        scratch.mkdir(parents=True, exist_ok=True)
        if self._uid != "-":
            os.chown(scratch, int(self._uid), int(self._uid))

    def run(self, command, seconds, output):
        """The exit status; None when the time was up."""
        command = [*_namespaces(), sys.executable, "-I", "-S", str(_CONFINE), self._uid, str(int(seconds) + 1), *command]
        with open(output, "wb") as out:
            process = subprocess.Popen(command, cwd=self._scratch, stdin=subprocess.DEVNULL, stdout=out,
                                       stderr=subprocess.DEVNULL, env={**os.environ, "TMPDIR": str(self._scratch)},
                                       start_new_session=True)
            try:
                return process.wait(seconds)
            except subprocess.TimeoutExpired:
                return None
            finally:
                self._end(process)
                self._empty()

    @staticmethod
    def _end(process):
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()

    def _empty(self):
        subprocess.run(["find", str(self._scratch), "-mindepth", "1", "-delete"], stderr=subprocess.DEVNULL)
