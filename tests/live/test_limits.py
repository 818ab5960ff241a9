"""A PBX that is killed again and again, or that has hardly any room: on the disk, of descriptors, of memory. Whatever a
call does not get there, its caller goes on, and with room again everything works as before. Takes minutes: only with
QUILLBROOK_THOROUGH in the environment."""

import os
import re
import resource
import shutil
import signal
import subprocess
import tempfile
import unittest
from pathlib import Path

import live
from live import MODULE, LiveTest, configuration
from pbx import LIMIT, PrivatePbx, report, sanitizer_environment

KILLS = 20
CALLS = 12
SECONDS = 8  # of audio that each call has
WORDS = f"bytes {SECONDS * 16000}\\;final 90 good morning"
TALKER = ["Playtones(440)", "Wait(600)"]  # opens no file
IN_A_SMALL_TMP = ("unshare", "--mount", "sh", "-c", 'mount -t tmpfs -o size=1m tmpfs /tmp && exec "$@"', "sh")


def on_the_list(pbx):
    """The files that the module has noted as its own."""
    path = Path(f"/proc/{pbx.pid}/root/tmp/quillbrook.{pbx.pid}")
    return set(re.findall(r"/tmp/quillbrook[\w.-]+", path.read_text(errors="replace"))) if path.exists() else set()


def question(pbx, before=()):
    return pbx.call(["Answer()", *before, "SpeechCreate(quillbrook)", "SpeechStart()",
                     f"SpeechBackground(silence/1,{3 * SECONDS})", report("cause ${SPEECH_ENGINE(cause)}"),
                     "SpeechDestroy()"], TALKER)


@unittest.skipUnless(os.environ.get("QUILLBROOK_THOROUGH"), "takes minutes")
class KilledTest(unittest.TestCase):
    def test_the_next_load_removes_what_a_killed_pbx_left(self):
        left = set()
        for kills in range(KILLS + 1):
            with live.loaded_pbx(configuration({"returnjson": "yes"})) as pbx:
                self.assertEqual({name for name in left if os.path.exists(name)}, set())
                if kills == KILLS:
                    break
                for _ in range(CALLS):
                    pbx.call(["Answer()", "SpeechCreate(quillbrook)", "SpeechStart()",
                              "SpeechBackground(silence/1,600)"], ["Playback(digits/7)", "Goto(1)"])
                pbx.wait_until(lambda: len(on_the_list(pbx)) >= CALLS, LIMIT, "no recognitions")
                left = on_the_list(pbx)
                os.kill(pbx.pid, signal.SIGKILL)


@unittest.skipUnless(os.environ.get("QUILLBROOK_THOROUGH"), "takes minutes")
class LimitTest(LiveTest):
    general = {"configuration": WORDS}
    modules = ("app_playtones",)
    complaints = ("",)

    def ask_within(self, what, value):
        """Calls that are up already when the limit comes."""
        calls = [question(self.pbx, (report("up"), "Wait(10)")) for _ in range(CALLS)]
        for call in calls:
            call.wait_for("up")
        usual = resource.prlimit(self.pbx.pid, what)
        resource.prlimit(self.pbx.pid, what, (value(), usual[1]))
        try:
            return [call.wait(2 * LIMIT)[-1] for call in calls]
        finally:
            resource.prlimit(self.pbx.pid, what, usual)

    def expect_as_before(self):
        self.assertEqual(question(self.pbx).wait()[-1], "cause understood")
        self.assertEqual(on_the_list(self.pbx), set())

    def test_few_descriptors(self):
        more = 4
        if sanitizer_environment(live.build):
            self.skipTest("a sanitizer takes descriptors to look at objects")
        ends = self.ask_within(resource.RLIMIT_NOFILE, lambda: len(os.listdir(f"/proc/{self.pbx.pid}/fd")) + more)
        self.assertEqual(set(ends), {"cause understood", "cause storage"})
        self.expect_as_before()

    def test_little_address_space(self):
        if sanitizer_environment(live.build):
            self.skipTest("a sanitizer needs all of it")
        more = 1 << 20  # bytes: the stacks of a few threads

        def limit():
            status = Path(f"/proc/{self.pbx.pid}/status").read_text()
            return int(re.search(r"VmSize:\s*(\d+)", status)[1]) * 1024 + more

        self.assertEqual(set(self.ask_within(resource.RLIMIT_AS, limit)), {"cause understood", "cause memory"})
        self.expect_as_before()


@unittest.skipUnless(os.environ.get("QUILLBROOK_THOROUGH"), "takes minutes")
class SmallDiskTest(unittest.TestCase):
    def test_a_tmp_of_one_megabyte(self):
        if subprocess.run([*IN_A_SMALL_TMP, "true"], capture_output=True, check=False).returncode != 0:
            self.skipTest("a folder of one's own cannot be mounted here")
        # What the PBX needs must not stand in the /tmp that it does not see.
        elsewhere = Path(self.enterContext(tempfile.TemporaryDirectory(dir="/var/tmp")))
        shutil.copytree(live.build / "lib", elsewhere / "lib")
        conf = configuration({"configuration": WORDS, "plugin": elsewhere / "lib/quillbrook/plugin_dummy.so"})
        tempfile.tempdir = elsewhere
        self.addCleanup(setattr, tempfile, "tempdir", None)
        with PrivatePbx(elsewhere, conf, modules=("app_playtones",), prefix=IN_A_SMALL_TMP) as pbx:
            self.assertTrue(pbx.load_module(MODULE))
            causes = [call.wait(2 * LIMIT)[-1] for call in [question(pbx) for _ in range(CALLS)]]
            self.assertEqual(set(causes), {"cause understood", "cause storage"})
            self.assertEqual(question(pbx).wait()[-1], "cause understood")
            self.assertEqual(os.listdir(f"/proc/{pbx.pid}/root/tmp"), [])
            self.assertTrue(pbx.unload_module(MODULE))


if __name__ == "__main__":
    live.main()
