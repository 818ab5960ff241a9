"""Calls on the dummy plugin: the roads that a dialplan takes through the host's speech applications."""

import time

import live
from live import MODULE, RESULT, LiveTest
from pbx import report

CONTINUOUS = {"cont": {"continuous": "yes"}, "separate": {"continuous": "yes", "utterances": "separate"}}


class CallTest(LiveTest):
    general = {"configuration": "bytes 8000\\;interim good\\;sleep 100\\;final 90 good morning"}
    profiles = {**CONTINUOUS, "early": {"earlyspeechtimeout": "500"},
                "late": {"dsp": "yes", "completetimeout": "400", "incompletetimeout": "9000"},
                "silent": {"plugintimeout": "500"}}
    complaints = ("with continuous = 1", "has not called back for 500 ms", "has no result (plugin)")

    def test_a_call_is_recognised_by_the_script_of_the_configuration(self):
        lines = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", report("created ${ERROR}"), "SpeechStart()",
                               "SpeechBackground(silence/1,5)", RESULT, "SpeechDestroy()"]).wait()
        self.assertEqual(lines, ["created ", "result 1|90|good morning"])
        self.wait_for_no_files()

    def test_two_questions_on_one_object(self):
        lines = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)"]
                              + ["SpeechStart()", "SpeechBackground(silence/1,5)", RESULT] * 2).wait()
        self.assertEqual(lines, ["result 1|90|good morning"] * 2)

    def test_an_answer_at_once_is_not_lost(self):
        # The result is there before the host asks: while it still starts, and while the dialplan does something else.
        for pause in ([], ["Wait(0.5)"]):
            with self.subTest(pause=pause):
                lines = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", self.script("final 95 at once"),
                                       "SpeechStart()", *pause, "SpeechBackground(silence/1,3)", RESULT]).wait()
                self.assertEqual(lines, ["result 1|95|at once"])

    def test_a_second_question_after_a_digit(self):
        # The digit comes when the first recognition has heard a second; the second one is a new one.
        calls = [self.pbx.call(
            ["Answer()", "Set(SPEECH_DTMF_MAXLEN=1)", "SpeechCreate(quillbrook)",
             self.script("report={report}\nlog started\nbytes 32000\nfinal 80 spoken"),
             "SpeechStart()", "SpeechBackground(silence/1,5)", RESULT, *start, "SpeechBackground(silence/1,5)", RESULT],
            talker=["Playback(silence/1)", "SendDTMF(7)", "Playback(silence/10)"]) for start in ([], ["SpeechStart()"])]
        for call in calls:
            self.assertEqual(call.wait(), ["result 1|1000|7", "result 1|80|spoken"])
        self.assertEqual(self.report_path.read_text(), "started\n" * 4)

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

    def test_a_result_between_two_turns_of_one_question_is_delivered(self):
        self.assertEqual(self.pbx.call(
            ["Answer()", "SpeechCreate(quillbrook)", self.script("sleep 2000\nfinal 90 two"), "SpeechStart()",
             "SpeechBackground(silence/1,1)", "Wait(1)", "SpeechBackground(silence/1,5)", RESULT]).wait(),
            ["result 1|90|two"])

    def test_nobody_waits_for_a_plugin(self):
        # Once words came nothing but a result lets the caller go.
        roads = {"returned": ("quillbrook", "bytes 4000\ninterim half a word\nreturn", "result 1|50|half a word"),
                 "fell silent": ("quillbrook:silent", "bytes 4000\ninterim half\nquiet\nsleep 60000", "result 1|0|error"),
                 "heard late": ("quillbrook:late", "bytes 48000\ninterim late words", "result 1|50|late words")}
        calls = {road: self.pbx.call(["Answer()", f"SpeechCreate({engine})", self.script(script), "SpeechStart()",
                                      "SpeechBackground(silence/1,9)", RESULT]) for road, (engine, script, _) in roads.items()}
        for road, call in calls.items():
            with self.subTest(road=road):
                self.assertEqual(call.wait(), [roads[road][2]])

    def test_continuous_results_are_read_one_by_one(self):
        lines = self.pbx.call(
            ["Answer()", "SpeechCreate(quillbrook:cont)",
             self.script("bytes 4000\nfinal 90 one\nfinal 90 two\nsleep 1500\nfinal 90 three"),
             "SpeechStart()"] + ["SpeechBackground(silence/1,5)", RESULT] * 3 + ["SpeechDestroy()"]).wait()
        self.assertEqual(lines, ["result 1|90|one", "result 1|90|two", "result 1|90|three"])
        self.wait_for_no_files()

    def test_utterances_of_their_own(self):
        # The third comes when the third question has been heard for two seconds: its words stop that prompt.
        question = ["SpeechStart()", "SpeechBackground(silence/1,10)", RESULT]
        lines = self.pbx.call(
            ["Answer()", "SpeechCreate(quillbrook:separate)",
             self.script("bytes 4000\nfinal 90 one\nfinal 70 two\nbytes 40000\nfinal 50 three"),
             *question, *question, *question, report("spoke ${SPEECH(spoke)}"), "SpeechDestroy()"]).wait()
        self.assertEqual(lines, ["result 1|90|one", "result 1|70|two", "result 1|50|three", "spoke 1"])

    def test_an_interim_becomes_the_result_by_silence(self):
        before = ["SpeechLoadGrammar(x,property:Speech-Complete-Timeout=300ms)",
                  "SpeechLoadGrammar(x,property:Speech-Incomplete-Timeout=900ms)"]
        self.assertEqual(self.ask("bytes 4000\ninterim good mor\ninterim good morning", before=before),
                         ["result 1|50|good morning"])

    def test_hangup_in_mid_recognition(self):
        call = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", self.script("until-stop"), "SpeechStart()",
                              report("started"), "SpeechBackground(silence/1,20)", report("not reached")])
        call.wait_for("started")
        time.sleep(0.3)
        call.hang_up()
        self.assertEqual(call.wait(), ["started"])
        self.wait_for_no_files()
        self.test_a_call_is_recognised_by_the_script_of_the_configuration()

    def test_the_end_of_the_dialplan_releases_what_runs(self):
        calls = [self.pbx.call(["Answer()", f"SpeechCreate({engine})", self.script("until-stop"), "SpeechStart()",
                                "SpeechBackground(silence/1,1)", RESULT]) for engine in ("quillbrook", "quillbrook:cont")]
        for call in calls:
            self.assertEqual(call.wait(), ["result 0||"])
        self.wait_for_no_files()

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

    def test_many_calls_at_once(self):
        calls = [self.pbx.call(["Answer()", "SpeechCreate(quillbrook)",
                                self.script(f"bytes {4000 + 500 * number}\nfinal 90 caller {number}"), "SpeechStart()",
                                "SpeechBackground(silence/1,8)", RESULT]) for number in range(20)]
        for number, call in enumerate(calls):
            self.assertEqual(call.wait(), [f"result 1|90|caller {number}"])
        self.wait_for_no_files()

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


