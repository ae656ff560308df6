"""scripts/mutation: what it reads out of C++, what it breaks, whether a switch does what its mutant says, its sums.

The first argument is the C++ compiler."""

import importlib.machinery
import importlib.util
import os
import subprocess
import sys
import tempfile
import unittest

MUTATION = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../scripts/mutation")
COMPILER = sys.argv.pop(1) if len(sys.argv) > 1 else "c++"

sys.dont_write_bytecode = True
sys.path.insert(0, MUTATION)
import cpp_text  # noqa: E402
import mutants  # noqa: E402
import report  # noqa: E402
import running  # noqa: E402

loader = importlib.machinery.SourceFileLoader("mutation_run", os.path.join(MUTATION, "run"))
run = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutation_run", loader))
loader.exec_module(run)


def texts(source):
    return [token.text for token in cpp_text.tokens_of(source)]


def changes(source):
    """What each mutant makes of the only line of a function."""
    found, _ = mutants.mutants_of("x.cpp", f"void f() {{\n{source}\n}}\n")
    return [mutant.after for mutant in found]


class Reading(unittest.TestCase):
    def test_comments_and_preprocessor_lines_are_no_tokens(self):
        self.assertEqual(texts("#if A == 1 \\\n  && B\na /* == */ b // != c\n"), ["a", "b"])

    def test_what_stands_in_quotes_is_one_token(self):
        self.assertEqual(texts(r'''f("a \" == b", '"', 'x')'''), ["f", "(", r'"a \" == b"', ",", "'\"'", ",", "'x'", ")"])

    def test_numbers_and_signs_are_whole(self):
        self.assertEqual(texts("x<<=0xFFu+1'000-bad0->a::b"),
                         ["x", "<<=", "0xFFu", "+", "1'000", "-", "bad0", "->", "a", "::", "b"])

    def test_a_bracket_that_closes_nothing_is_refused(self):
        with self.assertRaisesRegex(cpp_text.Unreadable, "closes nothing"):
            cpp_text.Code("void f() { ) }")
        with self.assertRaisesRegex(cpp_text.Unreadable, "left open"):
            cpp_text.Code("void f() {")

    def test_only_the_code_of_functions_may_be_changed(self):
        found, _ = mutants.mutants_of("x.h", "namespace n {\nstruct A {\n  int a = 1;\n  int b{2};\n"
                                             "  int f(int c = 3) const { return 4; }\n};\nenum E { e = 5 };\n"
                                             "inline const int g = 6;\n}\n")
        self.assertEqual([mutant.after for mutant in found], ["int f(int c = 3) const { return 4 + 1; }"])

    def test_what_the_compiler_alone_evaluates_stays(self):
        self.assertEqual(changes("static_assert(a == 1);"), [])
        self.assertEqual(changes("constexpr int a = 1 + 2;"), [])
        self.assertEqual(changes("auto a = B<1, (2 > 1)>(x);"), [])
        self.assertEqual(changes("assert(a == b);"), [])
        self.assertEqual(changes("using A = B;"), [])


    def test_statements_that_only_ask_for_memory_ahead_stay(self):
        for statement in ("prefetchSectors(step, a + 1, 2);", "__builtin_prefetch(&a[b / 2]);", "a.b->prefetchEvents(c);",
                          "n::prefetchAll(c);"):
            self.assertEqual(changes(statement), [], statement)
        self.assertEqual(changes("if (a) { prefetchSectors(b); }"),
                         ["if (true) { prefetchSectors(b); }", "if (false) { prefetchSectors(b); }"])

    def test_what_does_more_than_ask_for_memory_ahead_is_broken(self):
        self.assertEqual(changes("a = prefetchedBytes(b);"), ["nothing"])
        self.assertEqual(changes("use(prefetched(1));"), ["nothing", "use(prefetched(1 + 1));"])
        self.assertEqual(changes("a().prefetch(b);"), ["nothing"])
        self.assertEqual(changes("prefetched(b);"), ["nothing"])
        self.assertEqual(changes("prefetches += 2;"),
                         ["nothing", "prefetches -= 2;", "prefetches += (2 + 1);"])


