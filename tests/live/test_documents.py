"""Result documents as the dialplan gets them: byte for byte, and gone with the call."""

from pathlib import Path

import live
from live import LiveTest
from pbx import report

PATH = report("path ${SPEECH_SCORE(0)} ${SPEECH_TEXT(0)}")


class DocumentTest(LiveTest):
    profiles = {"json": {"returnjson": "yes"}, "nlsml": {"returnnlsml": "yes"}}

    def document(self, engine, script):
        """Score and content of the document of one question; the file has to be gone with the call."""
        call = self.pbx.call(
            ["Answer()", f"SpeechCreate(quillbrook:{engine})", self.script("bytes 2000\n" + script),
             "SpeechActivateGrammar(a&b)", "SpeechStart()", "SpeechBackground(silence/1,5)", PATH, "Wait(0.5)"])
        _, score, path = call.wait_for("path ").split(" ")
        content = Path(path).read_bytes().decode()
        call.wait()
        self.wait_for_no_files()
        return int(score), content

    def test_json_of_the_provider(self):
        self.assertEqual(self.document("json", 'json {"text":"a\\\\nb", "x":[1]}\nfinal 87 a'),
                         (87, '{"text":"a\\nb", "x":[1]}'))

    def test_json_mode_without_json(self):
        self.assertEqual(self.document("json", "final 87 é"), (87, "é"))

    def test_nlsml_plain(self):
        self.assertEqual(
            self.document("nlsml", "final 90 a < b & c\\nd"),
            (90, '<?xml version="1.0"?>\n<result grammar="a&amp;b">\n  <interpretation grammar="a&amp;b" '
                 'confidence="90">\n    <instance>a &lt; b &amp; c\nd</instance>\n    <input mode="speech">'
                 'a &lt; b &amp; c\nd</input>\n  </interpretation>\n</result>\n'))

    def test_nlsml_with_json_and_interpretation(self):
        self.assertEqual(
            self.document("nlsml", 'api yes\njson {"a":1}\nfinal 80 of course'),
            (80, '<?xml version="1.0"?>\n<result grammar="a&amp;b">\n  <interpretation grammar="a&amp;b" '
                 'confidence="80">\n    <instance>yes<json>{&quot;a&quot;:1}</json></instance>\n    '
                 '<input mode="speech">of course</input>\n  </interpretation>\n</result>\n'))

    def test_nlsml_no_match(self):
        self.assertEqual(
            self.document("nlsml", "nomatch"),
            (0, "<?xml version='1.0'?>\n<result grammar=\"a&amp;b\">\n  <interpretation grammar=\"a&amp;b\" "
                'confidence="0">\n    <instance/>\n    <input mode="speech">?<nomatch/></input>\n'
                "  </interpretation>\n</result>\n"))


if __name__ == "__main__":
    live.main()
