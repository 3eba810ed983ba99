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
LIMITS = {b"FIRSTHIT": (0, 10000), b"STATUS": (0, 1), b"BESTFIT": (0, 100), b"DEADLINE": (1, 600000)}
log = logging.getLogger("manager")


# ---- messages ----------------------------------------------------------------------------------

def parse(line):
    """The fields of the header, and the predicate with the tab in front of it."""
    fields, at = {}, 0
    while line[at:at + 1] in (b"\t", b"\r") and line[at + 1:at + 2] == b"@":
        token = re.compile(rb"[^\t\r\n]*").match(line, at + 1).group()
        if token.startswith(b"@OPER="):
            break
        at += 1 + len(token)
        name, equals, value = token[1:].partition(b"=")
        if not equals or len(token) > 1024 or len(name) > 128 or at == len(line):
            return fields, b""          # the header is over; the fields before it count
        if name in NUMBERS:
            if value.startswith(b"-"):
                return fields, b""
            digits = re.match(rb"\d*", value).group()
            fields[name] = min(int(digits or 0), MOST)
        else:
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


def with_marks(script, asked):
    """SCRIPT for the Document Manager, with the words to mark as far as they fit."""
    if {b"html", b"snippet"} & set(script.split()):
        for word in asked:
            mark = b" mark:" + word.encode()
            if len(script) + len(mark) > 127:
                break
            script += mark
    return script


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
                    self.index.setdefault((field.lower(), word), set()).add(number)
                    self.index.setdefault((None, word), set()).add(number)

    def parse_text(self, predicate):
        """The tokens, each the terms of its words, and how they are joined."""
        tokens, join = [], set.intersection
        for token in re.split(rb"[\t\r\n]", predicate):
            if token == b"@OPER=AND":
                join = set.intersection
            elif token == b"@OPER=OR":
                join = set.union
            elif token.startswith(b"@"):
                raise ValueError("Unable to parse query: no such operator")
            else:
                field, equals, text = token.partition(b"=")
                if not equals:
                    field, text = None, token
                terms = [(field and field.lower(), word) for word in words(text)]
                if terms:
                    tokens.append(terms)
        if not tokens:
            raise ValueError("Unable to parse query: no words")
        return tokens, join

    def find(self, tokens, join):
        """The numbers of the documents found."""
        named, wanted = {}, []          # tokens with the same name ask for any of them
        for terms in tokens:
            sets = [self.index.get(term, set()) for term in terms]
            if terms[0][0] is None:
                wanted += sets
            else:
                named.setdefault(terms[0][0], set()).update(set.intersection(*sets))
        return join(*wanted, *named.values())

    def search(self, predicate):
        """(number, weight) of the documents found, best first; the words; and the words corrected if these find more."""
        tokens, join = self.parse_text(predicate)
        terms = [term for token in tokens for term in token]
        found = [(number, sum(number in self.index.get(term, ()) for term in terms))
                 for number in self.find(tokens, join)]
        found.sort(key=lambda hit: (-hit[1], hit[0]))
        better = [[self.correct(term) for term in token] for token in tokens]
        spelling = None
        if len(self.find(better, join)) > len(found):
            spelling = " ".join(word for token in better for field, word in token)
        return found, [word for field, word in terms], spelling

    def correct(self, term):
        """The term, or the one of the same field that is most like it."""
        if term in self.index:
            return term
        known = [word for field, word in self.index if field == term[0]]
        near = difflib.get_close_matches(term[1], known, 1, 0.8)
        return (term[0], near[0]) if near else term

    def check(self, fields):
        for name, (least, most) in LIMITS.items():
            if not least <= fields.get(name, least) <= most:
                raise ValueError("Unable to parse query: %s is %d to %d" % (name.decode(), least, most))
        if fields.get(b"FIRSTHIT", 0) + min(fields.get(b"MAXHITS") or 100, 10000) > 10000:
            raise ValueError("Unable to parse query: FIRSTHIT and MAXHITS reach beyond hit 10000")

    def sort(self, found, by):
        """Equal values stay in the order of relevance."""
        name = by.lstrip(b"-").lower()
        if not any(field == name for field, word in self.index):
            raise ValueError("Unable to sort: no such field")

        def value(hit):
            return {field.lower(): text for field, text in self.documents[hit[0] - 1]}.get(name, b"")
        found.sort(key=value, reverse=by.startswith(b"-"))

    def answer(self, fields, predicate):
        began = time.monotonic()
        try:
            self.check(fields)
            found, asked, spelling = self.search(predicate)
            if fields.get(b"BESTFIT"):
                found = [hit for hit in found if hit[1] * 100 >= found[0][1] * fields[b"BESTFIT"]]
            if fields.get(b"SORT"):
                self.sort(found, fields[b"SORT"])
        except ValueError as why:
            yield error(str(why).encode())
            return
        first = fields.get(b"FIRSTHIT", 0)
        shown = found[first:first + min(fields.get(b"MAXHITS") or 100, 10000)]
        if fields.get(b"STATUS") == 1:
            hint = b" spelling=" + encode(spelling) if spelling else b""
            yield record(b"RAW", b"<!--korvo matches=%d first=%d shown=%d shards=1/1 ms=%d%s-->" % (
                len(found), first + 1, len(shown), (time.monotonic() - began) * 1000, hint))
        more = {"SCRIPT": with_marks(fields[b"SCRIPT"], asked)} if fields.get(b"SCRIPT") else {}
        for number, weight in shown:
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