class Breaking(unittest.TestCase):
    def test_comparisons(self):
        self.assertEqual(changes("auto c = a == b;"), ["auto c = a != b;"])
        self.assertEqual(changes("auto c = a < b;"), ["auto c = a <= b;", "auto c = a >= b;"])

    def test_sums_and_numbers(self):
        self.assertEqual(changes("auto c = a + b;"), ["auto c = a - b;"])
        self.assertEqual(changes("auto c = a * 7;"), ["auto c = a / 7;", "auto c = a * (7 + 1);"])
        self.assertEqual(changes("auto c = -a;"), [])
        self.assertEqual(changes("auto c = a | b << d | e;"),
                         ["auto c = (a | b << d) & e;", "auto c = a & (b << d) | e;", "auto c = a | b >> d | e;"])

    def test_references_pointers_and_templates_are_no_operators(self):
        self.assertEqual(changes("const A& a = *b;"), [])
        self.assertEqual(changes("A* a = &b;"), [])
        self.assertEqual(changes("std::vector<A> a;"), [])

    def test_operands_of_and_and_or(self):
        self.assertEqual(changes("auto d = a && b && c;"),
                         ["auto d = true && b && c;", "auto d = a && true && c;", "auto d = a && b && true;"])
        self.assertEqual(sorted(changes("auto d = a || f(b, c) && e;")),
                         sorted(["auto d = false || f(b, c) && e;", "auto d = a || false;",
                                 "auto d = a || true && e;", "auto d = a || f(b, c) && true;"]))

    def test_conditions_and_choices(self):
        self.assertEqual(changes("if (a) { return; }"),
                         ["if (true) { return; }", "if (false) { return; }", "if (a) { }"])
        self.assertEqual(changes("if (auto a = b; !a) { }"),
                         ["if (auto a = b; true) { }", "if (auto a = b; false) { }", "if (auto a = b; a) { }"])
        self.assertEqual(changes("if (auto a = b) { }"), [])
        self.assertEqual(changes("auto d = a ? b : c;"), ["auto d = !(a) ? b : c;"])

    def test_statuses_and_truths(self):
        self.assertEqual(changes("return status::ok;"), ["return status::noRecord;"])
        self.assertEqual(changes("return status::miscompare;"), ["return status::ok;"])
        self.assertEqual(changes("return true;"), ["return false;"])

    def test_statements_go_and_declarations_stay(self):
        self.assertEqual(changes("a.b(c);"), ["nothing"])
        self.assertEqual(changes("a -= b;"), ["nothing", "a += b;"])
        self.assertEqual(changes("++a;"), ["nothing"])
        for kept in ("A b(c);", "A& b = c;", "n::A<B> b = c;", "const A b = c;", "auto b = c;"):
            self.assertEqual(changes(kept), [], kept)

    def test_the_colon_of_a_choice_begins_no_statement_and_that_of_a_case_does(self):
        self.assertEqual(changes("return a ? b : c(d);"), ["return !(a) ? b : c(d);"])
        self.assertEqual(changes("switch (a) { case 1: b(c); }"), ["switch (a) { case 1: }"])

    def test_a_key_names_equal_lines_one_by_one_and_outlives_moves_and_comments(self):
        source = "void f() {\n  a();\n  b();\n  a();  // why\n}\n"
        keys = [mutant.key for mutant in mutants.mutants_of("x.cpp", source)[0]]
        self.assertEqual(keys, ["x.cpp: a(); => nothing", "x.cpp: b(); => nothing", "x.cpp: a(); => nothing #2"])
        moved, _ = mutants.mutants_of("x.cpp", "// more\n\n" + source, first_number=50)
        self.assertEqual([mutant.key for mutant in moved], keys)

    def test_a_diff_shows_one_change(self):
        source = "void f() {\n  a();\n  b += 1;\n}\n"
        diff = mutants.mutants_of("x.cpp", source)[0][2].diff(source)
        self.assertEqual([line for line in diff.splitlines() if line[0] in "+-" and line[:3] not in ("+++", "---")],
                         ["-  b += 1;", "+  b -= 1;"])


