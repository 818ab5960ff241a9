"""The recipes of docs/dialplan.md and the sample dialplan as they stand there, on scripts for the ways through them and
on recorded speech."""

import re
import unittest
from pathlib import Path

import live
from host import host
from pbx import LIMIT, PrivatePbx, escape_dialplan

ROOT = Path(__file__).resolve().parents[2]
PAGE = (ROOT / "docs/dialplan.md").read_text(encoding="utf-8")
SAMPLE = (ROOT / "configs/extensions.conf.sample").read_text(encoding="utf-8")
MODULES = ("app_read", "app_stack", "func_env", "func_json", "func_logic", "func_strings",
           "func_timeout")
HUNG_UP = "the talker has nobody to talk to"
SILENCE = "Playback(" + "&".join(["silence/10"] * 4) + ")"


def blocks(language):
    return re.findall(rf"^```{language}\n(.*?)^```$", PAGE, re.MULTILINE | re.DOTALL)


class RecipeTest(unittest.TestCase):
    """A PBX whose dialplan is the page. Nothing is replaced but where the plugins and the grammars lie."""

    plugin = None  # in place of the page's own
    settings = ""  # further lines of [general]

    @classmethod
    def setUpClass(cls):
        configuration, = blocks("ini")
        configuration = re.sub(r"^plugin=(.*)$", lambda match: "plugin=" + cls.plugin_path(match[1]), configuration,
                               flags=re.MULTILINE)
        cls.pbx = PrivatePbx(live.build, modules=filter(host().has_module, MODULES))
        cls.pbx.__enter__()
        cls.addClassCleanup(cls.pbx.stop)
        cls.script = cls.pbx.folder / "script"
        settings = cls.settings.replace("{script}", str(cls.script))
        cls.pbx.write_file("quillbrook.conf", configuration.replace("[general]\n", f"[general]\n{settings}", 1))
        sample = cls.pbx.folder / "etc/sample.conf"
        cls.pbx.write_file(sample.name, SAMPLE.replace("/usr/share/quillbrook", f"{ROOT}/configs"))
        dialplan = "\n".join(blocks("asterisk")).replace("/usr/share/quillbrook/extensions.conf", str(sample))
        dialplan = dialplan.replace("/usr/share/quillbrook", f"{ROOT}/configs")
        # Nobody has to be waited for that long.
        cls.dialplan = dialplan.replace("[globals]\n", "[globals]\nASK_SECONDS=1\nASK_AGAIN=beep\n", 1)
        assert cls.pbx.load_module(live.MODULE), cls.pbx.log()[-10:]

    @classmethod
    def plugin_path(cls, name):
        return str(live.build / "lib/quillbrook" / (cls.plugin or name))

    def dial(self, recipe, talker=(SILENCE,), script="", seconds=LIMIT):
        """What the recipe says in Verbose lines, until it has hung up."""
        self.script.write_text(script)
        steps = "\n".join(f"exten => s,{number},{escape_dialplan(step)}"
                          for number, step in enumerate(["Answer()", *talker], start=1))
        self.pbx.write_file("extensions.conf",
                            f"{self.dialplan}\n[talk]\n{steps}\nexten => h,1,Verbose(1,{HUNG_UP})\n")
        self.pbx.cli("dialplan reload")
        before = len(self.said())
        self.pbx.cli(f"channel originate Local/s@talk extension s@{recipe}")
        self.pbx.wait_until(lambda: HUNG_UP in self.said()[before:], seconds, f"{recipe} did not end")
        return self.said()[before:-1]

    def said(self):
        return [line.text for line in self.pbx.log() if line.source == "app_verbose.c"]


