#!/usr/bin/env python3
"""bench/tap.py [BUILD]   what korvo-wire tap adds, in milliseconds; BUILD is build/release

forward: one byte to a server that answers with one, on a connection that is open; twice through the tap.
crowd: the same while a thousand other connections are open.
exchange: a connection, a line of 70 bytes, an answer of 2 KB and the end.
Direct and through the tap in turns; medians and 99th percentiles of both, and the difference of the medians."""
import resource
import socket
import statistics
import subprocess
import sys
import threading
import time

BUILD = sys.argv[1] if len(sys.argv) > 1 else 'build/release'
ROUNDS = 3000
CROWD = 1000
LINE = b'\t@COMMAND=QUERY\t@SEARCHGROUP=packages\t@MACROFILE=package\tnetwork card\n'
ANSWER = b'x' * 2048


def serve(listener):
    def one(sock):
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        while piece := sock.recv(4096):
            if piece.endswith(b'\n'):
                sock.sendall(ANSWER)
                break
            sock.sendall(piece)
        sock.close()
    while True:
        threading.Thread(target=one, args=(listener.accept()[0],), daemon=True).start()


def connect(port):
    sock = socket.create_connection(('127.0.0.1', port))
    sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return sock


def forward(sock):
    begin = time.perf_counter()
    sock.sendall(b'x')
    sock.recv(1)
    return (time.perf_counter() - begin) * 1000


def exchange(port):
    begin = time.perf_counter()
    with connect(port) as sock:
        sock.sendall(LINE)
        while sock.recv(65536):
            pass
    return (time.perf_counter() - begin) * 1000


def free_port():
    for port in range(14300, 14400):
        with socket.socket() as sock:
            try:
                sock.bind(('127.0.0.1', port))
                return port
            except OSError:
                pass
    sys.exit('there is no free port')


def row(name, direct, tapped):
    def high(times):
        return sorted(times)[len(times) * 99 // 100]
    added = statistics.median(tapped) - statistics.median(direct)
    print(f'| {name:9} | {statistics.median(direct):7.3f} | {statistics.median(tapped):7.3f} | {added:7.3f} |'
          f' {high(direct):7.3f} | {high(tapped):7.3f} |')


def main():
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    port = free_port()
    listener = socket.socket()
    listener.bind(('127.0.0.1', port))
    listener.listen(128)
    threading.Thread(target=serve, args=(listener,), daemon=True).start()
    own = free_port()
    tap = subprocess.Popen([f'{BUILD}/bin/korvo-wire', 'tap', str(own), str(port)], stdout=subprocess.DEVNULL)
    try:
        while True:
            try:
                exchange(own)
                break
            except OSError:
                time.sleep(0.01)
        print('| row       |  direct |  tapped |   added | direct 99 % | tapped 99 % |')
        print('|-----------|--------:|--------:|--------:|------------:|------------:|')
        with connect(port) as straight, connect(own) as tapped:
            times = [(forward(straight), forward(tapped)) for _ in range(ROUNDS)]
            row('forward', [a for a, _ in times], [b for _, b in times])
            crowd = [connect(own) for _ in range(CROWD)]
            times = [(forward(straight), forward(tapped)) for _ in range(ROUNDS)]
            row('crowd', [a for a, _ in times], [b for _, b in times])
            for sock in crowd:
                sock.close()
        times = [(exchange(port), exchange(own)) for _ in range(ROUNDS)]
        row('exchange', [a for a, _ in times], [b for _, b in times])
    finally:
        tap.terminate()
        tap.wait()


main()
