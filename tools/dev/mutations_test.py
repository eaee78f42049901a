"""What `./dev check` runs to see that the faults of `./dev mutants` are found where they should be, and judged."""

import pathlib
import tempfile
import unittest

import mutants
from mutations import mutations_of

SOURCE = """\
#include "a.h"  // a < b

namespace kvl {
void Thing::update(int count) {
  // nothing == here
  MutexLocker lock(mutex_);
  if (count < 3 && !isClosed_) {
    log("a == b");
    close(count, name);
  }
  std::string text("x");
  value_ = count;
}
template <typename T>
bool Thing::is() const {
  return true;
}
}  // namespace kvl
"""


def changed(kind):
    found = [each for each in mutations_of("thing.cpp", SOURCE) if each.kind == kind]
    return [SOURCE[: each.begin] + each.text + SOURCE[each.end :] for each in found], found


class MutationsTest(unittest.TestCase):
    def lines(self, kind):
        return [each.after for each in changed(kind)[1]]

    def test_comparisons_move_their_boundary(self):
        self.assertEqual(self.lines("boundary"), ["if (count <= 3 && !isClosed_) {", "if (count >= 3 && !isClosed_) {"])

    def test_operators_outside_comments_and_texts_only(self):
        self.assertEqual(self.lines("operator"), ["if (count < 3 || !isClosed_) {"])

    def test_conditions_are_negated(self):
        self.assertEqual(self.lines("condition"), ["if (!(count < 3 && !isClosed_)) {"])
        self.assertEqual(self.lines("negation"), ["if (count < 3 && isClosed_) {"])

    def test_locks_are_left_out(self):
        sources, found = changed("dropped lock")
        self.assertEqual([each.line for each in found], [6])
        self.assertNotIn("MutexLocker", sources[0])

    def test_statements_are_dropped_and_declarations_are_not(self):
        _, found = changed("dropped statement")
        self.assertEqual([each.before for each in found], ['log("a == b");', "close(count, name);", "value_ = count;"])

    def test_constants_change(self):
        self.assertEqual(self.lines("constant"), ["if (count < 4 && !isClosed_) {", "return false;"])

    def test_arguments_change_places(self):
        self.assertEqual(self.lines("swapped arguments"), ["close(name, count);"])

    def test_functions_return_at_once(self):
        sources, found = changed("early return")
        self.assertEqual(len(found), 1)
        self.assertIn("update(int count) {\n  return;\n", sources[0])

    def test_equal_lines_have_a_fault_each(self):
        twice = SOURCE.replace("  value_ = count;\n", "  value_ = count;\n  value_ = count;\n")
        found = [each for each in mutations_of("thing.cpp", twice) if each.before == "value_ = count;"]
        self.assertEqual([(each.line, each.nth) for each in found], [(12, 1), (13, 2)])
        self.assertEqual(len({each.order("1") for each in found}), 2)

    def test_the_sample_hardly_changes_with_the_tree(self):
        moved = {each.order("1") for each in mutations_of("thing.cpp", "\n\n" + SOURCE)}
        self.assertEqual(moved, {each.order("1") for each in mutations_of("thing.cpp", SOURCE)})


RUN = "[ RUN      ] Thing.Opens\n[       OK ] Thing.Opens (1 ms)\n[ RUN      ] Thing.Closes\n"


class JudgementTest(unittest.TestCase):
    def judged(self, code, printed):
        run = mutants.judged(code, printed, "thing_tests")
        return run.passed, run.by, run.in_time, run.begun

    def test_a_program_that_ends_well_passes(self):
        self.assertEqual(self.judged(0, RUN), (True, "", True, True))

    def test_the_first_test_that_fails_is_named(self):
        printed = RUN + "[  FAILED  ] Thing.Closes (3 ms)\n[  FAILED  ] 1 test, listed below:\n"
        self.assertEqual(self.judged(1, printed), (False, "Thing.Closes", True, True))

    def test_what_waited_before_it_failed_is_a_question_of_time(self):
        printed = RUN + '[  FAILED  ] Thing.Closes/0, where GetParam() = "a (1 ms)" (60004 ms)\n'
        self.assertEqual(self.judged(1, printed), (False, "Thing.Closes/0", False, True))

    def test_what_hangs_is_a_question_of_time(self):
        self.assertEqual(self.judged(None, RUN), (False, "Thing.Closes (hangs)", False, True))
        ended = RUN + "\nThis test took longer than 40 s: Thing.Closes\n"
        self.assertEqual(self.judged(-6, ended), (False, "Thing.Closes (hangs)", False, True))

    def test_a_crash_is_noticed(self):
        self.assertEqual(self.judged(-11, RUN), (False, "Thing.Closes (ends with -11)", True, True))

    def test_a_program_that_runs_nothing_says_nothing(self):
        self.assertFalse(self.judged(0, "[==========] Running 0 tests from 0 test suites.\n")[3])
        self.assertFalse(self.judged(127, "not found")[3])


