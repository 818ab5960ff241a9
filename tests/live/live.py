"""What the live tests share: a PBX with the module loaded, calls on the dummy plugin, and a look at what is left over.

A test file ends with `live.main()` and is run as `python3 test_x.py --build FOLDER [--host PREFIX] [-v] [Class.test]`.
--host, or the variable QUILLBROOK_HOST, names another PBX than the system's, for which FOLDER was built.
"""

import argparse
import contextlib
import os
import re
import subprocess
import sys
import time
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "demo"))

from host import host  # noqa: E402
from pbx import LIMIT, PrivatePbx, end_on_signals, report  # noqa: E402

MODULE = "res_speech_quillbrook.so"
COMPANION = "res_quillbrook_companion.so"

# Asks for what the host has after a question. Quotes and backslashes in a text are lost in this dialplan step.
RESULT = report("result ${SPEECH(results)}|${SPEECH_SCORE(0)}|${SPEECH_TEXT(0)}")

build = Path("build")


def configuration(general=None, **profiles):
    """quillbrook.conf with the dummy plugin, and profiles by name."""
    sections = {"general": {"plugin": build / "lib/quillbrook/plugin_dummy.so", "verbose": "yes", **(general or {})},
                **profiles}
    if profiles:
        sections["general"]["profiles"] = ",".join(profiles)
    return "".join(f"[{name}]\n" + "".join(f"{key}={value}\n" for key, value in keys.items())
                   for name, keys in sections.items())


@contextlib.contextmanager
def loaded_pbx(*arguments, **options):
    """A PBX with the module loaded."""
    with PrivatePbx(build, *arguments, **options) as pbx:
        if not pbx.load_module(MODULE):
            raise AssertionError(f"the module does not load: {pbx.log()[-10:]}")
        yield pbx


def start_recogniser(*arguments):
    """The offline recogniser behind a server: its process and its port."""
    server = subprocess.Popen([build / "bin/recognising_server", "--plugin",
                               build / "lib/quillbrook/plugin_pocketsphinx.so", *arguments],
                              stdout=subprocess.PIPE, text=True)
    return server, server.stdout.readline().removeprefix("port ").strip()


def require_module(name):
    """Skips the test on a PBX that lacks a module, as the older series do."""
    if not host().has_module(name):
        raise unittest.SkipTest(f"Asterisk {host().series} has no {name}")


class LiveTest(unittest.TestCase):
    """A PBX for each class. `general` and `profiles` are the module's configuration."""

    general = {}
    profiles = {}
    load = (MODULE,)
    modules = ()  # further modules of the host
    # Beginnings of WARNING and ERROR lines of the module that the class provokes.
    complaints = ()

    @classmethod
    def setUpClass(cls):
        cls.pbx = PrivatePbx(build, quillbrook_conf=configuration(cls.general, **cls.profiles), modules=cls.modules,
                             files=cls.files())
        cls.pbx.__enter__()
        cls.addClassCleanup(cls.pbx.stop)
        for name in cls.load:
            if not cls.pbx.load_module(name):
                raise AssertionError(f"{name} does not load: {cls.pbx.log()[-10:]}")

    @classmethod
    def tearDownClass(cls):
        wrong = [line for line in cls.pbx.log() if line.level in ("WARNING", "ERROR") and line.source.endswith(".cpp")
                 and not any(known in line.text for known in cls.complaints)]
        assert not wrong, f"the module complained: {wrong}"
        status = cls.pbx.stop()
        assert status == 0, f"the PBX ended with status {status}: {cls.pbx.error_output}"
        assert not cls.files_left(), f"left behind: {cls.files_left()}"

    @classmethod
    def files(cls):
        """Configuration files of the host by name, in place of its usual ones."""
        return {}

    def setUp(self):
        self.scripts = 0

    def script(self, text):
        """A dialplan step that gives the call's plugin a script. {report} is the path that read_report reads."""
        self.scripts += 1
        path = self.pbx.folder / f"configuration_{self.id()}_{self.scripts}"
        path.write_text(text.replace("{report}", str(self.report_path)), encoding="utf-8")
        return f"SpeechLoadGrammar(script,{path})"

    @property
    def report_path(self):
        return self.pbx.folder / f"report_{self.id()}"

    def read_report(self):
        """Fields that the plugin wrote with show."""
        lines = self.report_path.read_text(encoding="utf-8").splitlines()
        return dict(line.split("=", 1) for line in lines if "=" in line)

    def ask(self, script, engine="quillbrook", talker=None, before=(), seconds=5):
        """A call with one question; gives the reports."""
        return self.pbx.call(
            ["Answer()", f"SpeechCreate({engine})", self.script(script), *before, "SpeechStart()",
             f"SpeechBackground(silence/1,{seconds})", RESULT, "SpeechDestroy()"], talker).wait()

    @classmethod
    def files_left(cls):
        """Files in /tmp that the module has named in its log and not removed. Others may run beside this PBX."""
        named = {name for line in cls.pbx.log() for name in re.findall(r"/tmp/quillbrook[^ ()]*\.\w+", line.text)}
        return {name for name in named if Path(name).exists()}

    def wait_for_no_files(self):
        end = time.monotonic() + LIMIT
        while self.files_left() and time.monotonic() < end:
            time.sleep(0.02)
        self.assertEqual(self.files_left(), set())


def main():
    global build
    end_on_signals()
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--host", default=os.environ.get("QUILLBROOK_HOST", ""))
    options, rest = parser.parse_known_args()
    os.environ["QUILLBROOK_HOST"] = options.host
    build = Path(options.build).resolve()
    unittest.main(module="__main__", argv=[sys.argv[0], *(rest or ["-v"])])
