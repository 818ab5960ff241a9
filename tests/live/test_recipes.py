"""The recipes of docs/dialplan.md and the sample dialplan as they stand there, on scripts for the ways through them."""

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
    """A PBX whose dialplan is the page. Nothing is replaced but the plugins, by scripts, and where the grammars lie."""

    @classmethod
    def setUpClass(cls):
        configuration, = blocks("ini")
        dummy = live.build / "lib/quillbrook/plugin_dummy.so"
        configuration = re.sub(r"^plugin=.*$", f"plugin={dummy}", configuration, flags=re.MULTILINE)
        cls.pbx = PrivatePbx(live.build, modules=filter(host().has_module, MODULES))
        cls.pbx.__enter__()
        cls.addClassCleanup(cls.pbx.stop)
        cls.script = cls.pbx.folder / "script"
        scripted = f"[general]\nconfiguration=script={cls.script}\n"
        cls.pbx.write_file("quillbrook.conf", configuration.replace("[general]\n", scripted, 1))
        sample = cls.pbx.folder / "etc/sample.conf"
        cls.pbx.write_file(sample.name, SAMPLE.replace("/usr/share/quillbrook", f"{ROOT}/configs"))
        dialplan = "\n".join(blocks("asterisk")).replace("/usr/share/quillbrook/extensions.conf", str(sample))
        dialplan = dialplan.replace("/usr/share/quillbrook", f"{ROOT}/configs")
        # Nobody has to be waited for that long.
        cls.dialplan = dialplan.replace("[globals]\n", "[globals]\nASK_SECONDS=1\nASK_AGAIN=beep\n", 1)
        assert cls.pbx.load_module(live.MODULE), cls.pbx.log()[-10:]

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

    def test_every_recipe_is_tried(self):
        contexts = set(re.findall(r"^\[(.*?)\]$", "\n".join(blocks("asterisk")), re.MULTILINE))
        contexts -= {"globals"}
        source = Path(__file__).read_text(encoding="utf-8")
        self.assertEqual({name for name in contexts if f'("{name}"' not in source}, set())

    def test_answers(self):
        for context, script, heard in (
            ("quillbrook-question", "final 90 good morning", 'Heard "good morning" with a score of 90: understood'),
            ("quillbrook-yes-no", "final 90 good morning", "Answer: good morning (understood)"),
            ("quillbrook-number", "final 90 good morning", "Number: good morning (understood)"),
            ("yes-no", "final 90 yeah", "The answer is yes"),
            ("yes-no", "final 90 not really", "The answer is no"),
            ("yes-no", "final 90 maybe", "No answer (nomatch)"),
            ("yes-no", "final 30 yeah", "No answer (unsure)"),
            ("yes-no", "extra ERROR: no model\nreturn", "No answer (provider)"),
            ("yes-no", "until-stop", "No answer (nothing)"),
            ("dictation", "final 70 dear Sir,\nsleep 1000\nfinal 90 it's late.",
             "Dictated with 80 percent: dear Sir, it's late."),
            ("notes", "final 90 one\nsleep 1700\nfinal 90 two", "Piece 1: one;Piece 2: two;2 pieces"),
            ("conversation", "interim sales\nfinal 90 sales\nbytes 40000\ninterim four\nsleep 1000\nfinal 90 four two",
             "Wanted: sales. Number: four two."),
            ("support", "final 90 support", "Heard by english: support (understood)"),
            ("appointment", "final 90 Um, November 23rd, 2026", "The day is 2026-11-23 (understood)"),
            ("appointment", "final 90 next Friday", "The day is friday (understood)"),
            ("travel", "final 80 I'd like 2 tickets, please.", "Tickets: 2"),
            ("travel", "final 80 Refund!", "A refund"),
            ("travel", "final 80 Good morning.", "Something else: good morning."),
            ("travel", "final 20 Refund!", "Nothing was understood (unsure)"),
        ):
            with self.subTest(context=context, script=script):
                self.assertEqual(self.dial(context, script=f"bytes 4000\n{script}"), heard.split(";"))

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

    def test_json(self):
        live.require_module("func_json")
        document = '{"result": [{"conf": 0.9, "word": "hello"}], "text": "hello, world"}'
        self.assertEqual(self.dial("provider", script=f"bytes 4000\njson {document}\nfinal 90 hello, world"),
                         ["The provider wrote: hello world"])

        # Bare text is no JSON.
        self.assertEqual(self.dial("provider", script="bytes 4000\nfinal 90 hello world"),
                         ["The provider wrote: hello world"])

    def test_careful(self):
        self.assertEqual(self.dial("careful", script="bytes 4000\nfinal 90 sales"), ["The choice is sales"])
        failing = "bytes 4000\nextra ERROR: no server\nreturn"
        self.assertEqual(self.dial("careful", ["Playback(silence/6)", "SendDTMF(7)", SILENCE], failing),
                         ["The key is 7"])
        self.assertEqual(self.dial("careful", script=failing), ["No choice (provider)"])


if __name__ == "__main__":
    live.main()
