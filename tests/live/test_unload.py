"""The module's end: it comes and goes while calls create and end sessions without a pause, and the PBX and every call
live on; or the PBX is killed, and the next load removes what it left in /tmp. And another configuration for a module
that stays."""

import os
import re
import signal
from pathlib import Path

import live
from live import MODULE, LiveTest, configuration
from pbx import LIMIT, PrivatePbx

TIMES = 100 if os.environ.get("QUILLBROOK_THOROUGH") else 8

# Sessions round and round; and round, while there is no engine to create one on.
COMING_AND_GOING = ["Set(ERROR=)", "SpeechCreate({engine})", 'GotoIf($["${{ERROR}}" = "1"]?5)', "SpeechDestroy()",
                    "Wait(0.002)", "Goto(1)"]


class UnloadTest(LiveTest):
    general = {"verbose": "no"}
    profiles = {"one": {}}
    complaints = ("No plugin behind the engine",)

    def sessions(self):
        return int(re.search(r"Sessions closed\D*(\d+)", self.pbx.cli("quillbrook show statistics"))[1])

    def test_unload_again_and_again_under_calls(self):
        # Each step of a dialplan is a line of verbose output.
        self.pbx.write_file("logger.conf", "[general]\ndateformat=%F %T.%3q\n[logfiles]\nfull => notice,warning,error\n")
        self.pbx.cli("logger reload")
        for engine in ("quillbrook", "quillbrook:one") * 2:
            self.pbx.call([step.format(engine=engine) for step in COMING_AND_GOING], talker=["Wait(3600)"])
        for _ in range(TIMES):
            self.pbx.wait_until(lambda: self.sessions() > 0, LIMIT, "no call creates a session")
            self.pbx.wait_until(lambda: self.pbx.unload_module(MODULE), LIMIT, "never without a session")
            self.assertTrue(self.pbx.load_module(MODULE))
        self.pbx.cli("channel request hangup all")
        self.pbx.wait_until(lambda: "0 active channels" in self.pbx.cli("core show channels"), LIMIT, "a call hangs")

    def stream_of_a_call(self, pbx):
        """Path of the audio of a call that goes on."""
        call = pbx.call(["Answer()", "SpeechCreate(quillbrook)", "SpeechStart()", "SpeechBackground(silence/1,600)"])
        pbx.wait_until(lambda: pbx.logged("Open file write: "), LIMIT, "no recognition")
        return call, Path(pbx.logged("Open file write: ")[-1].split(": ")[1])

    def test_audio_of_a_killed_pbx(self):
        conf = configuration()
        with PrivatePbx(live.build, conf) as killed, PrivatePbx(live.build, conf) as alive:
            streams = {}
            for pbx in (killed, alive):
                self.assertTrue(pbx.load_module(MODULE))
                streams[pbx] = self.stream_of_a_call(pbx)
                self.assertEqual(streams[pbx][1].stat().st_mode & 0o777, 0o600)
            os.kill(killed.pid, signal.SIGKILL)
            os.waitpid(killed.pid, 0)
            self.assertTrue(self.pbx.unload_module(MODULE))
            self.assertTrue(self.pbx.load_module(MODULE))
            self.assertFalse(streams[killed][1].exists())
            call, stream = streams[alive]
            self.assertTrue(stream.exists())
            call.hang_up()
            call.wait()
            self.assertFalse(stream.exists())


class ReloadTest(LiveTest):
    complaints = ('has no key "modell"', "The configuration was not read again")

    def setUp(self):
        super().setUp()
        self.write(one={"model": "old"}, two={})
        self.assertIn("was read: 3 engines", self.pbx.cli("quillbrook reload"))

    def write(self, general=None, **profiles):
        self.pbx.write_file("quillbrook.conf", configuration(general, **profiles))

    def model(self, engine):
        report = self.report_path
        report.unlink(missing_ok=True)
        self.assertEqual(self.ask("report={report}\nshow model\nfinal 80 yes", engine), ["result 1|80|yes"])
        return self.read_report()["model"]

    def test_sessions_keep_what_they_began_with(self):
        self.assertEqual(self.model("quillbrook:one"), "old")
        # The caller is silent until his engine has gone.
        report = self.pbx.folder / "kept"
        call = self.pbx.call(["Answer()", "SpeechCreate(quillbrook:one)",
                              self.script(f"report={report}\nbytes 64000\nshow model\nfinal 80 yes"), "SpeechStart()",
                              "SpeechBackground(silence/1,60)", live.RESULT, "SpeechDestroy()"])
        self.pbx.wait_until(lambda: "quillbrook:one" in self.pbx.cli("quillbrook show sessions"), LIMIT, "no session")
        self.write(three={"model": "new"})
        said = self.pbx.cli("quillbrook reload")
        self.assertEqual(said, "The configuration was read: 2 engines\nAdded: quillbrook:three\n"
                               "Removed: quillbrook:one quillbrook:two\n"
                               "1 session keeps the settings that it began with\n")
        self.assertEqual(call.wait(), ["result 1|80|yes"])
        self.assertIn("model=old", report.read_text(encoding="utf-8"))
        self.assertEqual(self.model("quillbrook:three"), "new")
        self.assertNotIn("Plugin[2]", self.pbx.cli("quillbrook show plugins"))

        # A mistake, and another that does not keep the module from loading.
        for key, words in (("plugin", "missing.so"), ("modell", 'did you mean "model"?')):
            self.write(three={"model": "newer", key: "missing.so"})
            said = self.pbx.cli("quillbrook reload")
            self.assertIn(words, said)
            self.assertIn("Nothing was changed", said)
            self.assertEqual(self.model("quillbrook:three"), "new")
        self.assertIn("was read: 2 engines", self.pbx.cli("quillbrook reload anyway"))
        self.assertEqual(self.model("quillbrook:three"), "newer")

    def test_reload_again_and_again_under_calls(self):
        for engine in ("quillbrook", "quillbrook:one") * 2:
            self.pbx.call([step.format(engine=engine) for step in COMING_AND_GOING], talker=["Wait(3600)"])
        for round_ in range(TIMES):
            self.write({"verbose": "no"}, one={"model": str(round_)}, **({"two": {}} if round_ % 2 else {}))
            self.assertIn("was read", self.pbx.cli("quillbrook reload"))
        self.pbx.cli("channel request hangup all")
        self.pbx.wait_until(lambda: "0 active channels" in self.pbx.cli("core show channels"), LIMIT, "a call hangs")
        self.assertEqual(self.model("quillbrook:one"), str(TIMES - 1))
        self.assertTrue(self.pbx.unload_module(MODULE))
        self.assertTrue(self.pbx.load_module(MODULE))


if __name__ == "__main__":
    live.main()
