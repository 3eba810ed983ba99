#!/usr/bin/env python3
"""web_load.py ROW ...: browsers before korvo-web, for bench/web.sh; each prints the lines of a table.

  added ROUNDS DAEMON WEB MACRO   time to the first byte, one client: the daemon asked directly, and korvo-web
  rate ROUNDS SECONDS SIDE...     pages a second with 1, 16 and 200 clients
  burst ROUNDS DAEMON MACRO SIDE...   200 at once, ROUNDS times; the daemon asked directly too
  memory PID PORT                 what the process holds with 1000 idle browsers, and with 200 that are answered

A SIDE is NAME,PORT,TARGET; the words of a search go behind TARGET.  Sides take turns.  Each request has a connection of
its own.  The first answer to a search is what every later one has to be; other ones are counted as wrong.
"""
import math
import selectors
import socket
import statistics
import sys
import time
from urllib.parse import quote_plus

PATIENCE = 30  # seconds for an answer
QUERIES = [line.strip() for line in open("bench/queries.txt", encoding="utf-8")]


def joined(chunks):
    """The chunks of a body; nothing when the last one is not there."""
    body = b""
    while chunks:
        size, _, rest = chunks.partition(b"\r\n")
        if int(size, 16) == 0:
            return body
        body += rest[: int(size, 16)]
        chunks = rest[int(size, 16) + 2 :]
    return b""


class Side:
    def __init__(self, text):
        self.name, port, self.target = text.split(",", 2)
        self.address = ("127.0.0.1", int(port))
        self.first = {}
        self.next = self.wrong = 0

    def request(self):
        words = QUERIES[self.next % len(QUERIES)]
        self.next += 1
        line = f"GET {self.target}{quote_plus(words)} HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"
        return words, line.encode()

    def check(self, words, answer):
        head, _, body = answer.partition(b"\r\n\r\n")
        if b"\r\nTransfer-Encoding: chunked" in head:
            body = joined(body)
        if not head.startswith(b"HTTP/1.1 200 ") or not body or self.first.setdefault(words, body) != body:
            self.wrong += 1


class Daemon(Side):
    """The daemon asked as korvo-web asks it."""

    def __init__(self, port, macro):
        super().__init__(f"the daemon,{port},{macro}")

    def line(self, words):
        return (f"\t@COMMAND=QUERY\t@SEARCHGROUP=packages\t@MACROFILE={self.target}\t@SCRIPT=html place all snippet\t@MAXHITS=10"
                f"\t@FIRSTHIT=0\t@DEADLINE=8000\t@STATUS=1\t{words}\n").encode()

    def request(self):
        words, _ = super().request()
        return words, self.line(words)

    def check(self, words, answer):
        if not answer or self.first.setdefault(words, answer) != answer:
            self.wrong += 1


class Visit:
    def __init__(self, side):
        self.side, self.begun = side, time.perf_counter()
        self.words, self.unsent = side.request()
        self.answer = []
        self.socket = socket.socket()
        self.socket.setblocking(False)
        self.socket.connect_ex(side.address)

    def step(self, events):
        """True: it is over."""
        try:
            if events & selectors.EVENT_WRITE:
                self.unsent = self.unsent[self.socket.send(self.unsent) :]
                return False
            part = self.socket.recv(262144)
        except OSError:
            part = b""
        if part:
            self.answer.append(part)
        return not part

    def end(self):
        self.socket.close()
        self.side.check(self.words, b"".join(self.answer))


def drive(side, clients, seconds):
    """So many clients for so long, or one request each; the seconds that each answer took, and those of all.

    Who has one request and no answer when nobody else gets one any more took for ever.
    """
    took, selector = [], selectors.DefaultSelector()
    begun = time.perf_counter()
    last = begun + seconds

    def begin():
        visit = Visit(side)
        selector.register(visit.socket, selectors.EVENT_WRITE, visit)

    for _ in range(clients):
        begin()
    while selector.get_map():
        ready = selector.select(PATIENCE)
        if not ready and seconds > 0:
            sys.exit(f"{side.name}: no answer within {PATIENCE} seconds")
        if not ready:
            took += [math.inf] * len(selector.get_map())
            break
        for key, events in ready:
            visit = key.data
            if not visit.step(events):
                if events & selectors.EVENT_WRITE and not visit.unsent:
                    selector.modify(visit.socket, selectors.EVENT_READ, visit)
                continue
            selector.unregister(visit.socket)
            visit.end()
            took.append(time.perf_counter() - visit.begun)
            if time.perf_counter() < last:
                begin()
    return sorted(took), time.perf_counter() - begun


