"""What texts.py finds in translators' files, with planted faults."""
import pathlib
import tempfile
import unittest

import texts

HEAD = 'msgid ""\nmsgstr ""\n"Content-Type: text/plain; charset=UTF-8\\n"\n\n'


class TextsTest(unittest.TestCase):
    def faults(self, entry, name='de.po'):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / name
            path.write_text(HEAD + entry)
            return list(texts.faults(path))

    def test_a_good_translation_is_none(self):
        self.assertEqual(self.faults('msgid "a %@ b %@"\nmsgstr "%2$@ x %1$@"\n'), [])
        self.assertEqual(self.faults('msgid "1 byte"\nmsgid_plural "%1 bytes"\n'
                                     'msgstr[0] "1 Byte"\nmsgstr[1] "%1 Bytes"\n'), [])

    def test_a_placeholder_that_is_missing_or_another_is_told(self):
        for text in ('b', '%@ %@', '%2$@', '%1'):
            self.assertEqual(len(self.faults(f'msgid "a %@"\nmsgstr "{text}"\n')), 1, text)

    def test_a_text_over_several_lines_is_one(self):
        self.assertEqual(len(self.faults('msgid ""\n"a\\n"\n"%@"\nmsgstr ""\n"b\\n"\n"c"\n')), 1)

    def test_what_is_filled_into_text_from_right_to_left_stands_in_an_isolate(self):
        entry = 'msgid "a %@"\nmsgstr "{}"\n'
        self.assertEqual(len(self.faults(entry.format('א %@'), 'he.po')), 1)
        self.assertEqual(self.faults(entry.format('א \u2068%@\u2069'), 'he.po'), [])
        self.assertEqual(self.faults(entry.format('b %@')), [])


if __name__ == '__main__':
    unittest.main()
