#!/usr/bin/env python3
"""A Search Manager or a Document Manager that holds its documents in memory.

    manager.py searchmgr|docmgr CLIENTPORT ADMINPORT DOCUMENTS [--id ID] [--announce HOST:PORT]

DOCUMENTS is a control file: a line `Name: value` is a field, an empty line ends a document.
"""
import argparse
import difflib
import logging
import re
import socket
import socketserver
import threading
import time

HOST = "127.0.0.1"
RECORD = 40960          # a record with its newline
LINE = 4096             # a client's line with its newline
MOST = 2147483647
NUMBERS = (b"BESTFIT", b"DOCNUM", b"MAXHITS", b"SEQNUM", b"EXPDATE", b"FIRSTHIT", b"STATUS", b"DEADLINE")
log = logging.getLogger("manager")


# ---- messages ----------------------------------------------------------------------------------

def parse(line):
    """The fields of the header, and the predicate with the tab in front of it."""
    fields, reading, at = {}, True, 0
    while line[at:at + 1] in (b"\t", b"\r") and line[at + 1:at + 2] == b"@":
        token = re.compile(rb"[^\t\r\n]*").match(line, at + 1).group()
        if token.startswith(b"@OPER="):
            break
        at += 1 + len(token)
        name, equals, value = token[1:].partition(b"=")
        if not equals or len(token) > 1024 or len(name) > 128 or at == len(line):
            reading = False             # the header is over; the fields before it count
        if reading and name in NUMBERS:
            if value.startswith(b"-"):
                reading = False
            else:
                digits = re.match(rb"\d*", value).group()
                fields[name] = min(int(digits or 0), MOST)
        elif reading:
            fields[name] = value[:127]
    return fields, line[at:]


def record(command, text=b"", **fields):
    head = b"\t@COMMAND=" + command
    for name, value in fields.items():
        head += b"\t@%s=%s" % (name.encode(), value)
    return head + (b"\t" + text if text else b"") + b"\n"


def error(reason):
    return record(b"ERROR", reason)


# ---- documents ---------------------------------------------------------------------------------

def load(path):
    """A list of documents; each is a list of (name, value)."""
    documents, fields = [], []
    with open(path, "rb") as file:
        for line in file.read().split(b"\n") + [b""]:
            name, colon, value = line.partition(b":")
            if colon:
                fields.append((name.strip(), re.sub(rb"[\t\r\0]", b" ", value).strip()))
            elif not line.strip() and fields:
                documents.append(fields)
                fields = []
    return documents


def encode(text):
    return b"".join(b"%c" % c if re.match(rb"[A-Za-z0-9._]", b"%c" % c) else b"%%%02X" % c
                    for c in text.encode())


def words(text):
    return re.findall(r"\w+", text.decode("utf-8", "replace").lower())


# ---- the two managers --------------------------------------------------------------------------

class SearchManager:
    command, type = b"QUERY", "S"

    def __init__(self, name, documents):
        self.name, self.documents = name, documents
        self.index = {}             # (field, word) and (None, word): the numbers of documents
        for number, fields in enumerate(documents, 1):
            for field, value in fields:
                for word in words(value):
                    self.index.setdefault((field, word), set()).add(number)
                    self.index.setdefault((None, word), set()).add(number)

    def search(self, predicate):
        """The numbers of the documents found, the words, and the words corrected if these find more."""
        terms, join = [], set.intersection
        for token in re.split(rb"[\t\r\n]", predicate):
            if token == b"@OPER=AND":
                join = set.intersection
            elif token == b"@OPER=OR":
                join = set.union
            elif token.startswith(b"@"):
                raise ValueError("Unknown operator")
            else:
                field, equals, text = token.partition(b"=")
                if not equals:
                    field, text = None, token
                terms += [(field, word) for word in words(text)]
        if not terms:
            raise ValueError("Unable to parse query: no words")
        found = join(*[self.index.get(term, set()) for term in terms])
        better = [self.correct(term) for term in terms]
        spelling = None
        if len(join(*[self.index.get(term, set()) for term in better])) > len(found):
            spelling = " ".join(word for field, word in better)
        return sorted(found), [word for field, word in terms], spelling

    def correct(self, term):
        """The term, or the one of the same field that is most like it."""
        if term in self.index:
            return term
        known = [word for field, word in self.index if field == term[0]]
        near = difflib.get_close_matches(term[1], known, 1, 0.8)
        return (term[0], near[0]) if near else term

    def check(self, fields):
        if fields.get(b"BESTFIT", 0) > 100:
            raise ValueError("BESTFIT is above 100")
        if fields.get(b"DEADLINE", 1) == 0:
            raise ValueError("DEADLINE is no number of milliseconds")
        if fields.get(b"SORT") and not any(field == fields[b"SORT"] for field, word in self.index):
            raise ValueError("Unable to sort: no such field")

    def answer(self, fields, predicate):
        began = time.monotonic()
        try:
            self.check(fields)
            found, asked, spelling = self.search(predicate)
        except ValueError as why:
            yield error(str(why).encode())
            return
        if fields.get(b"SORT"):
            found.sort(key=lambda number: dict(self.documents[number - 1]).get(fields[b"SORT"], b""))
        first = fields.get(b"FIRSTHIT", 0)
        shown = found[first:first + min(fields.get(b"MAXHITS") or 100, 10000)]
        if fields.get(b"STATUS") == 1:
            hint = b" spelling=" + encode(spelling) if spelling else b""
            yield record(b"RAW", b"<!--korvo matches=%d first=%d shown=%d shards=1/1 ms=%d%s-->" % (
                len(found), first + 1, len(shown), (time.monotonic() - began) * 1000, hint))
        more = {}
        if fields.get(b"SCRIPT"):
            more["SCRIPT"] = (fields[b"SCRIPT"] + b" mark:" + ",".join(asked).encode())[:127]
        for number in shown:
            yield record(b"HIT", SEARCHGROUP=self.name, RECTYPE=self.name, DOCNUM=b"%d" % number, **more)
        yield record(b"SEARCHCOMPLETE")


