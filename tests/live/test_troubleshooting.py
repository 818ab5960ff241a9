"""The log lines of docs/troubleshooting.md: each is provoked, and has to come as it stands there. What fails leaves
nothing behind: a good load works afterwards."""

import re
import unittest
from pathlib import Path

import live
from live import MODULE, RESULT, configuration
from host import host
from pbx import LIMIT, PrivatePbx, report

PAGE = (Path(__file__).resolve().parents[2] / "docs/troubleshooting.md").read_text(encoding="utf-8")
# Heading and log lines of each section.
SECTIONS = {heading: lines.splitlines()
            for heading, lines in re.findall(r"^### ([^\n]*)\n(?:(?!^#).)*?^```log\n(.*?)^```$", PAGE,
                                             re.MULTILINE | re.DOTALL)}

NO_SPEECH = "[modules]\nautoload=yes\nnoload=res_speech.so\nnoload=app_speech_utils.so\n"


class PageTest(unittest.TestCase):
    def test_every_section_is_provoked(self):
        source = Path(__file__).read_text(encoding="utf-8")
        self.assertEqual({heading for heading in SECTIONS if f'"{heading}"' not in source}, set())
        self.assertEqual(len(SECTIONS), PAGE.count("\n```log\n"))


class TroubleTest(unittest.TestCase):
    def setUp(self):
        """A PBX without the module."""
        self.pbx = self.enterContext(PrivatePbx(live.build))

    def load(self, conf, heading=None):
        """Loads the module with a configuration (None: without the file), and says whether it runs. The lines of the
        section have to come meanwhile."""
        path = self.pbx.folder / "etc/quillbrook.conf"
        path.unlink(missing_ok=True)
        if conf is not None:
            self.pbx.write_file(path.name, conf)
        before = len(self.pbx.log())
        loaded = self.pbx.load_module(MODULE)
        if heading:
            self.expect(heading, before)
        return loaded

    def expect(self, heading, before=0):
        """The lines of a section stand in the log, in their order."""
        lines = iter([f"{line.level} {line.text}" for line in self.pbx.log()[before:]])
        for wanted in SECTIONS[heading]:
            pattern = ".*".join(map(re.escape, wanted.split("...")))
            self.assertTrue(any(re.fullmatch(pattern, line) for line in lines), f"{wanted}: {self.pbx.log()[before:]}")

    def call(self, engine="quillbrook", seconds=2):
        return self.pbx.call(["Answer()", f"SpeechCreate({engine})", "SpeechStart()",
                              f"SpeechBackground(silence/1,{seconds})", RESULT]).wait()

    def test_loads(self):
        good = configuration({"configuration": "bytes 4000\\;final 90 yes"}, one={}, two={})
        for heading, conf in {
            "There is no configuration file": None,
            "The configuration file has a mistake": "[general\n",
            "A plugin is not found": configuration(one={}, two={"plugin": "plugin_nosuch.so"}),
            "A file is no plugin": configuration({"plugin": "/lib/x86_64-linux-gnu/libm.so.6"}),
            "The log file for plugins cannot be opened": configuration({"logfile": "/nonexistent/debug.log"}),
            "A profile stands in the list twice": configuration(sales={}, Sales={}),
        }.items():
            with self.subTest(heading):
                self.assertFalse(self.load(conf, heading))
                self.assertTrue(self.load(good))
                self.assertEqual(self.call("quillbrook:two"), ["result 1|90|yes"])
                self.assertTrue(self.pbx.unload_module(MODULE))
        self.assertTrue(self.load(configuration() + "profiles=sales\n", "There is no such engine"))

    def test_hosts(self):
        module = (live.build / "lib/asterisk/modules" / MODULE).read_bytes()
        options, = re.findall(rb'AST_BUILDOPT_SUM "(\w+)"', (host().headers / "asterisk/buildopts.h").read_bytes())
        (self.pbx.folder / "mod" / MODULE).write_bytes(module.replace(options, options[::-1]))
        self.assertFalse(self.load(configuration(), "The module was built for another PBX"))
        machines = {"The speech API of the PBX is missing": {"files": {"modules.conf": NO_SPEECH}}}
        if not Path("/usr/lib/quillbrook").exists():  # there the module looks, whatever we do
            machines["The grammar library is missing"] = {"environment": {"LD_LIBRARY_PATH": ""}}
        for heading, arguments in machines.items():
            with self.subTest(heading), PrivatePbx(live.build, **arguments) as self.pbx:
                self.assertFalse(self.load(configuration(), heading))

    def test_calls(self):
        libraries = live.build / "lib/quillbrook"
        for heading, keys in {
            "The format of the audio is unknown": {"format": "mp9"},
            "The model is not installed": {"plugin": libraries / "plugin_pocketsphinx.so", "model": "/nonexistent"},
            "The server cannot be reached": {"plugin": libraries / "plugin_websocket.so", "url": "ws://127.0.0.1:9"},
            "The plugin cannot read the audio": {"plugin": libraries / "plugin_example.so", "format": "gsm"},
            "The recognition was given up": {"configuration": "bytes 4000\\;interim well", "incompletetimeout": 500},
        }.items():
            with self.subTest(heading):
                self.assertTrue(self.load(configuration(keys)))
                before = len(self.pbx.log())
                self.call()
                self.expect(heading, before)
                self.assertTrue(self.pbx.unload_module(MODULE))

        self.assertTrue(self.load(configuration({"plugin": live.build / "tests/plugin_hostile.so",
                                                 "configuration": "flood", "continuous": "yes"})))
        self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", "SpeechStart()", "SpeechBackground(silence/1,2)",
                       "Wait(600)"])
        self.pbx.wait_until(lambda: any("nobody fetches" in line.text for line in self.pbx.log()), LIMIT, "no limit")
        self.expect("Results are dropped")

    def test_grammars(self):
        grammar = self.pbx.folder / "tags.jsgf"
        grammar.write_text("#JSGF V1.0;\ngrammar g;\npublic <r> = (<x>" + " {t}" * 100000 + ")*; <x> = a;\n",
                           encoding="utf-8")
        self.assertTrue(self.load(configuration({"configuration": "bytes 4000\\;final 90" + " a" * 950,
                                                 "returnnlsml": "yes"})))
        result = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", f"SpeechLoadGrammar(tags,{grammar})",
                                "SpeechStart()", "SpeechBackground(silence/1,20)",
                                report("${SPEECH_SCORE(0)} ${SPEECH_ENGINE(cause)}")]).wait()
        self.assertEqual(result, ["90 grammar"])
        self.expect("A grammar is too much for a text")
        bad = grammar.with_name("bad.jsgf")
        bad.write_text("#JSGF V1.0;\ngrammar g;\npublic <r> = (a;\n", encoding="utf-8")
        self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", "SpeechLoadGrammar(gone,/nonexistent/gone.jsgf)",
                       f"SpeechLoadGrammar(bad,{bad})",
                       f"SpeechLoadGrammar(days,{grammar.parent}/days.jsfg)", "SpeechActivateGrammar(weeks)"]).wait()
        self.expect("A grammar is missing")
        self.expect("A grammar command changes nothing")
        self.expect("A grammar has a mistake")
        self.assertTrue(self.pbx.unload_module(MODULE))
        self.assertTrue(self.load(configuration({"plugin": live.build / "lib/quillbrook/plugin_pocketsphinx.so",
                                                 "phrases": "yes,zzyzxq"})))
        self.call()
        self.expect("A phrase is never understood")


if __name__ == "__main__":
    live.main()