class FakeCopy:
    """Builds whatever is wanted; its runs are given."""

    def __init__(self, *runs, compiles=True):
        self.runs, self.compiles, self.faulty = list(runs), compiles, []

    def builds(self, _):
        return self.compiles

    def tests(self, _, __):
        self.faulty.append(self.has_fault)
        return self.runs.pop(0)


class FakeFault:  # of a folder with one test program
    name, folder, tests = "fault", "encoding", None

    def apply(self, copy):
        copy.has_fault = True
        return True

    def take_back(self, copy):
        copy.has_fault = False


class VerdictTest(unittest.TestCase):
    passes, fails = mutants.Run(True), mutants.Run(False, "Thing.Closes")
    hangs = mutants.Run(False, "Thing.Closes (hangs)", in_time=False)
    runs_nothing = mutants.Run(False, "there is no program", begun=False)

    def verdict(self, *runs, compiles=True):
        copy = FakeCopy(*runs, compiles=compiles)
        outcome = mutants.tried(copy, FakeFault())
        return outcome.verdict, copy.faulty

    def test_what_fails_at_once_is_killed(self):
        self.assertEqual(self.verdict(self.fails), ("killed", [True]))

    def test_what_passes_has_survived(self):
        self.assertEqual(self.verdict(self.passes), ("survived", [True]))

    def test_what_hangs_is_killed_when_the_program_passes_without_the_fault(self):
        self.assertEqual(self.verdict(self.hangs, self.passes), ("killed", [True, False]))

    def test_what_hangs_without_the_fault_too_is_tried_once_more(self):
        self.assertEqual(self.verdict(self.hangs, self.hangs, self.passes), ("survived", [True, False, True]))
        self.assertEqual(self.verdict(self.hangs, self.hangs, self.hangs, self.hangs)[0], "invalid")

    def test_what_is_not_compiled_or_not_run_is_invalid(self):
        self.assertEqual(self.verdict(compiles=False), ("invalid", []))
        self.assertEqual(self.verdict(self.runs_nothing), ("invalid", [True]))

    def test_the_result_is_there_before_the_end(self):
        with tempfile.TemporaryDirectory() as folder:
            result = pathlib.Path(folder) / "result"
            mutants.write_result(result, [mutants.Outcome("a", "notary", "killed")])
            self.assertIn('"fault": "a"', result.read_text())


class MeasuringCopy(mutants.Copy):
    """Whose runs are given, for each program."""

    def __init__(self, runs):
        super().__init__(0)
        self.runs, self.measured = runs, []

    def tests(self, program, only=None):
        self.measured.append(program)
        return self.runs[program].pop(0)

    def printed(self):
        return "what it printed"


class MeasurementTest(unittest.TestCase):
    def test_each_program_is_measured_by_one_copy(self):
        runs = {name: [mutants.Run(True, seconds=2)] for name in "abcde"}
        copies = [MeasuringCopy(runs) for _ in range(3)]
        self.assertEqual(mutants.measured(copies, list("abcde")), dict.fromkeys("abcde", 38))
        self.assertEqual(sorted(name for copy in copies for name in copy.measured), list("abcde"))

    def test_what_fails_twice_without_a_fault_ends_all(self):
        fails = mutants.Run(False, "Thing.Closes")
        self.assertEqual(MeasuringCopy({"a": [fails, mutants.Run(True, seconds=1)]}).measure("a"), 34)
        copies = [MeasuringCopy({"a": [fails, fails], "b": [mutants.Run(True)]}) for _ in range(2)]
        with self.assertRaisesRegex(mutants.Unusable, "a fails without any fault: Thing.Closes"):
            mutants.measured(copies, ["a", "b"])


if __name__ == "__main__":
    unittest.main()
