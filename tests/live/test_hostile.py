"""Plugins that do what no plugin should, in all modes: the caller goes on, the PBX lives, and nothing is left.

Each question below ends by a result, or by the dialplan's own timeout where no words came. A caller who is held up does
not come to the end of his dialplan before the test has had enough.
"""

import live
from live import MODULE, LiveTest
from pbx import LIMIT, report

SCRIPTS = (
    "refuse", "init-throws", "init-speaks", "init-speaks return", "return", "words return", "end return", "error return",
    "words error return", "throw", "words throw", "final throw-number", "exit", "words exit", "silent", "words silent",
    "final silent", "thread", "thread return", "words thread thread", "nonsense", "nonsense final", "much", "bytes",
    "flood",
    "unsure", "unsure silent", "lost", "lost end", "scribble", "words scribble return", "unlink", "words unlink final", "final stop-mute", "words stop-throws return",
    "final stop-slow", "words silent stop-speaks", "final stop-mute stop-throws", "end words end", "final end",
)
NEVER = ("never", "words never", "final never", "words error never stop-mute", "thread never")

MODES = {
    "text": {}, "json": {"returnjson": "yes"}, "xml": {"returnnlsml": "yes"},
    "early": {"earlyspeechtimeout": "100"}, "held": {"continuous": "yes", "waitclose": "yes", "closetimeout": "300"},
    "separate": {"continuous": "yes", "utterances": "separate", "returnnlsml": "yes"},
}
LIMITS = {"completetimeout": "300", "incompletetimeout": "900", "plugintimeout": "500", "stoptimeout": "30000"}

# Longer than anybody waits for a call here.
PATIENT_TALKER = ["Playback(" + "&".join(["silence/10"] * 12) + ")"]
CALLS = 3  # for each mode: each has its share of the scripts


class HostileTest(LiveTest):
    general = LIMITS
    profiles = MODES
    complaints = ("",)

    @classmethod
    def setUpClass(cls):
        cls.general = {**cls.general, "plugin": live.build / "tests/plugin_hostile.so"}
        super().setUpClass()

    def question(self, script):
        # The second start ends the prompt of early speech; elsewhere the recognition has been started already.
        return [f"SpeechLoadGrammar(x,builtin:grammar/configuration={script})", "SpeechStart()", "SpeechStart()",
                "SpeechBackground(silence/1,1)", report(script)]

    def ask_all(self, scripts):
        calls = {}
        for mode in MODES:
            for number in range(CALLS):
                mine = scripts[number::CALLS]
                steps = [step for script in mine for step in
                         (f"SpeechCreate(quillbrook:{mode})", *self.question(script), "SpeechDestroy()")]
                again = (mine * 2)[-3:]  # on one object, which goes with the call
                steps += [f"SpeechCreate(quillbrook:{mode})", *(step for script in again for step in self.question(script))]
                calls[mode, number] = self.pbx.call(["Answer()", *steps], PATIENT_TALKER), [*mine, *again]
        for (mode, number), (call, expected) in calls.items():
            with self.subTest(mode=mode, number=number):
                self.assertEqual(call.wait(), expected)
        self.wait_for_no_files()


class OneTest(HostileTest):
    def test_each_caller_goes_on(self):
        self.ask_all(SCRIPTS)
        self.pbx.wait_until(lambda: self.pbx.unload_module(MODULE), LIMIT, "something holds the module")


class TwinTest(OneTest):
    general = {**LIMITS, "twin": "yes"}


class NeverTest(HostileTest):
    """A thread that never returns is left behind, and keeps the module in place."""

    general = {**LIMITS, "stoptimeout": "300"}

    def test_each_caller_goes_on(self):
        self.ask_all(NEVER)
        self.assertFalse(self.pbx.unload_module(MODULE), "unloaded under threads of its own")


if __name__ == "__main__":
    live.main()
