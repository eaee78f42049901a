"""That the checks of pages and of the reference find what they are for."""
import os
import pathlib
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

import links
import page_filter
import porting
import undocumented

DOCUMENTED = "<briefdescription><para>What it is.</para></briefdescription>"


def documented_enumeration(value_comment):
    return ElementTree.fromstring(
        f'<compounddef kind="class"><compoundname>Host</compoundname>{DOCUMENTED}'
        f'<memberdef kind="enum" prot="public"><name>State</name>{DOCUMENTED}'
        f"<enumvalue><name>idle</name>{value_comment}</enumvalue></memberdef></compounddef>")


class InFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        pathlib.Path("other.md").write_text("# Other\n\n## The `state` of it, again\n\n## Twice\n\n## Twice\n")
        self.page = pathlib.Path("page.md")


class LinksTest(InFolder):
    def test_headings_are_found_as_a_forge_names_them(self):
        for link in ("other.md", "other.md#the-state-of-it-again", "other.md#twice-1", "other.md#other"):
            self.assertIsNone(links.fault(self.page, link), link)

    def test_a_link_to_nothing_is_told(self):
        self.assertEqual(links.fault(self.page, "absent.md"), "there is no absent.md")
        self.assertEqual(links.fault(self.page, "other.md#twice-2"), "other.md has no heading #twice-2")

    def test_code_has_no_links_and_no_headings(self):
        text = "```\n## No\n[no](no.md)\n```\n`[no](no.md)` [yes](other.md)\n"
        self.assertEqual([link for _, line in links.lines(text) for link in links.links(line)], ["other.md"])
        self.assertEqual(list(links.anchors(text)), [])

    def test_doxygen_is_led_to_headings_of_other_pages(self):
        page = pathlib.Path("part/page.md")
        page.parent.mkdir()
        page.write_text("# Page\n\n## Here\n\nSee [it](../other.md#twice), [here](#here), [all](../other.md#other).\n")
        text = page_filter.filtered(page, pathlib.Path("copies"))
        self.assertIn("## Here {#part-page--here}", text)
        self.assertIn("[it](#other--twice), [here](#part-page--here), [all](copies/other.md).", text)


class PortingTest(InFolder):
    def uses(self, text):
        self.page.write_text(text)
        return porting.uses_linux(self.page)

    def test_what_linux_alone_has_is_known(self):
        for text in ("#include <sys/eventfd.h>\n", "clock_gettime(CLOCK_BOOTTIME, &time);\n", 'open("/proc/self/exe")\n'):
            self.assertTrue(self.uses(text), text)
        for text in ("// as CLOCK_BOOTTIME does\n", "#include <unistd.h>\n", "poll(&one, 1, -1);\n"):
            self.assertFalse(self.uses(text), text)

    def test_what_the_page_leaves_out_or_names_for_nothing_is_told(self):
        page = "| a | `platform/a.cpp`: x | y | `ATest` |\n"
        told = list(porting.faults(page, {"platform/a.cpp": False, "platform/b.cpp": True, "platform/portable/a.cpp": True}, set()))
        self.assertEqual(len(told), 5)
        self.assertEqual(list(porting.faults(page, {"platform/a.cpp": True}, {"ATest"})), [])


class UndocumentedTest(unittest.TestCase):
    def test_a_value_without_a_comment_is_told(self):
        self.assertEqual(list(undocumented.faults(documented_enumeration(""))), ["Host::State::idle is not documented"])
        self.assertEqual(list(undocumented.faults(documented_enumeration(DOCUMENTED))), [])


if __name__ == "__main__":
    unittest.main()
