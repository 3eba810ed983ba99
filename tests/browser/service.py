"""A whole service on 127.0.0.1, with the shipped page before it, for the tests in a browser."""
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
PATIENCE = 30  # seconds, after which something that is waited for has failed

PROGRAMS = {"C": "korvo-commmgr", "S": "korvo-searchmgr", "D": "korvo-docmgr", "E": "korvo-engine"}


def eventually(condition, what):
    """Asks until it is so, and returns what it says."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        found = condition()
        if found:
            return found
        time.sleep(0.01)
    raise AssertionError(f"never: {what}")


def free_port(kind=socket.SOCK_STREAM):
    """A port below 32768, as korvo.conf wants them, that nobody uses."""
    for port in range(20000 + os.getpid() % 5000, 30000):
        if port in free_port.taken:
            continue
        with socket.socket(socket.AF_INET, kind) as probe:
            try:
                probe.bind(("127.0.0.1", port))
            except OSError:
                continue
        free_port.taken.add(port)
        return port
    raise AssertionError("no port is free")


free_port.taken = set()


class Relay:
    """Stands before a manager; passes a connection on when it is told to."""

    def __init__(self, behind):
        self.behind = behind
        self.asked = 0
        self.passed = threading.Semaphore(0)
        self.listener = socket.create_server(("127.0.0.1", free_port()), backlog=64)
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self._serve, daemon=True).start()

    def let_pass(self, count):
        for _ in range(count):
            self.passed.release()

    def _serve(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            self.asked += 1
            threading.Thread(target=self._pass, args=(client,), daemon=True).start()

    def _pass(self, client):
        self.passed.acquire()
        with client, socket.create_connection(("127.0.0.1", self.behind)) as manager:
            manager.sendall(client.makefile("rb").readline())
            while chunk := manager.recv(65536):
                client.sendall(chunk)


class Service:
    """One group over so many engines, or over one database, and korvo-web before it."""

    def __init__(self, build, documents, title, engines=0, sorts=(), suffix="control"):
        self.bin = pathlib.Path(build) / "bin"
        # Short: macros go by at most 127 characters.
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="korvo-browser.", dir="/tmp"))
        self.ports, self.processes = {}, {}
        self.web = None
        try:
            self._lay_out(documents, engines, suffix)
            self._start(engines)
            self._start_web(title, sorts)
        except BaseException:
            self.stop()
            raise

    def _lay_out(self, documents, engines, suffix):
        lines = [("C", "web1", "-"), ("S", "docs", "web1"), ("D", "docs", "web1")]
        lines += [("E", f"engine{i}", "docs") for i in range(engines)]
        conf = ""
        for kind, name, parent in lines:
            ports = free_port(), free_port(socket.SOCK_DGRAM)
            self.ports[kind, name] = ports
            conf += f"{name} {kind} 127.0.0.1 {ports[0]} {ports[1]} {parent}\n"
        (self.folder / "korvo.conf").write_text(conf)
        names = [f"engine{i}" for i in range(engines)]
        databases = "" if engines == 0 else "docs docs - -\n"
        for number, name in enumerate(names or ["docs"]):
            path = self.folder / f"{name}.db"
            part = self.folder / f"{name}.{suffix}"
            part.write_text("".join(documents[number :: len(names) or 1]), encoding="utf-8")
            subprocess.run(
                [self.bin / "korvo-index", "--schema", ROOT / "demo/packages.schema", path, part],
                check=True,
                stdout=subprocess.DEVNULL,
            )
            databases += f"{name} docs {path} {path}\n"
        (self.folder / "korvo.db").write_text(databases)

    def _start(self, engines):
        for key in [("C", "web1"), ("S", "docs"), ("D", "docs")] + [
            ("E", f"engine{i}") for i in range(engines)
        ]:
            self.start(*key)

    def start(self, kind, name):
        with open(self.folder / f"{kind}-{name}.log", "ab") as log:
            self.processes[kind, name] = subprocess.Popen(
                [self.bin / PROGRAMS[kind], name, self.folder],
                stdout=subprocess.DEVNULL,
                stderr=log,
                start_new_session=True,
            )
        eventually(lambda: self.pings(kind, name), f"{PROGRAMS[kind]} {name} answers")

    def pings(self, kind, name):
        ping = [self.bin / "korvoctl", "ping", "--port", str(self.ports[kind, name][1])]
        return subprocess.run(ping, capture_output=True, check=False).returncode == 0

    def kill(self, kind, name):
        """The whole group, and it is gone."""
        process = self.processes.pop((kind, name))
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()

    def announce(self, kind, name, port):
        """Lets the daemon find that manager at another port."""
        text = (
            f"\t@COMMAND=STARTUPANNOUNCEMENT\tID={name}\tTYPE={kind}\tIP=127.0.0.1"
            f"\tCLIENTPORT={port}\tADMINPORT={self.ports[kind, name][1]}\n"
        )
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as admin:
            admin.bind(("127.0.0.1", free_port(socket.SOCK_DGRAM)))
            admin.sendto(text.encode(), ("127.0.0.1", self.ports["C", "web1"][1]))
        assert self.pings("C", "web1")

    def _start_web(self, title, sorts):
        pages = self.folder / "web"
        shutil.copytree(ROOT / "share/korvo/web", pages)
        for macro in ("results", "document"):
            subprocess.run([self.bin / "korvo-macro", "asm", pages / f"{macro}.ms"], check=True)
        port = free_port()
        self.address = f"http://127.0.0.1:{port}"
        conf = (
            f"listen-port {port}\n"
            f"daemon-port {self.ports['C', 'web1'][0]}\n"
            f"daemon-admin-port {self.ports['C', 'web1'][1]}\n"
            f"macro-directory {pages}\n"
            f"static-directory {pages}/static\n"
            f"front-page {pages}/front.html\n"
            f"texts {pages}/texts.en\n"
            f"group docs results document {title}\n"
        )
        conf += "".join(f"sort docs {field} {name}\n" for field, name in sorts)
        (self.folder / "korvo-web.conf").write_text(conf)
        with open(self.folder / "web.log", "ab") as log:
            self.web = subprocess.Popen(
                [self.bin / "korvo-web", self.folder / "korvo-web.conf"], stderr=log
            )
        eventually(self._serves, "korvo-web answers")

    def _serves(self):
        check = ["curl", "-sf", "-o", "/dev/null", f"{self.address}/healthz"]
        return subprocess.run(check, check=False).returncode == 0

    def stop(self):
        if self.web:
            self.web.terminate()
            self.web.wait()
        for key in list(self.processes):
            self.kill(*key)
        shutil.rmtree(self.folder)