INCLUDED = "#include <algorithm>\n#include <cstdint>\n#include <cstdio>\n#include <cstdlib>\n#include <optional>\n"
SAMPLE = """
namespace status {
const int32_t ok = 0, noRecord = -1003;
}
int32_t calls = 0;
bool counted(bool value) {
  calls += 1;
  return value;
}
uint64_t count(uint64_t first, uint64_t end, uint32_t step) {
  if (first >= end) {
    return 0;
  }
  return step == 1 ? end - first : (end - first - 1) / step + 1;
}
uint64_t bits(uint64_t a, uint32_t b) { return ~uint64_t{0} >> (64 - b) << a % 64 | (a & 5) * 3; }
int32_t find(std::optional<int> a, const int* b) {
  if (!a || b == nullptr || *a != *b) {
    return status::noRecord;
  }
  return status::ok;
}
int32_t mixed(uint8_t a, int32_t b) {
  int32_t sum = 3;
  for (int32_t i = 0; i < 4; ++i) {
    sum -= a;
    if (counted(a > 2) && counted(b <= i)) {
      continue;
    }
    sum += std::max(b, 2) - i * 2;
  }
  return sum;
}
"""
# Left as it is.
SHOW = """
int show() {
  const int three = 3, four = 4;
  std::printf("%lu %lu %lu ", count(1, 9, 1), count(1, 9, 3), count(5, 5, 2));
  std::printf("%lu %lu ", bits(13, 5), bits(64, 64));
  std::printf("%d %d %d ", find(3, &three), find(3, &four), find(std::nullopt, &four));
  std::printf("%d %d ", mixed(1, 5), mixed(3, 2));
  std::printf("%d\\n", calls);
  return 0;
}
"""