class DocumentManager:
    command, type = b"GETDOC", "D"

    def __init__(self, name, documents):
        self.name, self.documents = name, documents

    def answer(self, fields, predicate):
        number = fields.get(b"DOCNUM", 0)
        if not 1 <= number <= len(self.documents):
            yield error(b"No such document")
            return
        text = b"".join(b"%s=%s\t" % field for field in self.documents[number - 1])
        whole = record(b"HIT", text)
        yield whole if len(whole) <= RECORD else error(b"Document too long")


# ---- the client port: one command a connection -------------------------------------------------

class Connection(socketserver.StreamRequestHandler):
    timeout = 60

    def handle(self):
        manager = self.server.manager
        try:
            line = self.rfile.readline(LINE + 1)
            if not line.endswith(b"\n"):
                return              # too long, or closed before its newline
            log.info("%r", line)
            fields, predicate = parse(line)
            if fields.get(b"COMMAND") != manager.command:
                self.wfile.write(error(b"Unknown command"))
                return
            self.wfile.write(b"".join(manager.answer(fields, predicate)))
        except OSError as why:      # the daemon leaves when it has enough
            log.info("%s", why)


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True
    request_queue_size = 128


# ---- the admin port ----------------------------------------------------------------------------

LEVELS = {b"OFF": logging.CRITICAL + 1, b"INFO": logging.INFO, b"STATUS": logging.INFO,
          b"WARNING": logging.WARNING, b"FATAL": logging.CRITICAL}


def administer(admin):
    """Answers datagrams until a SHUTDOWN."""
    while True:
        datagram, sender = admin.recvfrom(4096)
        fields, predicate = parse(datagram)
        command = fields.get(b"COMMAND")
        if command == b"PING":
            admin.sendto(record(b"PONG", SEQNUM=b"%d" % fields.get(b"SEQNUM", 0)), sender)
        elif command == b"SETDEBUGLEVEL":
            level = re.match(rb"\tDEBUGLEVEL=([A-Z]+)[\t\r\n]", predicate)
            if level and level[1] in LEVELS:
                log.setLevel(LEVELS[level[1]])
        elif command == b"SHUTDOWN":
            return


def announce(admin, parent, manager, clientport, adminport):
    names = []
    for document in manager.documents:
        names += [name.decode() for name, value in document if name.decode() not in names]
    text = "\t@COMMAND=STARTUPANNOUNCEMENT\tID=%s\tTYPE=%s\tIP=%s\tCLIENTPORT=%d\tADMINPORT=%d" % (
        manager.name.decode(), manager.type, HOST, clientport, adminport)
    fields = "\tFIELDLIST=" + ",".join(names)
    if len(text) + len(fields) < 1024:
        text += fields
    host, port = parent.rsplit(":", 1)
    admin.sendto((text + "\n").encode(), (host, int(port)))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("kind", choices=["searchmgr", "docmgr"])
    parser.add_argument("clientport", type=int)
    parser.add_argument("adminport", type=int)
    parser.add_argument("documents")
    parser.add_argument("--id", default="packages")
    parser.add_argument("--announce", metavar="HOST:PORT", help="the admin port of a daemon")
    args = parser.parse_args()
    logging.basicConfig(level=logging.WARNING)

    kind = SearchManager if args.kind == "searchmgr" else DocumentManager
    manager = kind(args.id.encode(), load(args.documents))
    admin = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    admin.bind((HOST, args.adminport))
    with Server((HOST, args.clientport), Connection) as server:
        server.manager = manager
        threading.Thread(target=server.serve_forever, daemon=True).start()
        if args.announce:
            announce(admin, args.announce, manager, args.clientport, args.adminport)
        administer(admin)
        server.shutdown()


if __name__ == "__main__":
    main()
