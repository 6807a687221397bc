import importlib.machinery
import importlib.util
import os
import sys
import unittest
from unittest import mock

SCRIPTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../scripts")
sys.path[:0] = [SCRIPTS, os.path.join(SCRIPTS, "mutation")]

from faults import Source, draw, shares_of
from switches import HEAD, Switches


class MutateTests(unittest.TestCase):
    def mutants(self, code, kind=None, path="kxmd/base/KXThing.cpp"):
        """The code after each mutation, of one kind or of any."""
        source = Source(path, code)
        return [source.apply(mutation) for mutation in source.mutations() if kind in (None, mutation.kind)]

    def in_function(self, statement, kind=None):
        """The statement, alone in a function, after each mutation."""
        start, end = "int function()\n{\n    ", "\n    call(value);\n    return value;\n}\n"
        return [mutant[len(start):-len(end)] for mutant in self.mutants(start + statement + end, kind)
                if mutant.startswith(start) and mutant.endswith(end) and mutant != start + statement + end]

    def assert_kind(self, kind, statement, *expected):
        self.assertEqual(sorted(self.in_function(statement, kind)), sorted(expected))

    def assert_silent(self, code):
        self.assertEqual(self.mutants(code), [])

    def test_relations(self):
        for relation, other in (("<", "<="), ("<=", "<"), (">", ">="), (">=", ">"), ("==", "!="), ("!=", "==")):
            self.assert_kind("relation", f"while (a {relation} b)", f"while (a {other} b)")

    def test_brackets_of_templates_are_no_relations(self):
        self.assert_kind("relation", "std::array<int, two> const a = static_cast<Type<int>>(b);")
        self.assert_kind("relation", "return call<a>(b) <=> c->d;")
        self.assert_silent("template <typename T, int count = 3> void call(T&& value);\n")

    def test_and_or(self):
        self.assert_kind("and/or", "while (a\n    && b || c)", "while (a\n    || b || c)",
                         "while (a\n    && b && c)")
        self.assert_kind("and/or", "for (auto&& a : b)")

    def test_removed_not(self):
        self.assert_kind("not", "while (!a)", "while (a)")

    def test_added_not(self):
        self.assert_kind("not", "while (a && b(c, d) || e)", "while (a && !b(c, d) || e)",
                         "while (a && b(c, d) || !e)")
        self.assert_kind("not", "while (a && b == c && 0)")
        self.assert_kind("not", "return a;", "return !a;")
        self.assert_kind("not", "return a && true;", "return !a && true;")
        for value in ("true", "nullptr", "std::nullopt", "{ a }", "0", "a < b"):
            self.assert_kind("not", f"return {value};")

    def test_integers(self):
        for number, *others in (("0", "1"), ("10", "9", "11"), ("1'000u", "999u", "1001u"),
                                ("0xFF", "0xFE", "0x100"), ("0x0a", "0x09", "0x0b"),
                                ("0x10ull", "0x0Full", "0x11ull"), ("0644", "0643", "0645"), ("1ll", "0ll", "2ll")):
            self.assert_kind("constant", f"a = {number};", *(f"a = {other};" for other in others))
        self.assert_kind("constant", "a1 = b2;")

    def test_fractions(self):
        self.assert_kind("constant", "a = 1.1329f;", "a = 2.1329f;", "a = 0.1329f;")
        self.assert_kind("constant", "a = 255.;", "a = 256.0;", "a = 254.0;")
        self.assert_kind("constant", "a = 1e3;", "a = 1001.0;", "a = 999.0;")

    def test_booleans(self):
        self.assert_kind("constant", "a = true;", "a = false;")
        self.assert_kind("constant", "return false;", "return true;")

    def test_plus_and_minus(self):
        self.assert_kind("plus/minus", "a = -b + c;", "a = -b - c;")
        self.assert_kind("plus/minus", "a -= b;", "a += b;")
        self.assert_kind("plus/minus", "a += b;", "a -= b;")
        self.assert_kind("plus/minus", "++a;")
        self.assert_kind("plus/minus", 'a = "b" + c;')

    def test_dropped_statements(self):
        for statement in ("call(a);", "_a->call<int>(b)[c];", "a = b * c;", "*a += b;", "(void)call();",
                          "++a;", "std::sort(a, [](auto b) { return c; });", "a.call(\n        b);"):
            self.assert_kind("statement", statement, ";")
        self.assert_kind("statement", "if (a)\n        call(b);", "if (a)\n        ;")
        self.assert_kind("statement", "call(a); // Why.", "; // Why.")

    def test_declarations_and_control_are_not_dropped(self):
        for statement in ("int a;", "Type const& a = b;", "Type& a = b;", "std::vector<int> a(b);", "Type a { b };",
                          "auto [a, b] = c;", "using A = B;", "break;", "while (a);", "static_assert(a);",
                          "call(a); call(b);", "case a: call(b);"):
            self.assert_kind("statement", statement)

    def test_early_returns_are_dropped(self):
        self.assert_kind("statement", "if (a)\n        return b;", "if (a)\n        ;")
        self.assert_kind("statement", "if (a) {\n        return b;\n    }", "if (a) {\n        ;\n    }")
        self.assertEqual(self.mutants("int a()\n{\n    return b;\n}\n", "statement"), [])

    def test_nothing_is_dropped_outside_functions(self):
        for code in ("class A {\n    A();\n    b(c);\n};\n", "namespace {\nA(b);\n}\n", "A(b);\n"):
            self.assertEqual(self.mutants(code, "statement"), [])

    def test_branches(self):
        self.assert_kind("branch", "if (a < b)", "if (!(a < b))")
        self.assert_kind("branch", "if (auto a = b; a->c())", "if (auto a = b; !(a->c()))")
        self.assert_kind("branch", "if (auto a = b())")
        self.assert_kind("branch", "call(a ? b : c, d);", "call(a ? c : b, d);")
        self.assert_kind("branch", "a = b ? c ? d : e : f;", "a = b ? f : c ? d : e;", "a = b ? c ? e : d : f;")
        self.assert_kind("branch", "a = b ? c\n        : d ? e : f;", "a = b ? d ? e : f\n        : c;",
                         "a = b ? c\n        : d ? f : e;")

    def test_byte_order(self):
        self.assert_kind("byte order", "read(KXSwap::yes);", "read(KXSwap::no);")
        self.assert_kind("byte order", "read(KXSwap::no);", "read(KXSwap::yes);")
        self.assert_kind("byte order", "a = __builtin_bswap32(b);", "a = (b);")
        self.assert_kind("byte order", "a = b << 8 | c >> 24 | d << 3 | 16;", "a = b << 0 | c >> 24 | d << 3 | 16;",
                         "a = b << 8 | c >> 16 | d << 3 | 16;")

    def test_jumps(self):
        self.assert_kind("jump", "break;", "continue;")
        self.assert_kind("jump", "continue;", "break;")

    def test_emptied_log(self):
        self.assert_kind("log", 'KXLog("Metadata", "a %i"\n        "b", c);', 'KXLog("Metadata", "", c);')
        self.assert_kind("statement", 'KXLog("Metadata", "a");', ";")

    def test_comments_strings_and_directives_are_left_alone(self):
        for code in ("#include <a> // 1 < 2", "#define A 1 \\\n    + 2", "// a < 1 && !b", "/// Doc: `a == 1`.",
                     "/* return 1 + 2;\n call(3); */", 'char const* a = "1 < 2 \\" && 3";',
                     "char const a = '\\'', b = '1';", 'char const* a = R"(1 < 2\n" && 3)";',
                     'char const* a = u8R"-(1 < 2)" && 3)-";'):
            self.assert_silent(code + "\n")

    def test_what_only_names_or_checks_is_left_alone(self):
        for code in ("enum class A : int {\n    b = 1,\n    c = 2 + 3,\n};", "static_assert(1 < 2 && a);",
                     "using A = std::array<int, 3>;", "[[deprecated(1)]] void a();",
                     "void a() __attribute__((format(printf, 1, 2)));",
                     "struct A {\n    virtual void b() const = 0;\n    bool operator==(A const&) const = default;\n};"):
            self.assert_silent(code + "\n")

    def test_values_of_classes_and_files(self):
        self.assertEqual(self.mutants("struct A {\n    int b { 0 };\n};\n"), ["struct A {\n    int b { 1 };\n};\n"])
        self.assertEqual(len(self.mutants("constexpr int a = 2;\n", "constant")), 2)

    def test_body_is_told_from_layout(self):
        code = "struct A {\n    std::array<int, 3> _b;\n    int c() { return 3; }\n};\n"
        found = {mutation.line: mutation.is_in_body for mutation in Source("kxmd/a/A.h", code).mutations()}
        self.assertEqual(found, {2: False, 3: True})

    def test_texts_show_the_statement_on_one_line(self):
        code = "void a()\n{\n    b();\n    if (c // Why.\n        && d)\n        return e + f; // That.\n}\n"
        source = Source("a.cpp", code)
        [mutation] = [mutation for mutation in source.mutations() if mutation.kind == "plus/minus"]
        self.assertEqual(mutation.line, 6)
        self.assertEqual(source.texts(mutation), ("if (c && d) return e + f;", "if (c && d) return e - f;"))

    def test_texts_show_the_whole_head_of_a_loop(self):
        source = Source("a.cpp", "void a()\n{\n    for (b;\n        c < d; ++e)\n        f();\n}\n")
        [mutation] = [mutation for mutation in source.mutations() if mutation.kind == "relation"]
        self.assertEqual(source.texts(mutation), ("for (b; c < d; ++e)", "for (b; c <= d; ++e)"))

    def test_function_around(self):
        for before, after in (("int a()\n{", "}\n"), ("A::A()\n    : _b { 1, 2 }\n    , _c { 3 }\n{", "}\n"),
                              ("struct A {\n    int a() const override {", "}\n};\n"), ("auto a() -> B {", "}\n"),
                              ("namespace {\nint a() {\n    if (b) {\n        c();\n    }\n", "}\n}\n")):
            source = Source("a.cpp", before + "\n    return x + y;\n" + after)
            [mutation] = [mutation for mutation in source.mutations() if mutation.kind == "plus/minus"]
            start, end = source.function_around(mutation)
            self.assertIn("return x + y;", source.text[start:end])
            self.assertEqual(source.text[start - 1] + source.text[end:], "{" + after)

    def test_nothing_is_a_function_around_values(self):
        for code in ("int a = b + c;\n", "int a { b + c };\n", "constexpr A a[] { { b + c } };\n",
                     "struct A {\n    int _a { b + c };\n};\n", "A::A()\n    : _b { b + c }\n{\n}\n",
                     "int a()\n{\n}\nint b { b + c };\nint d()\n{\n}\n"):
            source = Source("a.cpp", code)
            for mutation in source.mutations():
                self.assertIsNone(source.function_around(mutation), code)

    def switches(self, code, kind="plus/minus"):
        source = Source("kxmd/a.cpp", code)
        return Switches({source.path: source},
                        [mutation for mutation in source.mutations() if mutation.kind == kind])

    def test_function_is_a_choice_between_its_bodies(self):
        switches = self.switches("int z = 1 + 1;\nint a() { return b - c; }\nint d() { return e + f - g; }\n")
        self.assertEqual(switches.texts()["kxmd/a.cpp"].split("\n"), [
            HEAD, "int z = 1 + 1;", "int a() {", "if (isActiveMutant(2)) { return b + c; } else", "{ return b - c; }",
            "}", "int d() {", "if (isActiveMutant(3)) { return e - f - g; } else",
            "if (isActiveMutant(4)) { return e + f + g; } else", "{ return e + f - g; }", "}", ""])

    def test_mutants_with_errors_lose_their_switch(self):
        switches = self.switches("int a()\n{\n    return b - c;\n}\nint d() { return e + f - g; }\n")
        lines = switches.texts()["kxmd/a.cpp"].split("\n")
        wrong = lines.index("    return b + c;") + 1
        self.assertTrue(switches.drop_blamed(f"/x/source/kxmd/a.cpp:{wrong}:5: error: no\n"
                                             f"/x/source/kxmd/a.cpp:{len(lines) - 3}:1: note: here\n"))
        self.assertEqual(sorted(switches.mutations), [2, 3])
        self.assertNotIn("isActiveMutant(1)", switches.texts()["kxmd/a.cpp"])

    def test_all_of_a_source_lose_their_switch_when_the_code_around_is_blamed(self):
        switches = self.switches("int a()\n{\n    return b - c;\n}\n")
        switches.texts()
        self.assertFalse(switches.drop_blamed("/x/source/kxmd/b.cpp:2:1: error: no\n"))
        self.assertTrue(switches.drop_blamed("../source/kxmd/a.cpp:2:1: error: no\n"))
        self.assertEqual((switches.mutations, switches.texts()), ({}, {}))

    def test_what_no_switch_shows_is_built_by_itself(self):
        loader = importlib.machinery.SourceFileLoader("mutate", os.path.join(SCRIPTS, "mutate"))
        mutate = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutate", loader))
        loader.exec_module(mutate)
        code = "".join(f"int f{i}()\n{{\n    return a{i} + b;\n}}\n" for i in range(3)) + "int c = d + e;\n"
        source = Source("kxmd/a.cpp", code)
        places = [[mutation] for mutation in source.mutations() if mutation.kind == "plus/minus"]
        known = {(source.path, *source.texts(places[0][0]))}
        with (mock.patch.object(mutate, "Tests"), mock.patch.object(mutate, "show"),
              mock.patch.object(mutate, "noticer_of_switched", side_effect=["A.B", ""]) as switched,
              mock.patch.object(mutate, "judge", return_value=("not noticed", "")) as judge):
            trial = mutate.Trial({source.path: source}, known, [mock.Mock()])
            outcomes = trial.try_all(places, 1)
        self.assertEqual([(outcome.line, outcome.verdict) for outcome in outcomes],
                         [(3, "equivalent"), (7, "noticed"), (11, "not noticed"), (13, "not noticed")])
        self.assertEqual([call.args[3] for call in switched.call_args_list], [1, 2])
        self.assertEqual([call.args[3].line for call in judge.call_args_list], [11, 13])

    def sources(self):
        code = "int a()\n{\n" + "    a = b + 1;\n" * 30 + "}\n"
        return [Source("kxmd/base/A.cpp", code), Source("kxmd/base/B.cpp", code), Source("kxmd/mp3/C.cpp", code)]

    def test_seed_decides(self):
        places, sizes = draw(self.sources(), 9, 1)
        self.assertEqual(draw(self.sources(), 9, 1), (places, sizes))
        self.assertNotEqual(draw(self.sources(), 9, 2)[0], places)
        self.assertEqual(sizes, {"kxmd/base": 60, "kxmd/mp3": 30})

    def test_places_are_spread_evenly(self):
        places, _ = draw(self.sources(), 9, 1)
        first = [place[0] for place in places]
        self.assertEqual([mutation.path for mutation in first],
                         ["kxmd/base/A.cpp"] * 3 + ["kxmd/base/B.cpp"] * 3 + ["kxmd/mp3/C.cpp"] * 3)
        self.assertEqual([(mutation.line - 3) // 10 for mutation in first], [0, 1, 2] * 3)

    def test_place_has_every_mutation_of_its_lines_once(self):
        source = Source("kxmd/base/A.cpp", "int a()\n{\n    a = b + 1;\n    return !c;\n}\n")
        [place], _ = draw([source], 1, 1)
        self.assertEqual(sorted(place), sorted(source.mutations()))

    def test_shares(self):
        self.assertEqual(shares_of({"a": 600, "b": 300, "c": 3}, 12), {"a": 7, "b": 3, "c": 2})
        self.assertEqual(shares_of({"a": 600, "b": 1}, 12), {"a": 11, "b": 1})
        self.assertEqual(shares_of({"a": 4, "b": 1}, 12), {"a": 4, "b": 1})
        self.assertEqual(shares_of({}, 12), {})
