"""That a guide which does not do what it says is noticed."""
import contextlib
import io
import os
import pathlib
import tempfile
import unittest

import guide

PAGE = "# Guide\n\n```sh run\n{command}\n```\n\n```{language}\n{shown}\n```\n"


class GuideTest(unittest.TestCase):
    def outcome(self, command="echo printed: $((20 + 3))", shown="printed: 23", language="text"):
        with tempfile.TemporaryDirectory() as folder, contextlib.redirect_stdout(io.StringIO()):
            page = pathlib.Path(folder) / "guide.md"
            page.write_text(PAGE.format(command=command, shown=shown, language=language))
            try:
                guide.follow(page, pathlib.Path(folder), dict(os.environ))
            except guide.Wrong as wrong:
                return str(wrong).splitlines()[0]
        return None

    def test_what_is_printed_is_what_is_shown(self):
        for shown in ("printed: 23", "printed: …", "…: 23"):
            self.assertIsNone(self.outcome(shown=shown))
        for shown in ("printed: 24", "printed", "printed: 23\n23", "…: 24", "printed: 2."):
            self.assertEqual(self.outcome(shown=shown),
                             "line 7: what is printed is not what the guide shows:")

    def test_commands_end_well(self):
        self.assertEqual(self.outcome("echo printed: 23; false"), "line 3: the commands end with 1")
        self.assertEqual(self.outcome("echo printed: 23; no-such-program"), "line 3: the commands end with 127")

    def test_something_is_compared(self):
        for shown, language in (("…", "text"), ("printed: 23", "sh")):
            self.assertEqual(self.outcome(shown=shown, language=language),
                             "the guide shows nothing that a command of it prints")


if __name__ == "__main__":
    unittest.main()