def percentile(ordered, percent):
    return ordered[min(len(ordered) - 1, len(ordered) * percent // 100)]


def first_byte(address, line):
    begun = time.perf_counter()
    with socket.create_connection(address) as connection:
        connection.sendall(line)
        part = connection.recv(65536)
        took = time.perf_counter() - begun
        if not part:
            sys.exit("an answer is empty")
        while connection.recv(262144):
            pass
    return took


def quartiles(values):
    low, middle, high = statistics.quantiles(values, n=4)
    return f"{middle:.3f} ({low:.3f} to {high:.3f})"


def added(rounds, daemon, web, macro):
    differences, directly, through = [], [], []
    side = Daemon(daemon, macro)
    for _ in range(int(rounds)):
        for words in QUERIES[:110]:
            page = f"GET /search?q={quote_plus(words)} HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"
            one = first_byte(side.address, side.line(words)) * 1000
            other = first_byte(("127.0.0.1", int(web)), page.encode()) * 1000
            directly.append(one)
            through.append(other)
            differences.append(other - one)
    print("| first byte, ms | median (quartiles) |\n|---|---|")
    for name, values in (("daemon", directly), ("korvo-web", through), ("added", differences)):
        print(f"| {name} | {quartiles(values)} |")


def rate(rounds, seconds, *texts):
    sides = [Side(text) for text in texts]
    print("| clients | side | pages a second, median | p50 ms | p99 ms | wrong |\n|---:|---|---:|---:|---:|---:|")
    for clients in (1, 16, 200):
        rates, took = {side: [] for side in sides}, {side: [] for side in sides}
        for _ in range(int(rounds)):
            for side in sides:
                answers, whole = drive(side, clients, float(seconds))
                rates[side].append(len(answers) / whole)
                took[side] += answers
        for side in sides:
            took[side].sort()
            print(f"| {clients} | {side.name} | {statistics.median(rates[side]):.0f} | {percentile(took[side], 50) * 1000:.1f} "
                  f"| {percentile(took[side], 99) * 1000:.1f} | {side.wrong} |")


def burst(rounds, daemon, macro, *texts):
    print("| side | p50 ms | p99 ms | longest ms | wrong |\n|---|---:|---:|---:|---:|")
    sides = [Daemon(daemon, macro), *(Side(text) for text in texts)]
    took = {side: [] for side in sides}
    for _ in range(int(rounds)):
        for side in sides:
            took[side] += drive(side, 200, 0)[0]
    for side in sides:
        took[side].sort()
        print(f"| {side.name} | {percentile(took[side], 50) * 1000:.1f} | {percentile(took[side], 99) * 1000:.1f} "
              f"| {took[side][-1] * 1000:.1f} | {side.wrong} |")


def resident(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))


def memory(pid, port):
    print("| korvo-web | resident, KB |\n|---|---:|")
    print(f"| nobody | {resident(pid)} |")
    idle = [socket.create_connection(("127.0.0.1", int(port))) for _ in range(1000)]
    side = Side(f"korvo-web,{port},/search?q=")
    # The last of them has been accepted when one behind it is answered.
    drive(side, 1, 0)
    print(f"| 1000 idle | {resident(pid)} |")
    for connection in idle:
        connection.close()
    visits = [Visit(side) for _ in range(200)]
    most = 0
    for visit in visits:
        visit.socket.setblocking(True)
        visit.step(selectors.EVENT_WRITE)
    for visit in visits:
        most = max(most, resident(pid))
        while not visit.step(selectors.EVENT_READ):
            pass
        visit.end()
    print(f"| 200 answered | {most} |")
    print(f"| wrong answers | {side.wrong} |")


if __name__ == "__main__":
    {"added": added, "rate": rate, "burst": burst, "memory": memory}[sys.argv[1]](*sys.argv[2:])
