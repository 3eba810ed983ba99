#!/usr/bin/python3
"""fronts_test.py BUILD   serves the search page through nginx, Apache and lighttpd, with TLS, as the examples say

BUILD is build/release.  The web servers are unpacked from Debian's packages, not installed: none is started on this machine."""
import pathlib
import re
import socket
import ssl
import subprocess
import sys
import tempfile
import unittest
from http.client import HTTPSConnection

from library import packages
from service import ROOT, Relay, Service, eventually, free_port
from unpack import environment, unpacked

BUILD = None
EXAMPLES = ROOT / "docs/examples/web"


SERVERS = ("nginx", "apache2-bin", "lighttpd", "lighttpd-mod-openssl")


class Fronts(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.software = unpacked(BUILD, "fronts", SERVERS)
        cls.service = Service(BUILD, packages(40), "Debian packages")
        cls.addClassCleanup(cls.service.stop)
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=search.example",
                        "-keyout", cls.folder / "key.pem", "-out", cls.folder / "cert.pem"], check=True, capture_output=True)

    def example(self, name, port):
        """The file that is shipped, with the ports and the certificate of this test."""
        text = (EXAMPLES / name).read_text()
        text = text.replace("/etc/ssl/certs/search.example.pem", f"{self.folder}/cert.pem")
        text = text.replace("/etc/ssl/private/search.example.key", f"{self.folder}/key.pem")
        text = re.sub(r"\b443\b", str(port), text)
        return re.sub(r"\b8080\b", self.service.address.rsplit(":", 1)[1], text)

    def serve(self, name, conf, command):
        (self.folder / f"{name}.conf").write_text(conf)
        with open(self.folder / f"{name}.log", "wb") as log:
            process = subprocess.Popen(command, stdout=log, stderr=log, env=environment(self.software))
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        return process

    def pages_come_as_they_are_made(self, name, process, port):
        context = ssl.create_default_context(cafile=self.folder / "cert.pem")
        context.check_hostname = False

        def is_open():
            self.assertIsNone(process.poll(), (self.folder / f"{name}.log").read_text())
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", port)) == 0

        eventually(is_open, f"{name} listens")
        relay = Relay(self.service.ports["D", "docs"][0])
        self.service.announce("D", "docs", relay.port)
        relay.let_pass(2)
        connection = HTTPSConnection("127.0.0.1", port, timeout=30, context=context)
        self.addCleanup(connection.close)
        connection.request("GET", "/search?q=tool", headers={"Host": "search.example"})
        answer = connection.getresponse()
        self.assertEqual(answer.status, 200)
        self.assertEqual(answer.getheader("X-Content-Type-Options"), "nosniff")
        page = b""
        while page.count(b"<li value=") < 2:  # the third document is held back
            part = answer.read1(65536)
            self.assertTrue(part, page)
            page += part
        self.assertLessEqual(relay.asked, 3)  # which waits
        relay.let_pass(100)
        page += answer.read()
        self.assertEqual(page.count(b"<li value="), 10)
        self.assertTrue(page.endswith(b"</html>\n"))
        for path in ("/metrics", "/healthz"):
            connection.request("GET", path, headers={"Host": "search.example"})
            closed = connection.getresponse()
            closed.read()
            self.assertEqual(closed.status, 403, path)
        connection.request("GET", "/static/korvo.css")
        self.assertEqual(connection.getresponse().read(), (ROOT / "share/korvo/web/static/korvo.css").read_bytes())

    def test_nginx(self):
        port = free_port()
        conf = (f"daemon off; pid {self.folder}/nginx.pid; error_log {self.folder}/nginx.err; events {{}}\n"
                f"http {{ access_log off; client_body_temp_path {self.folder}/b; proxy_temp_path {self.folder}/p;\n"
                f"fastcgi_temp_path {self.folder}/f; uwsgi_temp_path {self.folder}/u; scgi_temp_path {self.folder}/s;\n"
                f"{self.example('nginx.conf', port)} }}\n")
        process = self.serve("nginx", conf, [self.software / "usr/sbin/nginx", "-c", self.folder / "nginx.conf",
                                             "-e", self.folder / "nginx.err"])
        self.pages_come_as_they_are_made("nginx", process, port)

    def test_apache(self):
        port = free_port()
        modules = self.software / "usr/lib/apache2/modules"
        conf = "".join(f'LoadModule {name}_module "{modules}/mod_{name}.so"\n'
                       for name in ("mpm_event", "authz_core", "socache_shmcb", "ssl", "proxy", "proxy_http"))
        conf += (f"ServerName search.example\nServerRoot {self.folder}\nPidFile {self.folder}/apache.pid\n"
                 f"DefaultRuntimeDir {self.folder}\nMutex file:{self.folder} default\n"
                 f"ErrorLog {self.folder}/apache.err\n{self.example('apache.conf', port)}")
        process = self.serve("apache", conf, [self.software / "usr/sbin/apache2", "-DFOREGROUND", "-f", self.folder / "apache.conf"])
        self.pages_come_as_they_are_made("apache", process, port)

    def test_lighttpd(self):
        port = free_port()
        conf = (f'server.document-root = "{self.folder}"\nserver.port = {free_port()}\nserver.bind = "127.0.0.1"\n'
                f"{self.example('lighttpd.conf', port)}")
        process = self.serve("lighttpd", conf, [self.software / "usr/sbin/lighttpd", "-D", "-f", self.folder / "lighttpd.conf",
                                                "-m", self.software / "usr/lib/lighttpd"])
        self.pages_come_as_they_are_made("lighttpd", process, port)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    BUILD = sys.argv.pop(1)
    unittest.main(verbosity=2)
