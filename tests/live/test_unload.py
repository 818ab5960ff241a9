"""The module comes and goes while calls create and end sessions without a pause: the PBX and every call live on."""

import os
import re

import live
from live import MODULE, LiveTest
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


if __name__ == "__main__":
    live.main()
