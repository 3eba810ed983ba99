#!/usr/bin/python3
"""operation_test.py BUILD [CASE...]   runs the examples of docs/examples/operation with the real programs

BUILD is build/release."""
import pathlib
import re
import resource
import shutil
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "browser"))
from library import packages, record  # noqa: E402
from service import ROOT, Service, eventually, free_port  # noqa: E402
from unpack import environment, unpacked  # noqa: E402

BUILD = None
EXAMPLES = ROOT / "docs/examples/operation"
QUERY = "\t@COMMAND=QUERY\t@SEARCHGROUP=docs\t@MACROFILE={}/web/results\t@MAXHITS=1\tcalendar\n"


class Case(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def serve(self):
        service = Service(BUILD, packages(40), "Debian packages")
        self.addCleanup(service.stop)
        return service


class Balancer(Case):
    """HAProxy before two daemons."""

    def setUp(self):
        super().setUp()
        self.software = unpacked(BUILD, "balancer", ["haproxy"])
        self.services = [self.serve(), self.serve()]
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=korvo",
             "-keyout", self.folder / "key.pem", "-out", self.folder / "cert.pem"], check=True, capture_output=True)
        pem = (self.folder / "key.pem").read_bytes() + (self.folder / "cert.pem").read_bytes()
        (self.folder / "korvo.pem").write_bytes(pem)
        self.port = free_port()
        text = (EXAMPLES / "haproxy.cfg").read_text()
        text = text.replace("/etc/ssl/private/korvo.pem", f"{self.folder}/korvo.pem").replace(":8443", f":{self.port}")
        for number, service in enumerate(self.services, 1):
            text = text.replace(f"192.0.2.{number}:8001", f"127.0.0.1:{service.ports['C', 'web1'][0]}")
        # Each connection takes two descriptors, and HAProxy does not start without all of them.
        most = (resource.getrlimit(resource.RLIMIT_NOFILE)[1] - 100) // 2
        text = text.replace("maxconn 2000", f"maxconn {min(most, 2000)}")
        (self.folder / "haproxy.cfg").write_text(text)
        command = [self.software / "usr/sbin/haproxy", "-db", "-f", self.folder / "haproxy.cfg"]
        subprocess.run([*command, "-c"], check=True, capture_output=True, env=environment(self.software))
        process = subprocess.Popen(command, env=environment(self.software), stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        # Both have the macros of the first, as one balancer serves one set of pages.
        eventually(lambda: self.ask(0) != b"", "the balancer answers")

    def ask(self, _):
        context = ssl.create_default_context(cafile=self.folder / "cert.pem")
        context.check_hostname = False
        try:
            with socket.create_connection(("127.0.0.1", self.port), timeout=60) as plain, \
                 context.wrap_socket(plain) as client:
                client.sendall(QUERY.format(self.services[0].folder).encode())
                return client.makefile("rb").read()
        except OSError:
            return b""

    def together(self, count):
        answers = [b""] * count

        def one(number):
            answers[number] = self.ask(number)

        threads = [threading.Thread(target=one, args=(number,)) for number in range(count)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return answers

    def test_many_wait_in_its_queue_and_are_answered(self):
        whole = self.ask(0)
        self.assertIn(b"<li value=", whole)
        self.assertEqual(self.together(100), [whole] * 100)

    def test_the_other_daemon_answers_for_one_that_is_gone(self):
        whole = self.ask(0)
        self.services[1].kill("C", "web1")
        self.assertEqual(self.together(20), [whole] * 20)


class Rotation(Case):
    """Logs that somebody else turns over."""

    def rotate(self, text):
        software = unpacked(BUILD, "rotation", ["logrotate"])
        (self.folder / "logrotate.conf").write_text(text)
        (self.folder / "logrotate.conf").chmod(0o644)
        subprocess.run([software / "usr/sbin/logrotate", "-f", "-s", self.folder / "state", self.folder / "logrotate.conf"],
                       check=True, env=environment(software))

    def test_the_programs_go_on_in_the_emptied_file(self):
        service = self.serve()
        log = service.folder / "C-web1.log"
        before = log.read_bytes()
        self.assertIn(b"[Init: DisplayCfg] ID         = web1", before)
        text = (EXAMPLES / "logrotate.conf").read_text()
        self.rotate(text[: text.index("# korvo-web")].replace("/var/log/korvo/*.log", str(log)))
        self.assertEqual((service.folder / "C-web1.log.1").read_bytes(), before)
        self.assertEqual(log.read_bytes(), b"")
        with socket.create_connection(("127.0.0.1", service.ports["C", "web1"][0])) as client:
            client.sendall(b"\t@COMMAND=NOTHING\n")
            client.makefile("rb").read()
        line = eventually(log.read_bytes, "a line behind the rotation")
        self.assertNotIn(b"\0", line)  # it appends, so the file begins anew

    def test_the_page_server_opens_its_log_anew(self):
        service = self.serve()
        conf = service.folder / "korvo-web.conf"
        log = self.folder / "web.log"
        port = free_port()
        other = self.folder / "korvo-web.conf"
        other.write_text(re.sub(r"listen-port \d+", f"listen-port {port}", conf.read_text()) + f"log {log}\n")
        web = subprocess.Popen([service.bin / "korvo-web", other])
        self.addCleanup(web.wait)
        self.addCleanup(web.terminate)

        def asked():
            get = ["curl", "-s", "-o", "/dev/null", f"http://127.0.0.1:{port}/"]
            return subprocess.run(get, check=False).returncode == 0

        eventually(asked, "the page is there")
        text = (EXAMPLES / "logrotate.conf").read_text()
        text = text[text.index("# korvo-web") :].replace("/var/log/korvo/web/*.log", str(log))
        self.rotate(text.replace("pkill -HUP -x korvo-web", f"kill -HUP {web.pid}"))
        eventually(lambda: b'"route":"front"' in (self.folder / "web.log.1").read_bytes(), "the line of the page")
        eventually(lambda: asked() and log.exists() and log.read_bytes(), "a line in a new file")


class Backup(Case):
    """A copy of a database that is written to."""

    def index(self, name, documents, *more):
        path, text = self.folder / name, self.folder / f"{name}.control"
        text.write_text("".join(documents))
        command = [pathlib.Path(BUILD) / "bin/korvo-index", *more, path, text]
        return subprocess.Popen(command, stdout=subprocess.DEVNULL)

    def copy(self):
        return subprocess.run([EXAMPLES / "backup.sh", self.folder / "db", self.folder / "copy"], check=False).returncode

    def count(self, name):
        delve = subprocess.run(["xapian-delve", self.folder / name], capture_output=True, text=True, check=True)
        return int(re.search(r"number of documents = (\d+)", delve.stdout).group(1))

    def test_a_copy_is_whole_while_the_database_grows(self):
        self.assertEqual(self.index("db", packages(100)).wait(), 0)
        writer = self.index("db", [record((("Package", f"new{number}"),)) for number in range(20000)], "--commit", "500")
        counts = []
        while writer.poll() is None:
            if self.copy() == 0:  # else it had no time for one
                counts.append(self.count("copy"))
        self.assertEqual(self.copy(), 0)
        self.assertEqual(self.count("copy"), 20100)
        self.assertTrue(all((count - 100) % 500 == 0 for count in counts), counts)  # as of a commit
        self.assertEqual(len(list(self.folder.glob("copy.*"))), 1)  # the one that the link names

    def test_documents_keep_their_numbers_and_are_served_from_the_place_of_the_lost(self):
        service = self.serve()
        database = service.folder / "docs.db"
        subprocess.run([service.bin / "korvo-index", "--delete", "--id", "Package", database,
                        "archive-server0"], check=True, stdout=subprocess.DEVNULL)
        shutil.copytree(database, self.folder / "db")
        self.assertEqual(self.copy(), 0)

        def document(number):
            with socket.create_connection(("127.0.0.1", service.ports["D", "docs"][0])) as client:
                client.sendall(f"\t@COMMAND=GETDOC\t@RECTYPE=docs\t@DOCNUM={number}\n".encode())
                return client.makefile("rb").read()

        whole = document(5)
        self.assertIn(b"Package=", whole)
        shutil.rmtree(database)
        shutil.copytree((self.folder / "copy").resolve(), f"{database}.new")
        pathlib.Path(f"{database}.new").rename(database)
        eventually(lambda: document(5) == whole, "the document is there again")

    def test_what_is_no_database_is_not_copied(self):
        (self.folder / "db").mkdir()
        began = time.monotonic()
        self.assertEqual(self.copy(), 75)
        self.assertLess(time.monotonic() - began, 30)
        self.assertFalse((self.folder / "copy").exists())


class Firewall(unittest.TestCase):
    """The rules before the ports, in namespaces: needs root and nftables."""

    def test_each_port_is_for_those_who_need_it(self):
        fences = subprocess.run([ROOT / "tests/security/fences.sh", BUILD, "firewall"], check=False)
        if fences.returncode == 77:
            self.skipTest("namespaces cannot be had")
        self.assertEqual(fences.returncode, 0)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    BUILD = sys.argv.pop(1)
    unittest.main(verbosity=2)
