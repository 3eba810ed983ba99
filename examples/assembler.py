#!/usr/bin/env python3
"""An assembler for page macros.

    assembler.py SOURCE -o MACRO [--allow-undefined]
"""
import argparse
import os
import re
import sys

# What is written: the op-code and its operands. b is a byte, r a register, d four bytes,
# s a text behind a length of one byte, S one behind a length of four.
INSTRUCTIONS = {
    "end": (0, ""), "text": (65, "s"), "text32": (1, "S"), "value": (66, "s"), "value32": (2, "S"),
    "value-skip": (67, "bs"), "number": (68, "s"), "document": (7, ""), "find": (12, "s"),
    "seek": (3, "d"), "push": (8, ""), "pop": (9, ""), "save": (10, "r"), "restore": (11, "r"),
    "fetch": (13, "ss"), "insert": (14, "s"), "insert-skip": (15, "bs"),
}
OPERANDS = dict(INSTRUCTIONS.values())
LIMITS = {"b": 255, "r": 15, "d": 0xFFFFFFFF}
TOKEN = re.compile(r'[ \t\r]*(?:("(?:[^"\\]|\\.)*")|([^ \t\r;"]+)|(;.*)|$)')
CLOSING = re.compile(r'[ \t\r]*([^ \t\r;"]*)[ \t\r]*(?:(;.*)|(.*))')
BYTE_ORDER_MARK = "\xef\xbb\xbf"
ESCAPE = re.compile(r'\\(?:x([0-9A-Fa-f]{2})|(.?))', re.S)
PLAIN = {"n": "\n", "t": "\t", "r": "\r", '"': '"', "\\": "\\"}


class Fault(Exception):
    pass


def unquote(token):
    def one(match):
        if match[1]:
            return chr(int(match[1], 16))
        if match[2] not in PLAIN:
            raise Fault("unknown escape \\" + match[2])
        return PLAIN[match[2]]
    return ESCAPE.sub(one, token[1:-1])


def split(line):
    """The words of a line, without its comment."""
    tokens, at = [], 0
    while at < len(line):
        match = TOKEN.match(line, at)
        if not match:
            raise Fault("a text without its closing quote")
        if match[1] or match[2]:
            tokens.append(match[1] or match[2])
        if match[3]:
            break
        at = match.end()
    return tokens


