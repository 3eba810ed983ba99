#!/usr/bin/env python3
"""check_examples.py BIN   holds examples/ against the cases and against the macro assembler; from the root

BIN is the folder of the programs that were built.
"""
import contextlib
import pathlib
import random
import re
import socket
import subprocess
import sys
import tempfile
import time

BIN = pathlib.Path(sys.argv[1])
PATIENCE = 20  # seconds
MANAGERS = {"searchmgr": 60, "docmgr": 40}  # the fewest cases of each
SOURCES = ["tools/macro/examples/package.ms", "share/korvo/web/results.ms", "share/korvo/web/document.ms"]

# What the text of a macro may hold and may not, as docs/macro-format.md says it.
TAKEN = [
    b'\xef\xbb\xbftext "x"\nend\n',
    b'text\t"x"\r\nend\r\n',
    b'const _A "x"\ntext _A\n',
    b'const A.b/c 7\nsave A.b/c\n',
    b'const Most 4294967295\nseek Most\n',
    b'const Hex 0xffffffff\nseek Hex\n',
    b'page\n{{A+0x1}} {{A+B+2}} {{!value "A+B"}}\nend-page ; a comment\n',
]
REFUSED = [
    b'\xef\xbb\xbf\xef\xbb\xbftext "x"\n',
    b'page\n{{A+B}}\nend-page\n',
    b'page\n{{A+256}}\nend-page\n',
    b'page\n{{A+}}\nend-page\n',
    b'page\nx\nend-page x\n{{A}}\nend-page\n',
    b'const a "x"\ntext a\n',
    b'const 1A "x"\n',
    b'const A 4294967296\n',
    b'const A 0x100000000\n',
    b'text\x0b"x"\n',
    b'\x0bend\n',
    b'end\x0c\n',
]


def free_port(kind):
    """One that no other test takes."""
    while True:
        with socket.socket(socket.AF_INET, kind) as own, contextlib.suppress(OSError):
            own.bind(("127.0.0.1", random.randint(3000, 3999)))
            return own.getsockname()[1]


def answers(port):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asking:
        asking.settimeout(0.2)
        asking.sendto(b"\t@COMMAND=PING\t@SEQNUM=7\n", ("127.0.0.1", port))
        with contextlib.suppress(OSError):
            return asking.recv(100) == b"\t@COMMAND=PONG\t@SEQNUM=7\n"
    return False


# What another correct manager may do otherwise, as (pattern, replacement) in the text of the example.
COMMAND = r'head = b"\\t@COMMAND=" \+ command'
COMPLETE = r'        yield record\(b"SEARCHCOMPLETE"\)\n'
FIRST_HIT = r'        for number, weight in shown:\n'
RAW = '        yield record(b"RAW", b"any text")\n'
HIT = r'record\(b"HIT", text\)'
VARIANTS = {
    "docmgr": {
        "other fields behind the command": [(HIT, 'record(b"HIT", text, SEQNUM=b"0", DOCNUM=b"%d" % number)')],
        "other fields in front of it": [(COMMAND, r'head = (b"\\t@DOCNUM=1" if command != b"PONG" else b"") + b"\\t@COMMAND=" + command')],
        "fields of unknown names": [(HIT, 'record(b"HIT", text, COLOUR=b"red")')],
        "a carriage return between fields": [(HIT, r'record(b"HIT", text, DOCNUM=b"1\\r@SEQNUM=0")')]},
    "searchmgr": {
        "other fields in front of the command": [(COMMAND, r'head = (b"\\t@COLOUR=red" if command != b"PONG" else b"") + b"\\t@COMMAND=" + command')],
        "text in front of the hits": [(FIRST_HIT, RAW + '        yield record(b"RAW", b"more")\n' + r'\g<0>')],
        "text behind each hit": [(COMPLETE, '    ' + RAW + r'\g<0>')],
        "text in front of an error": [(r'            yield error\(str\(why\)', '    ' + RAW + r'\g<0>')],
        "closing for an end": [(COMPLETE, '')]}}


def hold_variant(kind, least, name, changes, folder):
    """A manager that differs in what docs/protocol.md leaves open passes every case of those that all managers owe."""
    text, program = pathlib.Path("examples/manager.py").read_text(), folder / "manager.py"
    for pattern, replacement in changes:
        text, count = re.subn(pattern, replacement, text)
        if count != 1:
            sys.exit(f"examples/manager.py has {pattern} {count} times")
    program.write_text(text)
    with running(kind, program) as (client, admin):
        check(kind, least, client, admin, f"a {kind} with {name}", f"conformance/{kind}/wire.transcript")


