"""The module's end: it comes and goes while calls create and end sessions without a pause, and the PBX and every call
live on. And another configuration for a module that stays."""

import os
import re

import live
from live import MODULE, LiveTest, configuration
from pbx import LIMIT

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


class ReloadTest(LiveTest):
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


if __name__ == "__main__":
    live.main()