class Assembler:
    def __init__(self):
        self.code = bytearray()
        self.constants = {}
        self.depth = 0
        self.item = None            # in a repeat: [name, next is a skip]

    # -- operands: Python strings of one character a byte, or numbers

    def operand(self, token):
        if token.startswith('"'):
            return unquote(token)
        if re.fullmatch(r"0x[0-9A-Fa-f]+|[0-9]+", token):
            return self.number(int(token, 16 if token.startswith("0x") else 10), LIMITS["d"])
        if token in self.constants:
            return self.constants[token]
        raise Fault("no number, text or constant: " + token)

    def number(self, value, most):
        if not isinstance(value, int):
            raise Fault("a number is needed")
        if value > most:
            raise Fault("%d is above %d" % (value, most))
        return value

    def text(self, value):
        if not isinstance(value, str):
            raise Fault("a text in quotes is needed")
        return value

    # -- one instruction

    def emit(self, name, values):
        if name not in INSTRUCTIONS:
            raise Fault("unknown instruction " + name)
        opcode, kinds = INSTRUCTIONS[name]
        if len(values) != len(kinds):
            raise Fault("%s takes %d operands" % (name, len(kinds)))
        self.code.append(opcode)
        for kind, value in zip(kinds, values):
            if kind in "br":
                self.code.append(self.number(value, LIMITS[kind]))
            elif kind == "d":
                self.code += self.number(value, LIMITS[kind]).to_bytes(4, "little")
            else:
                data = self.text(value).encode("latin-1")
                most = 255 if kind == "s" else 40960 if name == "text32" else 4095
                if len(data) > most:
                    raise Fault("a text of more than %d bytes" % most)
                self.code += len(data).to_bytes(1 if kind == "s" else 4, "little") + data

    def instruction(self, tokens):
        name, values = tokens[0], [self.operand(token) for token in tokens[1:]]
        if name == "byte":
            if not values:
                raise Fault("byte takes numbers")
            if any(token in self.constants for token in tokens):
                raise Fault("byte takes no constants")
            self.code += bytes(self.number(value, 255) for value in values)
        elif name == "item":
            if not self.item or values:
                raise Fault("item stands in a repeat, and takes no operand")
            field, skip = self.item
            self.emit("value-skip", [1, field]) if skip else self.emit("value", [field])
            self.item[1] = False
        else:
            self.emit(name, values)

    # -- what is written out

    def page(self, lines):
        text = "".join(line[:-1] if line.endswith("\\") else line + "\n" for line in lines)
        for index, part in enumerate(re.split(r"\{\{(.*?)\}\}", text)):
            if index % 2 == 0:
                if "{{" in part:
                    raise Fault("{{ without }} on its line")
                if part:
                    self.emit("text" if len(part) <= 255 else "text32", [part])
            elif part.startswith("!"):
                self.instruction(split(part[1:]) or [""])
            else:
                match = re.fullmatch(r"(.*)\+(0x[0-9A-Fa-f]+|[0-9]+)", part)
                if not (match[1] if match else part):
                    raise Fault("{{NAME}} without a name")
                if not match and "+" in part:
                    raise Fault("{{NAME+COUNT}} without a count")
                if match:
                    self.emit("value-skip", [self.operand(match[2]), match[1]])
                else:
                    self.emit("value", [part])

    def file(self, path):
        if self.depth == 16:
            raise Fault("too many files include each other")
        try:
            with open(path, encoding="latin-1", newline="\n") as file:
                text = file.read()
        except OSError as why:
            raise Fault("%s: %s" % (path, why.strerror))
        lines = re.split("\r?\n", text.removeprefix(BYTE_ORDER_MARK))
        if not lines[-1]:
            lines.pop()
        self.depth += 1
        self.block(path, list(enumerate(lines, 1)))
        self.depth -= 1

    def block(self, path, lines):
        """Assembles numbered lines."""
        at = 0
        while at < len(lines):
            number, line = lines[at]
            at += 1
            try:
                tokens = split(line)
                if not tokens:
                    continue
                word = tokens[0]
                if word == "include" and len(tokens) == 2:
                    if self.item or not tokens[1].startswith('"'):
                        raise Fault("include takes a file in quotes, and does not stand in a repeat")
                    name = unquote(tokens[1])
                    self.file(os.path.join(os.path.dirname(path), name))
                elif word == "const" and len(tokens) == 3:
                    if not re.match(r"[A-Z_]", tokens[1]):
                        raise Fault("a constant begins with a capital or _: " + tokens[1])
                    value = self.operand(tokens[2])
                    if self.constants.setdefault(tokens[1], value) != value:
                        raise Fault("%s has another value already" % tokens[1])
                elif word == "page" and len(tokens) == 1:
                    stop = self.closing(lines, at, "end-page")
                    self.page([text for _, text in lines[at:stop]])
                    at = stop + 1
                elif word == "repeat" and len(tokens) == 3:
                    if self.item:
                        raise Fault("a repeat in a repeat")
                    stop = self.closing(lines, at, "end-repeat")
                    field = self.text(self.operand(tokens[1]))
                    turns = self.number(self.operand(tokens[2]), 256)
                    if not turns:
                        raise Fault("a repeat is for 1 to 256 times")
                    for turn in range(turns):
                        self.item = [field, turn > 0]
                        self.block(path, lines[at:stop])
                    self.item = None
                    at = stop + 1
                else:
                    self.instruction(tokens)
            except Fault as why:
                if why.args[1:]:
                    raise
                raise Fault(str(why), "%s:%d: " % (path, number))

    def closing(self, lines, at, word):
        while at < len(lines):
            match = CLOSING.match(lines[at][1])
            if match[1] == word:
                if match[3]:
                    raise Fault("behind %s stands nothing but a comment" % word)
                return at
            at += 1
        raise Fault("there is no " + word)


def undefined(code):
    """The offset of the first op-code that would be run and does not exist, or None."""
    at = 0
    while at < len(code):
        start, opcode = at, code[at]
        if opcode not in OPERANDS:
            return start
        if opcode == 0:
            return None
        at += 1
        for kind in OPERANDS[opcode]:
            if kind in "br":
                at += 1
            elif kind == "d":
                at += 4
            else:
                size = 1 if kind == "s" else 4
                at += size + int.from_bytes(code[at:at + size], "little")
    return None


def main():
    parser = argparse.ArgumentParser(description="An assembler for page macros")
    parser.add_argument("source")
    parser.add_argument("-o", dest="macro", required=True)
    parser.add_argument("--allow-undefined", action="store_true")
    args = parser.parse_args()
    assembler = Assembler()
    try:
        assembler.file(args.source)
        offset = undefined(assembler.code)
        if offset is not None and not args.allow_undefined:
            raise Fault("op-code %d at offset %d does not exist" % (assembler.code[offset], offset))
    except Fault as why:
        sys.exit((why.args[1] if why.args[1:] else "") + why.args[0])
    with open(args.macro, "wb") as file:
        file.write(assembler.code)


if __name__ == "__main__":
    main()
