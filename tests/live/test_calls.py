"""Calls on the dummy plugin: the roads that a dialplan takes through the host's speech applications."""

import time

import live
from live import MODULE, RESULT, LiveTest
from pbx import report


class CallTest(LiveTest):
    general = {"configuration": "bytes 8000\\;interim good\\;sleep 100\\;final 90 good morning"}
    profiles = {"early": {"earlyspeechtimeout": "500"}}

    def test_a_call_is_recognised_by_the_script_of_the_configuration(self):
        lines = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", report("created ${ERROR}"), "SpeechStart()",
                               "SpeechBackground(silence/1,5)", RESULT, "SpeechDestroy()"]).wait()
        self.assertEqual(lines, ["created ", "result 1|90|good morning"])
        self.wait_for_no_files()

    def test_an_answer_at_once_is_not_lost(self):
        # The result is there before the host asks: while it still starts, and while the dialplan does something else.
        for pause in ([], ["Wait(0.5)"]):
            with self.subTest(pause=pause):
                lines = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", self.script("final 95 at once"),
                                       "SpeechStart()", *pause, "SpeechBackground(silence/1,3)", RESULT]).wait()
                self.assertEqual(lines, ["result 1|95|at once"])

    def test_keys_in_mid_recognition_leave_no_answer_for_the_next_question(self):
        # The caller says something, then keys digits. The result comes three seconds behind the first key, and the host,
        # which waits for three seconds or more from then on, passes it over.
        ways = {"timeout": ([], []),
                "length": (["Set(SPEECH_DTMF_MAXLEN=2)"], ["Playback(silence/6)", "SendDTMF(2)"]),
                "terminator": ([], ["Playback(silence/6)", "SendDTMF(2#)"])}
        calls = {}
        for way, (settings, keys) in ways.items():
            for start in ([], ["SpeechStart()"]):
                calls[way, len(start)] = self.pbx.call(
                    ["Answer()", *settings, "SpeechCreate(quillbrook)",
                     self.script("sleep 4000\nfinal 90 two"), "SpeechStart()", "SpeechBackground(silence/1,9)",
                     report("next question"), self.script("bytes 4000\nfinal 80 five"), *start,
                     "SpeechBackground(silence/1,9)", RESULT],
                    talker=["Playback(silence/1)", "SendDTMF(1)", *keys, "Playback(silence/10&silence/10)"])
        for way, call in calls.items():
            with self.subTest(way=way):
                self.assertEqual(call.wait(), ["next question", "result 1|80|five"])

    def test_hangup_in_mid_recognition(self):
        call = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", self.script("until-stop"), "SpeechStart()",
                              report("started"), "SpeechBackground(silence/1,20)", report("not reached")])
        call.wait_for("started")
        time.sleep(0.3)
        call.hang_up()
        self.assertEqual(call.wait(), ["started"])
        self.wait_for_no_files()
        self.test_a_call_is_recognised_by_the_script_of_the_configuration()

    def test_early_speech_is_cut_to_its_length(self):
        # Two seconds gather during the prompt; the second start lets the plugin go, on the last half second.
        call = self.pbx.call(
            ["Answer()", "SpeechCreate(quillbrook:early)",
             self.script("report={report}\nshow bytes\nfinal 77 early"),
             "SpeechStart()", "SpeechBackground(silence/1,1)", "SpeechStart()", "SpeechBackground(silence/1,5)", RESULT])
        self.assertEqual(call.wait(), ["result 1|77|early"])
        # 16 bytes a millisecond, a header, and what came in while the plugin started.
        self.assertGreaterEqual(int(self.read_report()["bytes"]), 500 * 16)
        self.assertLess(int(self.read_report()["bytes"]), 1000 * 16)

    def mapped(self):
        with open(f"/proc/{self.pbx.pid}/maps", encoding="utf-8") as maps:
            return [line for line in maps if "quillbrook" in line]

    def test_unload_is_refused_during_a_call_and_accepted_after(self):
        question = ["Answer()", "SpeechCreate(quillbrook)", self.script("bytes 24000\nfinal 90 yes"), "SpeechStart()",
                    report("started"), "SpeechBackground(silence/1,5)", RESULT, "SpeechDestroy()"]
        for _ in range(2):
            call = self.pbx.call(question)
            call.wait_for("started")
            self.assertFalse(self.pbx.unload_module(MODULE), "unloaded under a live call")
            self.assertEqual(call.wait(), ["started", "result 1|90|yes"])
            self.assertTrue(self.pbx.unload_module(MODULE), "not unloaded after the call")
            self.assertEqual(self.mapped(), [], "still mapped after the unload")
            self.assertTrue(self.pbx.load_module(MODULE))


class StopTest(LiveTest):
    def test_the_pbx_stops_with_a_call_up(self):
        call = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", "SpeechStart()", report("started"),
                              "SpeechBackground(silence/1,60)"])
        call.wait_for("started")
        # The class ends here with the call still up.


if __name__ == "__main__":
    live.main()
