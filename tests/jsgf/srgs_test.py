#!/usr/bin/env python3
"""SRGS grammars become JSGF that jsgf-match understands. Usage: srgs_test.py QUILLBROOK_SRGS JSGF_MATCH"""

import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

HEAD = '<?xml version="1.0"?>\n<grammar xmlns="http://www.w3.org/2001/06/grammar" version="1.0" root="order" ' \
       'xml:lang="en-US" tag-format="semantics/1.0-literals">\n'
ORDER = HEAD + """<rule id="order" scope="public"><example>a tea</example>
  <item repeat="0-1">please</item> <ruleref uri="#the.count"/>
  <one-of><item weight="1">tea <tag>tea</tag></item><item weight="5"><token>iced tea</token><tag>i}\\ced</tag></item>
    <item>c++ "new york" drink<tag>c</tag></item></one-of>
  <item repeat="2-3">now</item><item repeat="0-">then</item><item repeat="1-">end<tag>e</tag></item>
  <ruleref special="NULL"/><ruleref uri="other/sizes.grxml#size"/>
</rule>
<rule id="the.count"><one-of><item>a<tag>1</tag></item><item>two<tag>2</tag></item><item><ruleref special="VOID"/></item></one-of>
</rule></grammar>"""


class SrgsTest(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = Path(holder.name)

    def convert(self, text, name="order"):
        source = self.folder / f"{name}.grxml"
        source.write_text(text, encoding="utf-8")
        run = subprocess.run([TOOL, source], capture_output=True, text=True, timeout=60)
        (self.folder / f"{name}.jsgf").parent.mkdir(exist_ok=True)
        (self.folder / f"{name}.jsgf").write_text(run.stdout, encoding="utf-8")
        return run.returncode, run.stderr.replace(f"{source}:", "")

    def tags(self, text):
        run = subprocess.run([MATCH, self.folder / "order.jsgf", text], capture_output=True, text=True)
        return run.stderr or (" ".join(re.findall(r"\{(.*?)\}(?= |$)", run.stdout.partition("tags:")[2], re.MULTILINE))
                              if run.returncode == 0 else None)

    def test_what_it_says_is_understood(self):
        (self.folder / "other").mkdir()
        (self.folder / "other/sizes.jsgf").write_text("#JSGF V1.0;grammar other.sizes;public <size> = large {L} | <NULL>;")
        self.assertEqual(self.convert(ORDER), (0, ""))
        self.assertEqual(self.tags("please a tea now now end"), "1 tea e")
        self.assertEqual(self.tags("two iced tea now now now then then end end large"), "2 i}\\ced e e L")
        self.assertEqual(self.tags("a c++ new york drink now now end"), "1 c e")
        for text in ("a tea now end", "a tea now now now now end", "tea now now end", "a tea now now"):
            self.assertIsNone(self.tags(text), text)

    def test_what_has_no_counterpart_is_told_with_its_line(self):
        status, errors = self.convert(HEAD + '<lexicon uri="x"/>\n<rule id="order">go <ruleref special="GARBAGE"/>\n'
                                      '<item repeat="1-500">on</item>\n<ruleref uri="#none"/>'
                                      '<ruleref uri="http://x/y.grxml#z"/></rule></grammar>')
        self.assertEqual(status, 1)
        self.assertEqual([line[:line.index(":")] for line in errors.splitlines()], ["3", "4", "5", "6", "6"])
        self.assertIn("GARBAGE", errors)

    def test_what_is_no_grammar_is_refused(self):
        bomb = '<!DOCTYPE g [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;&a;&a;&a;&a;">]>\n'
        for text, part in ((ORDER.replace("<grammar", bomb + "<grammar", 1), "2: a document type"),
                           (ORDER.replace("</grammar>", ""), "no element found"), ("<html/>", "1: expected the element grammar"),
                           (HEAD + "</grammar>", "expected rules"),
                           (HEAD + '<rule id="order">' + "<item>" * 50_000 + "x" + "</item>" * 50_000 + "</rule></grammar>",
                            "nested too deeply"),
                           (HEAD + '<rule id="order">' + '<item repeat="100">' * 9 + "x" + "</item>" * 9
                            + "</rule></grammar>", "get too large")):
            status, errors = self.convert(text)
            self.assertEqual(status, 2, errors)
            self.assertIn(part, errors)
            self.assertEqual((self.folder / "order.jsgf").read_text(), "")


if __name__ == "__main__":
    TOOL, MATCH = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1])
