#!/usr/bin/env python3
"""tests/conformance/check_dissector.py   run from the root; exit status 77 without tshark

Has tshark read a capture of one page and of a PING by share/korvo/wireshark/korvo.lua."""
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile

CLIENT, DAEMON, SEARCH, DOC, ADMIN = 30001, 8001, 8011, 8021, 8002
GETDOC = (b'\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=packages\t@RECTYPE=packages\t@MACROFILE=\t@DOCNUM=%d'
          b'\t@SCRIPT=\t@SEQNUM=0\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n')
HIT = b'\t@COMMAND=HIT\t@SEARCHGROUP=packages\t@RECTYPE=packages\t@DOCNUM=%d\n'


def packet(kind, source, target, payload, sequence):
    if kind == 6:
        body = struct.pack('>HHIIBBHHH', source, target, sequence, 1, 5 << 4, 0x18, 65535, 0, 0) + payload
    else:
        body = struct.pack('>HHHH', source, target, 8 + len(payload), 0) + payload
    local = bytes([127, 0, 0, 1])
    return struct.pack('>BBHHHBBH4s4s', 0x45, 0, 20 + len(body), 0, 0, 64, kind, 0, local, local) + body


def capture(messages):
    """A capture of raw IPv4 packets, each (kind, source, target, payload)."""
    file = struct.pack('<IHHiIII', 0xa1b2c3d4, 2, 4, 0, 0, 262144, 101)
    sequences = {}
    for at, (kind, source, target, payload) in enumerate(messages):
        sequence = sequences.get((source, target), 1)
        sequences[source, target] = sequence + len(payload)
        data = packet(kind, source, target, payload, sequence)
        file += struct.pack('<IIII', 1700000000, at * 1000, len(data), len(data)) + data
    return file


def main():
    if shutil.which('tshark') is None:
        print('skipped: there is no tshark')
        return 77
    messages = [
        (6, CLIENT, DAEMON, b'\t@COMMAND=QUERY\t@SEARCHGROUP=packages\t@MACROFILE=package\t@MAXHITS=2\tmail\n'),
        (6, 30002, SEARCH, b'\t@COMMAND=QUERY\t@SEARCHGROUP=packages\t@MACROFILE=package\t@MAXHITS=2\tmail\n'),
        (6, SEARCH, 30002, HIT % 17 + (HIT % 18)[:20]),  # the second goes on in the next segment
        (6, SEARCH, 30002, (HIT % 18)[20:] + b'\t@COMMAND=SEARCHCOMPLETE\n'),
        (6, 30003, DOC, GETDOC % 17),
        (6, DOC, 30003, b'\t@COMMAND=HIT\tPackage=adduser\tVersion=3.134\t\n'),
        (6, 30004, DOC, GETDOC % 18),
        (6, DAEMON, CLIENT, b'* adduser\n'),
        (17, 30005, ADMIN, b'\t@COMMAND=PING\t@SEQNUM=42\n'),
        (17, ADMIN, 30005, b'\t@COMMAND=PONG\t@SEQNUM=42\n'),
    ]
    names = ['frame.number', 'korvo.command', 'korvo.docnum', 'korvo.hit_in', 'korvo.fetch_in', 'korvo.predicate',
             'korvo.pair', 'korvo.seqnum', 'korvo.text']
    expected = [
        '1|QUERY||||\\tmail|||', '2|QUERY||||\\tmail|||', '3|HIT|17||5||||', '4|HIT,SEARCHCOMPLETE|18||7||||',
        '5|GETDOC|17|3||||0|', '6|HIT|||||Package=adduser,Version=3.134||', '7|GETDOC|18|4||||0|', '8||||||||* adduser',
        '9|PING||||||42|', '10|PONG||||||42|']
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder, 'page.pcap')
        path.write_bytes(capture(messages))
        command = ['tshark', '-n', '-X', 'lua_script:share/korvo/wireshark/korvo.lua', '-2', '-r', str(path), '-T', 'fields',
                   '-E', 'separator=|', '-o', 'tcp.check_checksum:FALSE']
        for name in names:
            command += ['-e', name]
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    found = done.stdout.splitlines()
    wrong = [(a, b) for a, b in zip(expected + [''] * 20, found + [''] * 20) if a != b]
    for want, got in wrong:
        print(f'expected {want!r}, found {got!r}')
    if done.returncode != 0 or 'Lua' in done.stderr:
        print(done.stderr)
        return 1
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
