"""Grammar paths from a real dialplan, and what the plugin and the result documents say of them."""

from pathlib import Path

import live
from live import LiveTest
from pbx import report

JSGF = "#JSGF V1.0 UTF-8;\ngrammar g;\n"


class GrammarTest(LiveTest):
    profiles = {"open": {"model": "?", "voice": "nobody"}, "json": {"returnjson": "yes"},
                "nlsml": {"returnnlsml": "yes", "normalize_phrases": "yes"}}
    complaints = ("=too late) changes nothing",)

    def file(self, name, content):
        path = self.pbx.folder / name
        path.write_text(content, encoding="utf-8")
        return path

    def seen(self, *loads, engine="quillbrook"):
        """The plugin's record under a question with SpeechLoadGrammar(...) for each of the loads."""
        self.report_path.unlink(missing_ok=True)
        before = [f"SpeechLoadGrammar({load})" for load in loads]
        lines = self.ask("report={report}\nshow\nfinal 90 yes", engine, before=before)
        self.assertEqual(lines, ["result 1|90|yes"])
        return self.read_report()

    def document(self, script, *steps, engine="nlsml"):
        """Score and content of the document of one question; the file is gone with the call."""
        call = self.pbx.call(["Answer()", f"SpeechCreate(quillbrook:{engine})", self.script(f"bytes 2000\n{script}"),
                              *steps, "SpeechStart()", "SpeechBackground(silence/1,5)",
                              report("path ${SPEECH_SCORE(0)} ${SPEECH_TEXT(0)}"), "Wait(0.5)"])
        _, score, path = call.wait_for("path ").split(" ")
        content = Path(path).read_bytes().decode()
        call.wait()
        self.wait_for_no_files()
        return int(score), content

    def test_properties_and_builtin_forms_reach_the_plugin(self):
        record = self.seen("x,property:Speed-vs-Accuracy=0.25", "1500ms,property:Speech-Complete-Timeout",
                           "x,property:Speech-Incomplete-Timeout=4s", "x,property:Recognition-Timeout=9.5s",
                           "x,property:Logging-Tag=tag, with a comma=1", "x,builtin:grammar/model=big:2",
                           "x,builtin:grammar/configuration=a=1,b=2")
        wanted = {"speedvsaccuracy": "0.250000", "completetimeout": "1500", "incompletetimeout": "4000",
                  "maxspeechtimeout": "9500", "param": "tag, with a comma=1", "model": "big:2",
                  "configuration": "a=1,b=2", "format": "wav", "buffer_size": "4000", "interims": "1", "uniqueid": ""}
        self.assertEqual({name: record[name] for name in wanted}, wanted)
        self.assertRegex(record["filename"], r"^/tmp/quillbrook_0x[0-9a-f]+\.wav$")
        record = self.seen("x,property:Speech-Voice=Ann", "fr-FR,property:Speech-Language",
                           "x,property:Speech-Voice=too late", engine="quillbrook:open")
        self.assertEqual((record["voice"], record["model"]), ("Ann", "fr-FR"))

    def test_documents(self):
        self.assertEqual(self.document('json {"text":"a\\\\nb", "x":[1]}\nfinal 87 a', engine="json"),
                         (87, '{"text":"a\\nb", "x":[1]}'))
        path = self.file("cafe.jsgf", JSGF + "public <r> = [un] café {DRINK} [s'il vous plaît {POLITE}] | rien;")
        load = [f"SpeechLoadGrammar(drinks,{path})", "SpeechActivateGrammar(drinks)"]
        self.assertEqual(
            self.document("json {}\nfinal 90 Un cafe, s'il vous plaît!", *load),
            (90, '<?xml version="1.0"?>\n<result grammar="drinks">\n  <interpretation grammar="drinks" '
                 'confidence="90">\n    <instance>DRINK POLITE<json>{}</json></instance>\n    <input mode="speech">'
                 'Un cafe, s&apos;il vous plaît!</input>\n  </interpretation>\n</result>\n'))
        for text in ("un thé", "rien"):  # what is not accepted, and what is accepted without a tag
            self.assertIn(f'<instance/>\n    <input mode="speech">{text}<nomatch/></input>',
                          self.document(f"final 90 {text}", *load)[1])
        score, content = self.document("final 90 rien", *load, "SpeechDeactivateGrammar(drinks)")
        self.assertEqual(score, 90)
        self.assertIn("<instance>rien</instance>", content)


if __name__ == "__main__":
    live.main()
