"""Cuts C++ text into tokens, as far as the mutations need: comments, preprocessor lines, attributes and static
assertions are left out."""
import dataclasses
import re

_LEFT_OUT = re.compile(r"\s+|//[^\n]*|/\*.*?\*/|\[\[.*?\]\]|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", re.S | re.M)
_KINDS = (
    ("text", re.compile(r'"(?:[^"\\\n]|\\.)*"')),
    ("char", re.compile(r"'(?:[^'\\\n]|\\.)+'")),
    ("number", re.compile(r"0[xX][0-9a-fA-F]+[uUlL]*|[0-9]+\.[0-9]+|[0-9]+[uUlL]*")),
    ("name", re.compile(r"[A-Za-z_]\w*")),
    ("mark", re.compile(r"<<=|>>=|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|::|\.\.\.|[^\w\s]")),
)
_CLOSING = {"(": ")", "[": "]", "{": "}"}


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


def _next(source, at):
    for kind, pattern in _KINDS:
        match = pattern.match(source, at)
        if match:
            return Token(kind, match.group(), at, match.end())
    raise ValueError(f"no token at byte {at}")


def pairs(tokens):
    """The index of the closing token by that of the opening one, for round, square and curly brackets."""
    partner, open_ones = {}, []
    for index, token in enumerate(tokens):
        if token.text in _CLOSING:
            open_ones.append(index)
        elif token.text in _CLOSING.values() and token.kind == "mark":
            partner[open_ones.pop()] = index
    return partner


def _without_static_assertions(tokens):
    partner, kept, index = pairs(tokens), [], 0
    while index < len(tokens):
        if tokens[index].text == "static_assert":
            index = partner[index + 1]
        else:
            kept.append(tokens[index])
        index += 1
    return kept


def tokens_of(source):
    tokens, at = [], 0
    while at < len(source):
        left_out = _LEFT_OUT.match(source, at)
        if left_out:
            at = left_out.end()
            continue
        token = _next(source, at)
        tokens.append(token)
        at = token.end
    return _without_static_assertions(tokens)
