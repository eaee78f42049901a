"""That what looks for unexplained log lines and codes, paths of nothing and broken tables finds them."""
import os
import pathlib
import tempfile
import unittest

import paths
import symptoms
import tables

SYMPTOMS = "| `the store is full:` | … |\n| `… is no number` (2) | … |\n"
CODES = """
## `NSURLErrorDomain`

| -1 | `NSURLErrorUnknown` | … |

## `NSPOSIXErrorDomain`

| 22 | `EINVAL` | … |

## `korvale.own`

| 4 | … |

## `kvlocal`

| 2 | … |
"""
TREE = {
    "docs/troubleshooting.md": SYMPTOMS,
    "docs/error-codes.md": CODES,
    "include/local/platform/Error.h": "/// @name Codes of `NSURLErrorDomain`\nconstexpr std::int64_t NSURLErrorUnknown = -1;\n",
    "tools/kvlocal/Output.h": "enum class ExitCode {\n  usage = 2,\n};\n",
    "tools/kvlocal/Text.cpp": 'return jsonText(text) + " is no number";\nreturn {"get", "Fetch a document"};\n',
    "session/A.cpp": 'kvl::log(kvl::LogCategory::session, kvl::LogLevel::error,\n    "the store "\n    "is full: %@", a);\n'
                     'constexpr std::string_view kOwnErrorDomain = "korvale.own";\nError(kOwnErrorDomain, 4);\n'
                     "Error(NSPOSIXErrorDomain, EINVAL);\n",
}


class SymptomsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        for name, text in TREE.items():
            pathlib.Path(name).parent.mkdir(parents=True, exist_ok=True)
            pathlib.Path(name).write_text(text)

    def told_of(self, name, old, new):
        pathlib.Path(name).write_text(TREE[name].replace(old, new))
        return list(symptoms.faults())

    def test_what_is_explained_is_not_told(self):
        self.assertEqual(self.told_of("session/A.cpp", "", ""), [])

    def test_a_new_log_line_is_told(self):
        self.assertIn("does not explain: the store is lost", self.told_of("session/A.cpp", "is full", "is lost")[0])

    def test_a_log_line_whose_text_is_nowhere_is_told(self):
        text = 'log(LogCategory::session, LogLevel::error, pattern, a);'
        self.assertIn("the text behind pattern", self.told_of("session/A.cpp", TREE["session/A.cpp"], text)[0])

    def test_a_new_complaint_is_told(self):
        self.assertIn("explain: is no date", self.told_of("tools/kvlocal/Text.cpp", "is no number", "is no date")[0])

    def test_a_new_code_is_told(self):
        for name, old, new in (("session/A.cpp", "Domain, 4", "Domain, 5"), ("session/A.cpp", "EINVAL", "EIO"),
                               ("tools/kvlocal/Output.h", "= 2", "= 3"),
                               ("include/local/platform/Error.h", "= -1;", "= -2;")):
            self.assertTrue(any("error-codes" in fault for fault in self.told_of(name, old, new)), new)
            pathlib.Path(name).write_text(TREE[name])


class PathsTest(unittest.TestCase):
    NAMES = {"docs/page.md", "platform/core/Log.cpp", "platform/core/Log.h", "tests/a/ATest.cpp"}

    def told_of(self, text):
        page = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory())) / "page.md"
        page.write_text(text)
        paths.pages = lambda: [page]
        return [fault.split(": ")[1] for fault in paths.faults(self.NAMES)]

    def test_what_is_there_is_not_told(self):
        self.assertEqual(self.told_of("`platform/core/`, `core/Log.{h,cpp}`, `Log.cpp`, `tests/a/…Test.cpp`, `and/or`\n"), [])

    def test_what_is_not_there_is_told(self):
        self.assertEqual(self.told_of("`platform/care/`\n```\n`Absent.h`\n```\n`Log.{h,c.cpp}`\n"),
                         ["there is no platform/care/", "there is no Log.c.cpp"])


class TablesTest(unittest.TestCase):
    HEAD = "| a | b |\n|---|---|\n"

    def test_whole_tables_are_not_told(self):
        self.assertEqual(list(tables.faults(self.HEAD + "| `x|y` | \\| |\n\n```\n| no\n```\n" + self.HEAD)), [])

    def test_rows_without_a_head_or_with_other_cells_are_told(self):
        self.assertEqual([number for number, _ in tables.faults(self.HEAD + "| 1 |\n| 1 | 2 |\n\n| 3 | 4 |\n")], [3, 6])


if __name__ == "__main__":
    unittest.main()
