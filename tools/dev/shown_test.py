"""What `./dev check` runs to see that a page with other code than the compiled one is noticed."""
import pathlib
import tempfile
import unittest

import shown

CODE = "int main() {\n  return 0;\n}\n"


class ShownTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        file = self.root / "examples/minimal/main.cpp"
        file.parent.mkdir(parents=True)
        file.write_text(CODE)

    def faults(self, head, text, name="docs/guides/a.md"):
        return [each.rpartition(": ")[2] for each in
                shown.faults(name, f"Text\n\n```{head}\n{text}```\nmore\n", self.root)]

    def test_a_whole_file_has_to_be_whole(self):
        self.assertEqual(self.faults("cpp examples/minimal/main.cpp", CODE), [])
        for other in (CODE[:-2], CODE.replace("0", "1"), CODE + "\n", ""):
            self.assertEqual(self.faults("cpp examples/minimal/main.cpp", other),
                             ["the block differs from examples/minimal/main.cpp"])

    def test_a_part_has_lines_that_follow_each_other(self):
        for part in ("  return 0;\n", "return 0;\n", "int main() {\n  return 0;\n"):
            self.assertEqual(self.faults("cpp from examples/minimal/main.cpp", part), [])
        for other in ("return 1;\n", "int main() {\n}\n", "return\n", "n 0;\n", "\n", ""):
            self.assertEqual(self.faults("cpp from examples/minimal/main.cpp", other),
                             ["the block is no part of examples/minimal/main.cpp"])

    def test_code_of_a_guide_names_a_file_that_is_there(self):
        self.assertEqual(self.faults("cpp", CODE), ["the block names no file"])
        self.assertEqual(self.faults("", CODE), ["the block names no file"])
        self.assertEqual(self.faults("cpp examples/none.cpp", CODE), ["there is no examples/none.cpp"])
        self.assertEqual(self.faults("sh run", "true\n") + self.faults("text", "so\n"), [])

    def test_other_pages_may_show_code_of_their_own(self):
        self.assertEqual(self.faults("cpp", "int other;\n", "docs/a.md"), [])
        self.assertEqual(len(self.faults("cpp examples/minimal/main.cpp", "int;\n", "docs/a.md")), 1)

    def test_the_first_code_of_the_readme_is_the_smallest_host(self):
        self.assertEqual(self.faults("cpp", CODE, "README.md"), [])
        for head, text in (("cpp", "int other;\n"), ("sh", CODE)):
            self.assertEqual(self.faults(head, text, "README.md"),
                             ["the block differs from examples/minimal/main.cpp"])

    def test_a_block_without_an_end_is_none(self):
        page = "```cpp examples/minimal/main.cpp\n" + CODE
        self.assertEqual(len(list(shown.faults("docs/guides/a.md", page, self.root))), 1)


if __name__ == "__main__":
    unittest.main()
