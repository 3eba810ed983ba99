#!/usr/bin/env python3
"""What the mutants of a piece of code are, which of them a run takes, and how the explained ones are read."""
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import draw
import mutations
import survivors


def mutants(source):
    """Of a tree with that one file."""
    with tempfile.TemporaryDirectory() as root:
        for folder in mutations.FOLDERS:
            pathlib.Path(root, folder).mkdir()
        pathlib.Path(root, "net", "sock.cpp").write_text(source)
        return mutations.all_mutants(root)


def changed(kind, body):
    """The bodies of a function after each mutation of the kind."""
    head, tail = "void F() { ", " }\n"
    source = head + body + tail
    return [mutant.apply(source)[len(head):-len(tail)] for mutant in mutants(source) if mutant.kind == kind]


class Mutations(unittest.TestCase):
    def test_each_kind(self):
        for kind, body, after in (
            ("comparison", "if (a < b) f();", ["if (a <= b) f();", "if (a >= b) f();"]),
            ("comparison", "return a == b;", ["return a != b;"]),
            ("arithmetic", "x = a - b;", ["x = a + b;"]),
            ("arithmetic", "return -err;", ["return err;"]),
            ("arithmetic", "for (;; ++i) f();", ["for (;; --i) f();"]),
            ("logic", "x = a && b;", ["x = a || b;"]),
            ("negation", "x = !a;", ["x = a;"]),
            ("negation", "if (a || b) f();", ["if (!(a || b)) f();"]),
            ("negation", "if (f(a)) g();", ["if (!(f(a))) g();"]),
            ("constant", "x = 1;", ["x = 2;", "x = 0;"]),
            ("constant", "x = 0x10u;", ["x = 0x11u;", "x = 0xfu;"]),
            ("constant", "x = 0640;", ["x = 0641;", "x = 0637;"]),
            ("constant", "x = 0.010;", ["x = 0.011;", "x = 0.009;"]),
            ("constant", "x = 0.0;", ["x = 0.1;"]),
            ("constant", "x = 'a';", ["x = 'b';"]),
            ("constant", r"x = '\0';", [r"x = '\x01';"]),
            ("constant", "x = true;", ["x = false;"]),
            ("constant", "return kSockOk;", ["return (kSockOk + 1);"]),
            ("constant", "f(sizeof a.b);", ["f((sizeof a.b - 1));", "f((sizeof a.b + 1));"]),
            ("constant", "char a[8];", ["char a[7];"]),
            ("constant", "char a[kSize + 1];", ["char a[kSize + 0];"]),
            ("constant", "a[8] = 0;", ["a[9] = 0;", "a[7] = 0;", "a[8] = 1;"]),
            ("constant", "f(std::calloc(1, sizeof(T)));", ["f(std::calloc(0, sizeof(T)));",
                                                           "f(std::calloc(1, (sizeof(T) - 1)));"]),
            ("constant", "f(a.size());", ["f(a.size() - 1);", "f(a.size() + 1);"]),
            ("call", "f(a);", ["{}"]),
            ("call", "if (a) std::g(b, c);", ["if (a) {}"]),
            ("call", "(void)a.f(b);", ["{}"]),
            ("swap", "x = f(a, b);", ["x = f(b, a);"]),
            ("return", "return a + b;", ["return {};"]),
            ("return", "return f(a);", ["return {};", "return;"]),
            ("jump", "if (a) return;", ["if (a) {}"]),
            ("assignment", "*a = b;", ["{}"]),
            ("assignment", "a->b[c] += d;", ["{}"]),
            ("text", 'x = "%d z\\n";', ['x = "%d a\\n";']),
            ("text", 'x = "\\t";', ['x = "";']),
        ):
            with self.subTest(kind=kind, body=body):
                self.assertEqual(after, changed(kind, body))

    def test_what_is_left_alone(self):
        for source in ("// a < b\n", "/* 1 */\n", "#define K 1\n", "#if 1 \\\n && 2\n#endif\n",
                       "static_assert(sizeof(int) == 4);\n", "[[gnu::format(printf, 1, 2)]];\n",
                       "A(const A &) = delete;\n",
                       "enum E : int {\n  kA,\n};\n", "void f(int a, int b);\n", 'extern "C" {}\n'):
            with self.subTest(source=source):
                self.assertEqual([], mutants(source))

    def test_a_declaration_is_no_assignment_and_no_call(self):
        for body in ("int a = b;", "char *a = b;", "const auto a = b;", "std::size_t a = b;", "T a(b);"):
            with self.subTest(body=body):
                self.assertEqual([], changed("assignment", body) + changed("call", body))

    def test_the_place_and_the_change(self):
        one = mutants("int a;\nvoid F() {\n  f(\n      b);\n}\n")[0]
        self.assertEqual(("net/sock.cpp", 3, "call", "f( b); -> {}"), (one.path, one.line, one.kind, one.change))

    def test_lines_that_are_alike_are_told_apart(self):
        changes = [mutant.change for mutant in mutants("void F() {\n  f();\n  f();\n}\n")]
        self.assertEqual(["f(); -> {} [1 of 2]", "f(); -> {} [2 of 2]"], changes)


class Drawing(unittest.TestCase):
    ALL = mutants("void F() { x = a + b; " + "f(g(a) && 1); " * 50 + "}\n")

    def test_the_seed_decides(self):
        self.assertEqual(draw.order(self.ALL, 1), draw.order(self.ALL, 1))
        self.assertNotEqual(draw.order(self.ALL, 1), draw.order(self.ALL, 2))

    def test_all_come_once(self):
        order = draw.order(self.ALL, 1)
        self.assertEqual(set(self.ALL), set(order))
        self.assertEqual(len(self.ALL), len(order))

    def test_every_beginning_is_spread_over_the_kinds(self):
        calls = [mutant.kind for mutant in draw.order(self.ALL, 1)[:len(self.ALL) // 2]].count("call")
        self.assertTrue(24 <= calls <= 26, calls)


class Survivors(unittest.TestCase):
    def reasons(self, text):
        with tempfile.NamedTemporaryFile("w", suffix=".txt") as file:
            file.write(text)
            file.flush()
            return survivors.explained(pathlib.Path(file.name))

    def test_a_reason_may_take_several_lines(self):
        text = "# remark\n\nnet/a.cpp: x -> y\n    one\n    two\n"
        self.assertEqual({"net/a.cpp: x -> y": "one two"}, self.reasons(text))

    def test_no_reason_and_no_mutant_are_refused(self):
        for text in ("net/a.cpp: x -> y\n", "    a reason\n"):
            with self.subTest(text=text), self.assertRaises(survivors.Malformed):
                self.reasons(text)

    def test_what_the_sources_have_no_more_is_named(self):
        self.assertEqual(["net/a.cpp: x -> y"], survivors.outdated({"net/a.cpp: x -> y": "r"}, []))


unittest.main()
