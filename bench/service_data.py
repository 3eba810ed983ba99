#!/usr/bin/env python3
"""service_data.py FOLDER QUERIES <RECORDS: what the programs under measure are given.

RECORDS are Debian's package records.  FOLDER gets the same fields and texts as a control file with
its schema, as records of scriptindex with its script, and as an XML pipe with its configuration; and
the requests for each line of QUERIES, as korvo-service-load reads them.
"""
import re
import struct
import sys
from xml.sax.saxutils import escape

SHOWN = ["Package", "Section", "Version", "Description"]  # the order of the page, and so of the documents
# What is searched; the rest is only stored.
TEXTS = SHOWN + ["Source", "Maintainer", "Depends", "Recommends", "Suggests", "Tag", "Homepage"]
SPHINX_PORT = 14320


def records(lines):
    """A dictionary a package: one line of text a field."""
    fields, name = {}, None
    for line in lines:
        line = line.rstrip("\n")
        if not line:
            if fields:
                yield fields
            fields, name = {}, None
        elif line[0] in " \t":
            if line.strip() != ".":
                fields[name] += " " + line.strip()
        else:
            name, _, value = line.partition(":")
            name = name.replace("-", "_")  # scriptindex takes no other
            fields[name] = value.strip()
    if fields:
        yield fields


def in_order(fields):
    identity = " ".join(fields.get(name, "") for name in ("Package", "Version", "Architecture"))
    ordered = {"Id": identity} | {name: fields.get(name, "none") for name in SHOWN}
    return ordered | fields | ordered


def write_documents(folder):
    names = dict.fromkeys(["Id"] + SHOWN)
    with open(folder + "/packages", "w") as control, open(folder + "/records", "w") as omega, open(
        folder + "/sphinx.docs", "w"
    ) as sphinx:
        for number, fields in enumerate(map(in_order, records(sys.stdin)), 1):
            names |= dict.fromkeys(fields)
            control.write("".join(f"{name}: {value}\n" for name, value in fields.items()) + "\n")
            omega.write("".join(f"{name}={value}\n" for name, value in fields.items()) + "\n")
            sphinx.write(f'<sphinx:document id="{number}">')
            for name in TEXTS:
                sphinx.write(f"<f_{name.lower()}>{escape(fields.get(name, ''))}</f_{name.lower()}>")
            sphinx.write("</sphinx:document>\n")
    return list(names)


def write_settings(folder, names):
    with open(folder + "/schema", "w") as schema:
        schema.write("@language english\nId stored id\n")
        schema.write("".join(f"{name} {'text' if name in TEXTS else 'stored'}\n" for name in names[1:]))
    with open(folder + "/script", "w") as script:
        script.write("Id : unique=Q boolean=Q field\n")
        for name in names[1:]:
            script.write(f"{name} : field" + (f" index index=X{name.upper()}:" if name in TEXTS else "") + "\n")
    with open(folder + "/sphinx.xml", "w") as xml, open(folder + "/sphinx.docs") as documents:
        xml.write('<?xml version="1.0" encoding="utf-8"?>\n<sphinx:docset><sphinx:schema>\n')
        for name in TEXTS:
            attribute = ' attr="string"' if name in SHOWN else ""
            xml.write(f'<sphinx:field name="f_{name.lower()}"{attribute}/>\n')
        xml.write("</sphinx:schema>\n")
        for line in documents:
            xml.write(line)
        xml.write("</sphinx:docset>\n")
    with open(folder + "/sphinx.conf", "w") as conf:
        conf.write(f"""
source packages {{
  type = xmlpipe2
  xmlpipe_command = cat {folder}/sphinx.xml
}}
index packages {{
  source = packages
  path = {folder}/sphinx.index
  morphology = stem_en
}}
indexer {{
  mem_limit = 256M
}}
searchd {{
  listen = 127.0.0.1:{SPHINX_PORT}
  workers = fork
  max_children = 0
  pid_file = {folder}/sphinx.own-pid
  log = /dev/null
}}
""")


def text(value):
    return struct.pack(">I", len(value)) + value.encode()


def sphinx_request(query):
    """One search in the binary protocol of searchd: extended mode, all words, hits 1 to 10 by weight."""
    body = struct.pack(">IIIII", 1 << 6, 0, 10, 6, 0)
    body += struct.pack(">I", 0) + text("") + text(query)
    body += struct.pack(">I", 0) + text("packages")  # weights; index
    body += struct.pack(">IQQ", 1, 0, 0)  # any id
    body += struct.pack(">II", 0, 0) + text("") + struct.pack(">I", 1000) + text("@group desc")
    body += struct.pack(">III", 0, 0, 0) + text("")  # cutoff, retries; distinct
    body += struct.pack(">IIIII", 0, 0, 0, 0, 0)  # anchor, index weights, time, field weights, comment
    body += struct.pack(">I", 0) + text(", ".join("f_" + name.lower() for name in SHOWN))
    body += text("") + struct.pack(">III", 0, 0, 0)  # no outer select
    return struct.pack(">I", 1) + struct.pack(">HHIII", 0, 0x11E, 8 + len(body), 0, 1) + body


def write_requests(folder, queries):
    def put(name, request):
        with open(f"{folder}/{name}.requests", "wb") as out:
            for query in queries:
                line = request(query)
                line = line if isinstance(line, bytes) else line.encode()
                out.write(struct.pack("<I", len(line)) + line)

    head = f"\t@COMMAND=QUERY\t@SEARCHGROUP=packages\t@MACROFILE={folder}/package\t@MAXHITS=10\t"
    put("line", lambda query: head + query + "\n")
    put("cgi", lambda query: "DB=omega&DEFAULTOP=and&HITSPERPAGE=10&FMT=package&P=" + query.replace(" ", "+"))
    put("sphinx", sphinx_request)
    put("words", lambda query: query)


def main():
    folder, queries = sys.argv[1:]
    with open(queries) as lines:
        fixed = [line.strip() for line in lines]
    if not all(re.fullmatch("[a-z0-9 ]+", query) for query in fixed):
        sys.exit(f"{queries}: a query is words of small letters")
    write_settings(folder, write_documents(folder))
    write_requests(folder, fixed)


main()
