"""All mutants of the sources of the daemon and of korvo-web, in one fixed order: each changes one place."""
import collections
import dataclasses
import pathlib
import re
import zlib

import lexer

FOLDERS = ("debug", "net", "protocol", "config", "macro", "core", "commmgr", "web")

COMPARISONS = {"==": ("!=",), "!=": ("==",), "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<")}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "<<": ">>", ">>": "<<", "&": "|", "|": "&", "^": "|",
              "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "<<=": ">>=", ">>=": "<<=", "&=": "|=", "|=": "&=",
              "++": "--", "--": "++"}
ALWAYS_BINARY = ("%", "^", "++", "--")
LOGIC = {"&&": "||", "||": "&&"}
WORDS = {"true": "false", "false": "true"}
JUMPS = ("break", "continue", "return")
ASSIGNMENTS = ("=", "+=", "-=", "*=", "/=", "|=", "&=", "<<=", ">>=", "++", "--")
NO_STATEMENT = ("return", "if", "while", "for", "switch", "case", "using", "const", "constexpr", "static", "auto",
                "break", "continue", "default", "goto", "struct", "enum", "extern", "inline", "namespace", "template")
NAMED_CONSTANT = re.compile(r"k[A-Z]\w*|[A-Z][A-Z0-9_]{2,}")


@dataclasses.dataclass(frozen=True)
class Mutant:
    path: str
    start: int
    end: int
    after: str
    kind: str
    line: int
    change: str  # "old line -> new line", blanks squeezed, and which of several alike: what a survivor is known by

    def apply(self, source):
        return source[:self.start] + self.after + source[self.end:]


def _squeezed(text):
    return " ".join(text.split())