@contextlib.contextmanager
def running(kind, program):
    """Its client port and its admin port."""
    client, admin = free_port(socket.SOCK_STREAM), free_port(socket.SOCK_DGRAM)
    manager = subprocess.Popen([sys.executable, program, kind, str(client), str(admin), "conformance/documents"])
    try:
        end = time.monotonic() + PATIENCE
        while not answers(admin):
            if manager.poll() is not None or time.monotonic() > end:
                sys.exit(f"{program} {kind} does not answer")
        yield client, admin
    finally:
        manager.kill()
        manager.wait()


def check(kind, least, client, admin, name, where):
    command = [BIN / "korvo-wire", "check", "--cases", where, "--admin", str(admin), kind, str(client)]
    outcome = subprocess.run(command, capture_output=True, text=True, check=False)
    cases = int(outcome.stdout.split(" ", 1)[0]) if outcome.returncode == 0 else 0
    if outcome.stdout != f"{cases} cases: {cases} passed, 0 failed, 0 left out\n" or cases < least:
        sys.exit(f"{name}:\n{outcome.stdout}{outcome.stderr}")


def hold_manager(kind, least):
    with running(kind, "examples/manager.py") as (client, admin):
        check(kind, least, client, admin, f"examples/manager.py {kind}", "conformance")
        replay = [BIN / "korvo-wire", "replay", "--to", str(client), f"examples/transcripts/{kind}"]
        outcome = subprocess.run(replay, capture_output=True, text=True, check=False)
        if outcome.returncode != 0:
            sys.exit(f"examples/transcripts/{kind}:\n{outcome.stdout}{outcome.stderr}")


def hold_assembler(folder, source):
    theirs, ours = folder / "theirs.mo", folder / "ours.mo"
    subprocess.run([sys.executable, "examples/assembler.py", source, "-o", theirs], check=True)
    subprocess.run([BIN / "korvo-macro", "asm", source, "-o", ours], check=True)
    if theirs.read_bytes() != ours.read_bytes():
        sys.exit(f"examples/assembler.py makes other bytes of {source}")


def hold_rules(folder):
    """Both assemblers take the same sources, and make the same bytes of them."""
    source, theirs, ours = folder / "rules.ms", folder / "theirs.mo", folder / "ours.mo"
    for text in TAKEN + REFUSED:
        source.write_bytes(text)
        for command, macro in (([sys.executable, "examples/assembler.py"], theirs), ([BIN / "korvo-macro", "asm"], ours)):
            macro.unlink(missing_ok=True)
            outcome = subprocess.run([*command, source, "-o", macro], capture_output=True, check=False)
            if (outcome.returncode == 0) != (text in TAKEN) or macro.exists() != (text in TAKEN):
                sys.exit(f"{command[-1]}: status {outcome.returncode} for {text}")
        if text in TAKEN and theirs.read_bytes() != ours.read_bytes():
            sys.exit(f"examples/assembler.py makes other bytes of {text}")


def hold_transcript_of_assembler(folder):
    """It has the bytes of the worked example as the assembler makes them, and the daemon makes the page of them."""
    source, made, path = folder / "page.ms", folder / "page.mo", pathlib.Path("examples/transcripts/assembler.transcript")
    document = pathlib.Path("docs/macro-format.md").read_text()
    source.write_text(re.search(r"^```macro\n(.*?)^```$", document, re.M | re.S)[1])
    subprocess.run([sys.executable, "examples/assembler.py", source, "-o", made], check=True)
    if "".join(f"\\x{byte:02x}" for byte in made.read_bytes()) not in path.read_text():
        sys.exit(f"{path} has other bytes than examples/assembler.py makes")
    command = [BIN / "korvo-wire", "check", "--cases", path, "daemon", f"'{BIN / 'korvo-commmgr'}'"]
    outcome = subprocess.run(command, capture_output=True, text=True, check=False)
    if outcome.stdout != "1 cases: 1 passed, 0 failed, 0 left out\n":
        sys.exit(f"{path}:\n{outcome.stdout}{outcome.stderr}")


for kind, least in MANAGERS.items():
    hold_manager(kind, least)
with tempfile.TemporaryDirectory() as folder:
    for kind, variants in VARIANTS.items():
        for name, changes in variants.items():
            hold_variant(kind, 40, name, changes, pathlib.Path(folder))
    hold_transcript_of_assembler(pathlib.Path(folder))
    hold_rules(pathlib.Path(folder))
    for source in SOURCES:
        hold_assembler(pathlib.Path(folder), source)