class Switching(unittest.TestCase):
    """Every switch of a sample against the mutant that it stands for, which is compiled by itself."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def compiled(self, name, source, *flags):
        path = os.path.join(self.folder.name, name)
        with open(f"{path}.cpp", "w", encoding="utf-8") as file:
            file.write(source)
        subprocess.run([COMPILER, "-std=c++20", "-w", "-O0", *flags, f"{path}.cpp", "-o", path], check=True, timeout=120)
        return path

    def output(self, path, *words, **environment):
        done = subprocess.run([path, *words], capture_output=True, text=True, timeout=60, check=False,
                              env={**os.environ, **environment})
        return f"{done.stdout}{done.returncode}"

    def test_each_does_what_its_mutant_says_and_none_does_nothing(self):
        found, sites = mutants.mutants_of("x.cpp", SAMPLE)
        self.assertEqual({mutant.rule for mutant in found}, {"operator", "not", "literal", "operand", "condition",
                                                            "choice", "status", "statement"})
        path = self.compiled("switched", f"{INCLUDED}{mutants.switched(SAMPLE, sites)}{SHOW}int main() {{ show(); }}\n",
                             "-include", os.path.join(MUTATION, "Mutation.h"))
        # Mutant 0 is the sample as it is. All stand in one program, as it takes long to compile many.
        plain = {0: SAMPLE, **{mutant.number: mutant.applied(SAMPLE) for mutant in found}}
        parts = [f"namespace m{number} {{{text}{SHOW}}}\n" for number, text in plain.items()]
        cases = "".join(f"case {number}: return m{number}::show();\n" for number in plain)
        all_plain = self.compiled("plain", f"{INCLUDED}{''.join(parts)}int main(int, char** words) {{\n"
                                           f"switch (std::atoi(words[1])) {{ {cases} }}\nreturn 9;\n}}\n")
        outputs = {number: self.output(all_plain, str(number)) for number in plain}
        for number in plain:
            self.assertEqual(self.output(path, CORVANE_MUTANT=str(number)), outputs[number], plain[number])
        # The comparison sees something: most mutants print something else than the sample.
        self.assertGreater(sum(text != outputs[0] for text in outputs.values()), len(plain) * 3 // 4)

    def test_a_program_tells_by_which_switches_it_came(self):
        source = "int f(bool a) {\n  if (a) {\n    return 3;\n  }\n  return 4;\n}\n"
        _, sites = mutants.mutants_of("x.cpp", source, first_number=10)
        path = self.compiled("switched", mutants.switched(source, sites) + "int main() { return f(false) - 4; }\n",
                             "-include", os.path.join(MUTATION, "Mutation.h"))
        reached = os.path.join(self.folder.name, "reached")
        self.assertEqual(self.output(path, CORVANE_MUTANTS_REACHED=reached), "0")
        with open(reached, encoding="ascii") as file:
            self.assertEqual(file.read().split(), ["10", "11", "13"])

    def test_a_switch_that_is_left_out_leaves_the_source_as_it_was(self):
        source = "void f() {\n  a += 1;\n}\n"
        found, sites = mutants.mutants_of("x.cpp", source)
        self.assertEqual(mutants.switched(source, sites, {mutant.number for mutant in found}), source)
        self.assertNotEqual(mutants.switched(source, sites), source)


class Compiling(unittest.TestCase):
    def test_a_mutant_that_the_compiler_makes_the_same_of_is_known(self):
        with tempfile.TemporaryDirectory() as folder:
            build = running.Build(folder, folder, 1, print)
            os.mkdir(build.built)
            source = os.path.join(build.tree, running.AGENT, "A.cpp")
            with open(os.path.join(build.built, "compile_commands.json"), "w", encoding="utf-8") as file:
                file.write('[{"file": "%s", "command": "c++ -std=c++20 -c A.cpp"}]' % source)
            text = "unsigned f(unsigned a) {\n  return a > 0 ? a / 2 : a + 0;\n}\n"
            found, _ = mutants.mutants_of("A.cpp", text)
            same = [mutant.after for mutant in found if build.same_code(mutant, text)]
        self.assertEqual(same, ["return a >= 0 ? a / 2 : a + 0;", "return a > 0 ? a / 2 : a - 0;"])


class Running(unittest.TestCase):
    def program(self, text):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = os.path.join(folder.name, "ATest")
        with open(path, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n" + text)
        os.chmod(path, 0o755)
        return running.Program("ATest", path, 0, reached=frozenset({7}))

    def mutant(self, number=7):
        return mutants.Mutant(number, "A.cpp", "operator", 0, 1, "", 1, "a", "b", 1)

    def test_a_failed_test_kills_and_is_named(self):
        killed, how, met, _ = running.judge(self.mutant(), [self.program('echo "[  FAILED  ] A.Holds (1 ms)"; exit 1')])
        self.assertEqual((killed, how, met), (True, "ATest: A.Holds", 1))

    def test_a_crash_and_a_loop_kill(self):
        self.assertEqual(running.judge(self.mutant(), [self.program("kill -SEGV $$")])[:2], (True, "ATest: signal 11"))
        self.assertEqual(running.judge(self.mutant(), [self.program("while :; do :; done")])[:2],
                         (True, "ATest: too long"))

    def test_a_program_under_which_everything_passes_does_not(self):
        self.assertEqual(running.judge(self.mutant(), [self.program("exit 0")])[0], False)

    def test_the_program_is_told_which_mutant(self):
        self.assertTrue(running.judge(self.mutant(), [self.program('test "$CORVANE_MUTANT" != 7')])[0])

    def test_a_program_that_does_not_come_by_it_is_not_run(self):
        self.assertEqual(running.judge(self.mutant(8), [self.program("exit 1")])[:3], (False, "reached by no test", 0))

    def test_the_own_tests_of_a_file_come_first_then_fast_ones_then_other_folders(self):
        def made(name, rank, cpu):
            return running.Program(name, "", rank, cpu)
        programs = [made("OracleTest", 3, 0.1), made("SlowTest", 0, 5), made("FastTest", 0, 1), made("AModelTest", 2, 9)]
        self.assertEqual([program.name for program in running.order(programs, "A.cpp")],
                         ["AModelTest", "FastTest", "SlowTest", "OracleTest"])

    def test_complaints_of_a_compiler_name_places(self):
        text = ("/b/tree/plugin/Write_Data_Gen/A.cpp:12:5: error: no\n/usr/include/x.h:3:1: error: no\n"
                "/b/tree/plugin/Write_Data_Gen/B.h:7:1:   required from here\n"
                "/b/tree/plugin/Write_Data_Gen/C.h:8:1: note: seen\n")
        self.assertEqual(running.complaints(text), {("A.cpp", "12"), ("B.h", "7")})

    def test_results_outlive_a_stop_and_no_change(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "results")
            running.Results(path, "before").add({"key": "a", "killed": True})
            with open(path, "a", encoding="utf-8") as file:
                file.write('{"key": "b", "kil')
            self.assertEqual(set(running.Results(path, "before").of), {"a"})
            self.assertEqual(running.Results(path, "after").of, {})

    def test_mutants_are_drawn_evenly_and_the_same_for_a_seed(self):
        many = [mutants.Mutant(number, file, "", 0, 0, "", 1, "", "", 1) for number, file in enumerate("aaaaaaaabbbbbbcc")]
        files = [mutant.file for mutant in run.drawn(many, 9, 1)]
        self.assertEqual([files.count(name) for name in "abc"], [4, 3, 2])
        self.assertEqual(run.drawn(many, 9, 1), run.drawn(many, 9, 1))
        self.assertNotEqual(run.drawn(many, 9, 1), run.drawn(many, 9, 2))
        self.assertEqual(len(run.drawn(many, 99, 1)), 16)


def result(key, killed, same=False):
    return {"key": key, "number": 1, "file": key[0], "line": 1, "killed": killed, "same": same, "how": "", "cpu": 1.0, "diff": ""}


class Reporting(unittest.TestCase):
    def test_equivalent_ones_do_not_count(self):
        results = [result(f"a{number}", True) for number in range(9)] + [result("b1", False), result("b2", False)]
        self.assertEqual(report.Outcome(results, {}, 20, 0).status(), 1)
        outcome = report.Outcome(results, {"b1": "why"}, 20, 0)
        self.assertEqual((outcome.percent(), outcome.status()), (90.0, 0))
        self.assertRegex(outcome.text(), r"\nb +2 +0 +1 +1 +0\.0\n")
        self.assertRegex(outcome.text(), r"\nall +11 +9 +1 +1 +90\.0\n")
        self.assertEqual([one["key"] for one in outcome.survivors], ["b2"])

    def test_what_compiles_to_the_same_code_does_not_count(self):
        outcome = report.Outcome([result("a", True), result("b", False, same=True)], {}, 2, 0)
        self.assertEqual((outcome.percent(), len(outcome.same), outcome.survivors), (100.0, 1, []))

    def test_one_that_is_noticed_is_not_equivalent(self):
        self.assertEqual(report.Outcome([result("a", True)], {"a": "why"}, 1, 0).status(), 1)

    def equivalent(self, text, keys):
        with tempfile.NamedTemporaryFile("w", encoding="utf-8") as file:
            file.write(text)
            file.flush()
            return report.equivalent_of(file.name, keys)

    def test_the_list_of_equivalent_ones_gives_reasons(self):
        self.assertEqual(self.equivalent("# all\nx: a => b\n  why\n  not\n", {"x: a => b"}), {"x: a => b": "why not"})

    def test_an_entry_whose_line_has_changed_is_refused(self):
        for text, complaint in (("x: a => b\n  why\n", "no such mutant any more: x: a => b"), ("k\n", "no reason for k"),
                                ("k\n w\nk\n w\n", "named twice"), ("  why\n", "a reason without a mutant")):
            with self.assertRaisesRegex(report.Outdated, complaint):
                self.equivalent(text, {"k"})

    def test_the_entries_of_today_fit_the_sources(self):
        agent = running.Agent(running.sources(run.ROOT))
        self.assertGreater(len(agent.mutants), 300)
        report.equivalent_of(os.path.join(MUTATION, "equivalent.txt"), {mutant.key for mutant in agent.mutants})


if __name__ == "__main__":
    unittest.main()