class ScriptedRecipeTest(RecipeTest):
    plugin = "plugin_dummy.so"
    settings = "configuration=script={script}\n"

    def test_every_recipe_is_tried(self):
        contexts = set(re.findall(r"^\[(.*?)\]$", "\n".join(blocks("asterisk")), re.MULTILINE))
        contexts -= {"globals"}
        source = Path(__file__).read_text(encoding="utf-8")
        self.assertEqual({name for name in contexts if f'("{name}"' not in source}, set())

    def test_sample(self):
        for context, heard in (("quillbrook-question", 'Heard "good morning" with a score of 90: understood'),
                               ("quillbrook-yes-no", "Answer: good morning (understood)"),
                               ("quillbrook-number", "Number: good morning (understood)")):
            self.assertEqual(self.dial(context, script="bytes 4000\nfinal 90 good morning"), [heard])

    def test_yes_no(self):
        for script, answer in (("bytes 4000\nfinal 90 yeah", "The answer is yes"),
                               ("bytes 4000\nfinal 90 not really", "The answer is no"),
                               ("bytes 4000\nfinal 90 maybe", "No answer (nomatch)"),
                               ("bytes 4000\nfinal 30 yeah", "No answer (unsure)"),
                               ("bytes 4000\nextra ERROR: no model\nreturn", "No answer (provider)"),
                               ("", "No answer (nothing)")):
            with self.subTest(script=script):
                self.assertEqual(self.dial("yes-no", script=script), [answer])

    def test_number(self):
        # 1.3 s of silence are a pause here.
        # The caller stops to think in the middle, for longer than the complete timeout, and the recogniser ends nothing.
        self.assertEqual(self.dial("number", script="bytes 4000\ninterim four\nfinal 90 four seven\nsleep 2000\n"
                                                    "interim oh\ninterim oh two"),
                         ["The number is 4702"])
        # The fourth key ends it, and so do # and a pause before it. The talker would go on for longer than the call may.
        for keys, number in (("4702", 4702), ("47#", 47), ("47", 47)):
            self.assertEqual(self.dial("number", ["Wait(1)", f"SendDTMF({keys})", SILENCE], seconds=20),
                             [f"The number is {number}"])

    def test_barge_in(self):
        # The prompt of the first menu lasts for longer than the call may.
        self.assertEqual(self.dial("menu", script="bytes 8000\ninterim sales\nsleep 200\nfinal 90 sales", seconds=10),
                         ["Chosen: sales"])
        self.assertEqual(self.dial("patient-menu", script="bytes 16000\nfinal 90 billing"), ["Chosen: billing"])
        # What was guessed and then refused is no answer.
        self.assertEqual(self.dial("menu", script="bytes 8000\ninterim billing\nsleep 200\nnomatch", seconds=10),
                         ["Nothing was chosen (nomatch)"])

    def test_dictation(self):
        pieces = "bytes 4000\nfinal 70 dear Sir,\nsleep 1000\nfinal 90 it's late."
        self.assertEqual(self.dial("dictation", script=pieces),
                         ["Dictated with 80 percent: dear Sir, it's late."])

    def test_notes(self):
        pieces = "bytes 4000\nfinal 90 one\nsleep 1700\nfinal 90 two"
        self.assertEqual(self.dial("notes", script=pieces), ["Piece 1: one", "Piece 2: two", "2 pieces"])

    def test_conversation(self):
        answers = "bytes 8000\ninterim sales\nfinal 90 sales\nbytes 40000\ninterim four\nsleep 1000\nfinal 90 four two"
        self.assertEqual(self.dial("conversation", script=answers), ["Wanted: sales. Number: four two."])

    def test_profile(self):
        self.assertEqual(self.dial("support", script="bytes 4000\nfinal 90 support"), ["Heard by english: support (understood)"])

    def test_json(self):
        live.require_module("func_json")
        document = '{"result": [{"conf": 0.9, "word": "hello"}], "text": "hello, world"}'
        self.assertEqual(self.dial("provider", script=f"bytes 4000\njson {document}\nfinal 90 hello, world"),
                         ["The provider wrote: hello world"])

        # Bare text is no JSON.
        self.assertEqual(self.dial("provider", script="bytes 4000\nfinal 90 hello world"),
                         ["The provider wrote: hello world"])

    def test_appointment(self):
        for said, day in (("Um, November 23rd, 2026", "2026-11-23"), ("next Friday", "friday")):
            self.assertEqual(self.dial("appointment", script=f"bytes 4000\nfinal 90 {said}"),
                             [f"The day is {day} (understood)"])

    def test_travel(self):
        for script, heard in (("final 80 I'd like 2 tickets, please.", "Tickets: 2"), ("final 80 Refund!", "A refund"),
                              ("final 80 Good morning.", "Something else: good morning."),
                              ("final 20 Refund!", "Nothing was understood (unsure)")):
            with self.subTest(script=script):
                self.assertEqual(self.dial("travel", script=f"bytes 4000\n{script}"), [heard])

    def test_careful(self):
        self.assertEqual(self.dial("careful", script="bytes 4000\nfinal 90 sales"), ["The choice is sales"])
        failing = "bytes 4000\nextra ERROR: no server\nreturn"
        self.assertEqual(self.dial("careful", ["Playback(silence/6)", "SendDTMF(7)", SILENCE], failing),
                         ["The key is 7"])
        self.assertEqual(self.dial("careful", script=failing), ["No choice (provider)"])


class SpokenRecipeTest(RecipeTest):
    """The page's own plugins on recorded speech: what needs no server."""

    def test_yes_no(self):
        self.assertEqual(self.dial("yes-no", ["Playback(silence/1&vm-no&silence/10)"]), ["The answer is no"])

    def test_number(self):
        self.assertEqual(
            self.dial("number", ["Playback(silence/1&digits/4&digits/7&digits/2&digits/1&silence/10)"]),
            ["The number is 4721"])


if __name__ == "__main__":
    live.main()
