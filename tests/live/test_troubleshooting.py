"""The log lines of docs/troubleshooting.md: each is provoked, and has to come as it stands there."""

import re
import subprocess
import unittest
from pathlib import Path

import live
from live import MODULE, configuration
from pbx import PrivatePbx

PAGE = (Path(__file__).resolve().parents[2] / "docs/troubleshooting.md").read_text(encoding="utf-8")
# Heading and log lines of each section.
SECTIONS = {heading: lines.splitlines()
            for heading, lines in re.findall(r"^### ([^\n]*)\n(?:(?!^#).)*?^```log\n(.*?)^```$", PAGE,
                                             re.MULTILINE | re.DOTALL)}
CALL = ["Answer()", "SpeechCreate(quillbrook)", "SpeechStart()", "SpeechBackground(silence/1,2)"]


class TroubleTest(unittest.TestCase):
    def expect(self, heading, pbx_, before=0):
        """The lines of a section stand in the log, in their order."""
        lines = iter([f"{line.level} {line.text}" for line in pbx_.log()[before:]])
        for wanted in SECTIONS[heading]:
            pattern = ".*".join(map(re.escape, wanted.split("...")))
            self.assertTrue(any(re.fullmatch(pattern, line) for line in lines), f"{wanted}: {pbx_.log()[before:]}")

    def test_loads(self):
        good = configuration()
        with PrivatePbx(live.build) as machine:
            for heading, text in {
                "There is no configuration file": None,
                "The configuration file has a mistake": "[general\n",
                "A plugin is not found": "[general]\nplugin=plugin_nosuch.so\n",
                "A file is no plugin": configuration({"plugin": "/lib/x86_64-linux-gnu/libm.so.6"}),
                "The log file for plugins cannot be opened": configuration({"logfile": "/nonexistent/debug.log"}),
                "A profile stands in the list twice": configuration(sales={}, Sales={}),
                "There is no such engine": good + "profiles=sales\n",
            }.items():
                with self.subTest(heading):
                    if text is not None:
                        machine.write_file("quillbrook.conf", text)
                    before = len(machine.log())
                    loaded = machine.load_module(MODULE)
                    self.expect(heading, machine, before)
                    self.assertEqual(loaded, heading == "There is no such engine")

    def test_hosts(self):
        module = (live.build / "lib/asterisk/modules" / MODULE).read_bytes()
        options, = re.findall(rb'AST_BUILDOPT_SUM "(\w+)"', Path("/usr/include/asterisk/buildopts.h").read_bytes())
        for heading, content, left_out, libraries in (
                ("The module was built for another PBX", module.replace(options, options[::-1]), (), live.build),
                ("The speech API of the PBX is missing", module, ("res_speech", "app_speech_utils"), live.build),
                ("The grammar library is missing", module, (), Path("/nonexistent"))):
            if libraries != live.build and Path("/usr/lib/quillbrook").exists():
                continue  # the library is where the module looks, whatever we do
            with self.subTest(heading):
                machine = PrivatePbx(libraries, quillbrook_conf=configuration())
                machine._modules = tuple(name for name in machine._modules if name not in left_out)
                with machine:
                    (machine.folder / "mod" / MODULE).write_bytes(content)
                    self.assertFalse(machine.load_module(MODULE))
                    self.expect(heading, machine)

    def test_calls(self):
        libraries = live.build / "lib/quillbrook"
        with PrivatePbx(live.build) as machine:
            for heading, keys in {
                "The format of the audio is unknown": {"format": "mp9"},
                "The model is not installed": {"plugin": libraries / "plugin_pocketsphinx.so", "model": "/nonexistent"},
                "The server cannot be reached": {"plugin": libraries / "plugin_websocket.so",
                                                 "url": "ws://127.0.0.1:9"},
                "The plugin cannot read the audio": {"plugin": libraries / "plugin_example.so", "format": "gsm"},
                "The recognition was given up": {"configuration": "bytes 4000\\;interim well",
                                                 "incompletetimeout": 500},
            }.items():
                with self.subTest(heading):
                    machine.write_file("quillbrook.conf", configuration(keys))
                    self.assertTrue(machine.load_module(MODULE))
                    before = len(machine.log())
                    machine.call(CALL).wait()
                    self.expect(heading, machine, before)
                    self.assertTrue(machine.unload_module(MODULE))

    def test_http(self):
        def status(machine):
            answer = subprocess.run(["curl", "-s", "-o", "/dev/null", "-w", "%{http_code}",
                                     f"http://127.0.0.1:{machine.http_port}/quillbrook_metrics"],
                                    capture_output=True, text=True, check=False)
            return answer.stdout

        with PrivatePbx(live.build, quillbrook_conf=configuration({"web": "no"})) as machine:
            self.assertTrue(machine.load_module(MODULE))
            self.assertEqual(status(machine), "404")
        with PrivatePbx(live.build, quillbrook_conf=configuration(), files={"http.conf": "[general]\n"}) as machine:
            self.assertTrue(machine.load_module(MODULE))
            self.assertEqual(status(machine), "000")

    def test_every_section_is_provoked(self):
        source = Path(__file__).read_text(encoding="utf-8")
        self.assertEqual({heading for heading in SECTIONS if f'"{heading}"' not in source}, set())
        self.assertEqual(len(SECTIONS), PAGE.count("\n```log\n"))


if __name__ == "__main__":
    live.main()
