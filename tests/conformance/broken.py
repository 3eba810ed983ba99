#!/usr/bin/env python3
"""tests/conformance/broken.py FAULT PORT TARGET           a relay before a manager
tests/conformance/broken.py FAULT PROGRAM ID FOLDER      the daemon, with a relay before it and behind it
tests/conformance/broken.py FAULT PROGRAM ARGUMENT...    the client, with a relay behind it

What passes through has one fault, as if the program had it; "none" passes everything on."""
import os
import re
import signal
import socket
import subprocess
import sys
import threading
import time

FAULT = sys.argv[1]


lock = threading.Lock()
next_port = 12000 + os.getpid() * 7 % 3000


def listen(port=0):
    if port:
        listener = socket.socket()
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind(('127.0.0.1', port))
    else:
        listener = bound()
    listener.listen(64)
    return listener


def bound(kind=socket.SOCK_STREAM):
    """A socket on a port of its own that the service can answer."""
    global next_port
    while True:
        with lock:
            next_port = 12000 + (next_port - 11999) % 3000
        sock = socket.socket(socket.AF_INET, kind)
        try:
            sock.bind(('127.0.0.1', next_port))
            return sock
        except OSError:
            sock.close()


def free_port():
    with bound() as sock:
        return sock.getsockname()[1]


def connect(port):
    return socket.create_connection(('127.0.0.1', port))


def read_all(sock):
    parts = []
    try:
        while part := sock.recv(65536):
            parts.append(part)
    except OSError:
        pass
    return b''.join(parts)


def read_line(sock):
    line = b''
    try:
        while not line.endswith(b'\n'):
            byte = sock.recv(1)
            if not byte:
                break
            line += byte
    except OSError:
        pass
    return line


def serve(listener, handle, one_at_a_time=False):
    def guarded(sock):
        try:
            handle(sock)
        except OSError:
            pass
        finally:
            sock.close()
    while True:
        sock, _ = listener.accept()
        if one_at_a_time:
            guarded(sock)
        else:
            threading.Thread(target=guarded, args=(sock,), daemon=True).start()


def pump(source, sink, change=lambda piece: piece):
    try:
        while piece := source.recv(65536):
            sink.sendall(change(piece))
        sink.shutdown(socket.SHUT_WR)
    except OSError:
        try:
            sink.close()
        except OSError:
            pass


def join(a, b, forth=lambda piece: piece, back=lambda piece: piece):
    other = threading.Thread(target=pump, args=(b, a, back), daemon=True)
    other.start()
    pump(a, b, forth)
    other.join()


# A relay before a manager: one request, one answer.

HIT = b'\t@COMMAND=HIT\t@SEARCHGROUP=packages\t@RECTYPE=packages\t@DOCNUM=1\n'
REQUEST_FAULTS = {
    'maxhits-ignored': lambda line: line.replace(b'@MAXHITS=', b'@IGNORED='),
    'names-in-any-case': lambda line: line.replace(b'@maxhits=', b'@MAXHITS='),
}
ANSWER_FAULTS = {
    'hit-without-docnum': lambda answer: re.sub(rb'\t@DOCNUM=\d+', b'', answer),
    'hit-for-nothing': lambda answer: answer if b'=HIT' in answer else HIT + answer,
    'completes-as-news': lambda answer: answer.replace(b'=SEARCHCOMPLETE', b'=NEWS'),
    'last-value-not-closed': lambda answer: answer.replace(b'\t\n', b'\n'),
    'hit-for-errors': lambda answer: answer.replace(b'@COMMAND=ERROR', b'@COMMAND=HIT'),
}


def manager(port, target):
    def handle(sock):
        line = sock.recv(65536) if FAULT == 'first-read-is-the-line' else read_line(sock)
        behind = connect(target)
        behind.sendall(REQUEST_FAULTS.get(FAULT, lambda same: same)(line))
        behind.shutdown(socket.SHUT_WR)
        answer = ANSWER_FAULTS.get(FAULT, lambda same: same)(read_all(behind))
        sock.sendall(answer)
        if FAULT == 'stays-open':
            time.sleep(60)
        sock.shutdown(socket.SHUT_WR)
    listener = listen(port)
    print('ready', flush=True)
    serve(listener, handle, FAULT == 'one-at-a-time')


# The daemon between two relays: what clients and managers see of it has the fault.