class StuckPluginTest(LiveTest):
    general = {"stoptimeout": "300"}
    complaints = ("has not returned 300 ms after its stop",)

    def test_a_plugin_that_does_not_return_is_left_behind(self):
        # The loop stands still behind its result; the dialplan goes on, and the next question is a new recognition.
        lines = self.pbx.call(
            ["Answer()", "SpeechCreate(quillbrook)", self.script("bytes 4000\nfinal 90 heard\ndeaf 60000"), "SpeechStart()",
             "SpeechBackground(silence/1,5)", RESULT, self.script("bytes 4000\nfinal 80 again"),
             "SpeechBackground(silence/1,5)", RESULT]).wait()
        self.assertEqual(lines, ["result 1|90|heard", "result 1|80|again"])
        self.wait_for_no_files()
        self.assertFalse(self.pbx.unload_module(MODULE), "unloaded under a thread of its own")


class AskAtTimeoutTest(LiveTest):
    def test_an_application_that_asks_at_its_timeout_leaves_an_object_that_starts(self):
        """The option p of the newer hosts."""
        if not any("[p]" in line or "p -" in line or " p:" in line for line in
                   self.pbx.cli("core show application SpeechBackground").splitlines()):
            self.skipTest("this host's SpeechBackground has no option p")
        self.assertEqual(self.pbx.call(
            ["Answer()", "SpeechCreate(quillbrook)", self.script("until-stop"), "SpeechStart()",
             "SpeechBackground(silence/1,1,p)", RESULT, self.script("bytes 4000\nfinal 80 again"),
             "SpeechBackground(silence/1,5)", RESULT]).wait(), ["result 1|0|error", "result 1|80|again"])


class StopTest(LiveTest):
    def test_the_pbx_stops_with_a_call_up(self):
        call = self.pbx.call(["Answer()", "SpeechCreate(quillbrook)", "SpeechStart()", report("started"),
                              "SpeechBackground(silence/1,60)"])
        call.wait_for("started")
        # The class ends here with the call still up.


if __name__ == "__main__":
    live.main()
