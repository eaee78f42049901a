"""What `./dev check` runs to see that the faults of `./dev mutants` are found where they should be."""

import unittest

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

    def test_the_sample_hardly_changes_with_the_tree(self):
        moved = {each.order("1") for each in mutations_of("thing.cpp", "\n\n" + SOURCE)}
        self.assertEqual(moved, {each.order("1") for each in mutations_of("thing.cpp", SOURCE)})


if __name__ == "__main__":
    unittest.main()