TO_CLIENT = {
    'no-tail': lambda piece: piece.replace(b'TAIL\n', b''),
    'error-on-a-line': lambda piece: piece.replace(b'retreive document.', b'retreive document.\n'),
    'spelling-mended': lambda piece: piece.replace(b'retreive', b'retrieve'),
    'raw-without-its-tab': lambda piece: piece.replace(b'\tany text', b'any text'),
}
FROM_CLIENT = {
    'maxhits-not-applied': lambda piece: piece.replace(b'@MAXHITS=2', b'@MAXHITS=9'),
    'words-in-any-case': lambda piece: piece.replace(b'@COMMAND=getdoc', b'@COMMAND=GETDOC'),
    'first-of-two-counts': lambda piece: re.sub(rb'(@RECTYPE=\w+)(.*)\t@RECTYPE=\w+', rb'\1\2', piece),
}
TO_MANAGER = {
    'line-is-trimmed': lambda piece: piece.replace(b'\t@COLOUR=red', b''),
    'ten-fields': lambda piece: piece.replace(b'\t@EXPDATE=0\n', b'\n'),
}
FROM_MANAGER = {
    'search-goes-on-behind-an-error': lambda piece: piece.replace(b'@COMMAND=ERROR', b'@COMMAND=RAW'),
}


def change(table):
    return table.get(FAULT, lambda piece: piece)


def daemon_relays(folder):
    """A folder for the real daemon, and relays on the ports that korvo.conf names."""
    name, letter, ip, client, admin, parent = open(folder + '/korvo.conf').read().split()
    own_client, own_admin = free_port(), free_port()
    inner = folder + '/inner'
    os.mkdir(inner)
    with open(inner + '/korvo.conf', 'w') as file:
        file.write(f'{name} {letter} {ip} {own_client} {own_admin} {parent}\n')

    def client_side(sock):
        join(sock, connect(own_client), change(FROM_CLIENT), change(TO_CLIENT))

    def manager_side(port):
        listener = listen()
        threading.Thread(target=serve, daemon=True, args=(
            listener, lambda sock: join(sock, connect(port), change(TO_MANAGER), change(FROM_MANAGER)))).start()
        return listener.getsockname()[1]

    def changed(data):
        if b'STARTUPANNOUNCEMENT' not in data:
            return data
        name_of_it = data.split(b'\t')[2]
        if FAULT == 'announcement-does-not-replace' and name_of_it in announced:
            return b'\t@COMMAND=PONG\n'
        announced.add(name_of_it)
        return re.sub(rb'CLIENTPORT=(\d+)', lambda m: b'CLIENTPORT=%d' % manager_side(int(m[1])), data)

    def answers(own, outer, sender):
        while True:
            answer = own.recv(65536)
            if FAULT == 'pong-without-its-number':
                answer = answer.replace(b'@SEQNUM=42', b'@SEQNUM=0')
            outer.sendto(answer, sender)

    def datagrams():  # in their order
        outer, senders = socket.socket(socket.AF_INET, socket.SOCK_DGRAM), {}
        outer.bind((ip, int(admin)))
        while True:
            data, sender = outer.recvfrom(65536)
            if sender not in senders:
                senders[sender] = bound(socket.SOCK_DGRAM)
                threading.Thread(target=answers, args=(senders[sender], outer, sender), daemon=True).start()
            senders[sender].sendto(changed(data), (ip, own_admin))

    announced = set()
    threading.Thread(target=serve, args=(listen(int(client)), client_side), daemon=True).start()
    threading.Thread(target=datagrams, daemon=True).start()
    return inner


# The client before a relay: what the daemon sees of it has the fault.

FROM_THE_CLIENT = {
    'no-newline': lambda piece: piece.replace(b'\n', b''),
    'two-lines': lambda piece: piece + b'\n',
}


def client(program, arguments):
    port = int(os.environ['KORVO_PORT'])
    relay = listen()

    def handle(sock):
        join(sock, connect(port), change(FROM_THE_CLIENT))
    threading.Thread(target=serve, args=(relay, handle), daemon=True).start()
    os.environ['KORVO_PORT'] = str(relay.getsockname()[1])
    done = subprocess.run([program] + arguments, stdout=subprocess.PIPE)
    output = done.stdout
    if FAULT == 'ends-at-a-nul':
        output = output.split(b'\0')[0]
    sys.stdout.buffer.write(output)
    return 0 if FAULT == 'errors-are-success' else done.returncode


def main():
    if sys.argv[2].isdigit():
        manager(int(sys.argv[2]), int(sys.argv[3]))
    if os.path.exists(sys.argv[-1] + '/korvo.conf'):
        inner = daemon_relays(sys.argv[-1])
        program = subprocess.Popen([sys.argv[2], sys.argv[3], inner])
        signal.signal(signal.SIGTERM, lambda *_: (program.terminate(), os._exit(0)))
        sys.exit(program.wait())
    sys.exit(client(sys.argv[2], sys.argv[3:]))


main()