class _File:
    """Collects the mutants of one file."""

    def __init__(self, path, source):
        self.path, self.source = path, source
        self.tokens = lexer.tokens_of(source)
        self.partner = lexer.pairs(self.tokens)
        self.rooms = [(first, last) for first, last in self.partner.items() if self.makes_room(first)]
        self.mutants = []

    def text(self, index):
        return self.tokens[index].text if 0 <= index < len(self.tokens) else ""

    def kind(self, index):
        return self.tokens[index].kind if 0 <= index < len(self.tokens) else ""

    def change(self, kind, first, last, after):
        """Replaces the tokens from first to last."""
        start, end = self.tokens[first].start, self.tokens[last].end
        line_start = self.source.rfind("\n", 0, start) + 1
        line_end = self.source.find("\n", end)
        old = self.source[line_start:line_end]
        new = self.source[line_start:start] + after + self.source[end:line_end]
        self.mutants.append(Mutant(self.path, start, end, after, kind, self.source.count("\n", 0, start) + 1,
                                   f"{_squeezed(old)} -> {_squeezed(new)}"))

    def spelled(self, first, last):
        return self.source[self.tokens[first].start:self.tokens[last].end]

    def between_blanks(self, index):
        token = self.tokens[index]
        return self.source[token.start - 1].isspace() and self.source[token.end].isspace()

    def operand_before(self, index):
        return self.kind(index - 1) in ("name", "number", "char") and self.text(index - 1) not in NO_STATEMENT \
            or self.text(index - 1) in (")", "]")

    # Operators

    def operators(self, index):
        text = self.text(index)
        if text in COMPARISONS and self.between_blanks(index):
            for after in COMPARISONS[text]:
                self.change("comparison", index, index, after)
        elif text in ARITHMETIC and (self.between_blanks(index) or text in ALWAYS_BINARY):
            self.change("arithmetic", index, index, ARITHMETIC[text])
        elif text in LOGIC and self.between_blanks(index):
            self.change("logic", index, index, LOGIC[text])
        elif text == "-" and not self.operand_before(index) and self.kind(index + 1) == "name":
            self.change("arithmetic", index, index, "")
        elif text == "!":
            self.change("negation", index, index, "")
        elif text in ("if", "while") and self.text(index + 1) == "(":
            self.condition(index + 1)

    def condition(self, index):
        """One that is a lone comparison or begins with "!" is negated by the change of that operator."""
        last = self.partner[index]
        inside = [self.text(at) for at in range(index + 1, last)]
        if any(text in LOGIC for text in inside) or not any(text in COMPARISONS or text == "!" for text in inside):
            self.change("negation", index, last, f"(!{self.spelled(index, last)})")

    # Constants and lengths

    def makes_room(self, first):
        """Whether the brackets hold the size of an array that is declared there, or of memory that is asked for."""
        if self.text(first) == "(":
            return self.text(first - 1) in ("malloc", "calloc")
        return self.text(first) == "[" and self.kind(first - 1) == self.kind(first - 2) == "name" \
            and self.text(first - 2) not in NO_STATEMENT

    def larger(self, index, last, after):
        """More room than is needed is no fault, so that no test looks for it."""
        if not any(start < index < end for start, end in self.rooms):
            self.change("constant", index, last, after)

    def constants(self, index):
        token = self.tokens[index]
        if token.kind == "number":
            self.number(index)
        elif token.kind == "char":
            self.change("constant", index, index, _next_char(token.text))
        elif token.text in WORDS:
            self.change("constant", index, index, WORDS[token.text])
        elif token.text == "sizeof":
            last = self.end_of_operand(index + 1)
            self.change("constant", index, last, f"({self.spelled(index, last)} - 1)")
            self.larger(index, last, f"({self.spelled(index, last)} + 1)")
        elif token.text == "size" and self.text(index - 1) in (".", "->") and self.text(index + 1) == "(":
            for after in ("size() - 1", "size() + 1"):
                self.change("constant", index, index + 2, after)
        elif token.kind == "name" and NAMED_CONSTANT.fullmatch(token.text) and self.is_value(index):
            self.larger(index, index, f"({token.text} + 1)")

    def number(self, index):
        digits, suffix = re.fullmatch(r"(0[xX][0-9a-fA-F]+|[0-9.]+)([uUlL]*)", self.text(index)).groups()
        value, spell = _value(digits)
        self.larger(index, index, spell(value + 1) + suffix)
        if value > 0:
            self.change("constant", index, index, spell(value - 1) + suffix)

    def is_value(self, index):
        """A use, not a declaration, a label, a type or a macro with arguments."""
        before, after = self.text(index - 1), self.text(index + 1)
        declares = self.kind(index - 1) == "name" and before not in ("return", "sizeof")
        if declares or before == "::" or after in ("(", "::", "{", "*", "&") or self.kind(index + 1) == "name":
            return False
        return not (after in ("=", ",", "}") and self.in_enum(index))

    def in_enum(self, index):
        for first, last in self.partner.items():
            if first < index < last and self.text(first) == "{":
                head = [self.text(at) for at in range(max(0, first - 4), first)]
                if "enum" in head:
                    return True
        return False

    def end_of_operand(self, index):
        last = self.partner.get(index, index)
        while self.text(last + 1) in (".", "->", "[", "::"):
            last = self.partner.get(last + 1, last + 2)
        return last

    # Statements

    def begins_statement(self, index):
        before = self.text(index - 1)
        if self.text(index) == "{":
            return False
        if before == ")":
            opening = next(first for first, last in self.partner.items() if last == index - 1)
            return self.text(opening - 1) in ("if", "while", "for")
        return before in (";", "{", "}", "else", ":")

    def end_of_statement(self, index):
        while index < len(self.tokens) and self.text(index) not in (";", "}"):
            index = self.partner.get(index, index) + 1
        return index if self.text(index) == ";" else None

    def statements(self, index):
        if not self.begins_statement(index):
            return
        last = self.end_of_statement(index)
        if last is None:
            return
        text = self.text(index)
        if text == "return" and last > index + 1:
            self.returned(index, last)
        elif text in JUMPS:
            self.change("jump", index, last, "{}")
        elif self.is_call(index, last):
            self.change("call", index, last, "{}")
        elif self.is_assignment(index, last):
            self.change("assignment", index, last, "{}")

    def returned(self, index, last):
        value = self.spelled(index + 1, last - 1)
        constant = value.isdigit() or value in WORDS or NAMED_CONSTANT.fullmatch(value)
        if not constant and value not in ("nullptr", "{}"):
            self.change("return", index, last, "return {};")
        if self.text(last - 1) == ")":
            self.change("return", index, last, "return;")

    def is_call(self, index, last):
        if self.text(index) == "(" and self.text(index + 1) == "void":
            index += 3
        while self.kind(index) == "name" and self.text(index) not in NO_STATEMENT:
            index += 1
            if self.text(index) == "(":
                index = self.partner[index] + 1
            if index == last:
                return self.text(last - 1) == ")"
            if self.text(index) not in ("::", ".", "->"):
                return False
            index += 1
        return False

    def is_assignment(self, index, last):
        if self.text(index) in ("++", "--"):
            return True
        if self.text(index) in NO_STATEMENT or self.text(last - 1) in ("delete", "default"):
            return False
        at = index
        while at < last and self.text(at) not in ASSIGNMENTS:
            declares = self.kind(at) == "name" and (self.kind(at + 1) == "name" or self.text(at + 1) in ("*", "&", "<"))
            if declares:
                return False
            at = self.partner.get(at, at) + 1
        return at < last

    # Arguments

    def arguments(self, index):
        if self.text(index) != "(" or self.kind(index - 1) != "name" or self.text(index - 1) in NO_STATEMENT:
            return
        parts, first = [], index + 1
        for at in self.commas(index) + [self.partner[index]]:
            if at > first:
                parts.append((first, at - 1))
            first = at + 1
        for one, two in zip(parts, parts[1:]):
            if self.look_alike(one, two):
                self.change("swap", one[0], two[1], f"{self.spelled(*two)}, {self.spelled(*one)}")

    def commas(self, index):
        found, at = [], index + 1
        while at < self.partner[index]:
            if self.text(at) == ",":
                found.append(at)
            at = self.partner.get(at, at) + 1
        return found

    def look_alike(self, one, two):
        def shape(first, last):
            declares = any(self.kind(at) == "name" and self.kind(at + 1) == "name" or self.text(at + 1) in ("*", "&")
                           and not self.between_blanks(at + 1) for at in range(first, last))
            return declares, self.kind(first) == "text", self.text(first) == "&", self.text(first) == "nullptr"
        return not shape(*one)[0] and shape(*one) == shape(*two) and self.spelled(*one) != self.spelled(*two)

    # Texts

    def texts(self, index):
        if self.kind(index) == "text" and self.text(index - 1) != "extern":
            self.change("text", index, index, _changed_text(self.text(index)))

    def all(self):
        for index in range(len(self.tokens)):
            for find in (self.operators, self.constants, self.statements, self.arguments, self.texts):
                find(index)
        return _told_apart(self.mutants)


