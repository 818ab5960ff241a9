"""The module's end: it comes and goes while calls create and end sessions without a pause, and the PBX and every call
live on; or the PBX is killed, and the next load removes what it left in /tmp."""

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


if __name__ == "__main__":
    live.main()