def _told_apart(mutants):
    """Lines that are alike make changes that are alike: they are numbered."""
    alike, seen, apart = collections.Counter(mutant.change for mutant in mutants), collections.Counter(), []
    for mutant in mutants:
        seen[mutant.change] += 1
        number = f" [{seen[mutant.change]} of {alike[mutant.change]}]" if alike[mutant.change] > 1 else ""
        apart.append(dataclasses.replace(mutant, change=mutant.change + number))
    return apart


def _value(digits):
    """The number, and how another one is written in the same way; of a fraction its last place counts."""
    if digits[:2] in ("0x", "0X"):
        return int(digits, 16), hex
    if "." in digits:
        places = len(digits.partition(".")[2])
        return int(digits.replace(".", "")), lambda value: f"{value // 10 ** places}.{value % 10 ** places:0{places}}"
    if digits[0] == "0" and digits != "0":
        return int(digits, 8), lambda value: f"0{value:o}"
    return int(digits), str


def _next_char(literal):
    body = literal[1:-1]
    escapes = {"\\0": 0, "\\t": 9, "\\n": 10, "\\v": 11, "\\f": 12, "\\r": 13, "\\\\": 92, "\\'": 39}
    after = (escapes[body] if body in escapes else ord(body)) + 1
    plain = 32 <= after < 127 and chr(after) not in "'\\"
    return f"'{chr(after)}'" if plain else f"'\\x{after:02x}'"


def _changed_text(literal):
    """One letter becomes the next of the alphabet; a text without letters loses its first character."""
    body = literal[1:-1]
    units = re.findall(r"\\.|%[-0-9.*]*(?:hh|h|ll|l|z)?[a-zA-Z%]|.", body)
    letters = [at for at, unit in enumerate(units) if len(unit) == 1 and unit.isalpha()]
    if letters:
        at = letters[zlib.crc32(body.encode()) % len(letters)]
        units[at] = {"z": "a", "Z": "A"}.get(units[at], chr(ord(units[at]) + 1))
    elif units:
        del units[0]
    else:
        units = ["x"]
    return '"' + "".join(units) + '"'


def all_mutants(root):
    """Of every source and header in those folders below root, sorted by path and place."""
    mutants = []
    for folder in FOLDERS:
        for path in sorted(pathlib.Path(root, folder).iterdir()):
            if path.suffix in (".cpp", ".h"):
                mutants += _File(f"{folder}/{path.name}", path.read_text()).all()
    return mutants
