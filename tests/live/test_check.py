"""What is wrong with a configuration file: the program and the console command, against a file with one of each
mistake; and that they read a file as the PBX does."""

import re
import subprocess
import unittest
from pathlib import Path

import live
from live import MODULE, configuration

EXPECTED = Path(__file__).parent / "expected"

# Everything that the PBX understands in a file, with values and keys that are wrong, so that both tell what they read.
CUNNING = """;-- a comment
[general] of several lines --;
[common](!)
plugin=>{plugin}
debug = yes
dsp = from above
nokey = 1
[general](common)
#include "{folder}/incl*.conf"
endpointing = log a\\;b ; "; c" is a comment
[late](common)
twin=7
[general](+)
keepfiles += and more
dsp = later
more = 1
[Late]
"""
INCLUDED = "profiles = late\nkeepfiles = one \n;--- only this line\nreturnjson =\nincluded= m\n"
READ = {"dsp": "from above", "endpointing": "log a;b", "keepfiles": "one and more", "returnjson": ""}


class CheckTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.pbx = cls.enterClassContext(live.loaded_pbx(configuration()))

    def check(self, text, console=True):
        """The status of the program for a file in the PBX's folder, and what it prints, as the console does."""
        self.pbx.write_file("quillbrook.conf", text)
        path = self.pbx.folder / "etc/quillbrook.conf"
        run = subprocess.run([live.build / "bin/quillbrook-check", path], capture_output=True, text=True, check=False)
        if console:
            self.assertEqual(run.stdout, self.pbx.cli("quillbrook check configuration"))
        return run.returncode, run.stdout.replace(f"{path}:", "FILE:").replace(str(live.build), "BUILD")

    def test_one_of_each_mistake(self):
        text = (EXPECTED / "mistakes.conf").read_text(encoding="utf-8").replace("BUILD", str(live.build))
        status, report = self.check(text)
        self.assertEqual(report, (EXPECTED / "mistakes.txt").read_text(encoding="utf-8"))
        self.assertEqual(status, 2)

    def setUp(self):
        if not self.pbx.module_runs(MODULE):
            self.pbx.write_file("quillbrook.conf", configuration())
            self.pbx.load_module(MODULE)

    def test_files_that_load(self):
        self.assertEqual(self.check(configuration(one={})), (0, "FILE: nothing to say\n"))
        status, report = self.check(configuration({"nothing": "1"}, one={}))
        self.assertEqual((status, report.splitlines()[1:]),
                         (1, ["FILE: the module loads, and does not do all that the file says"]))
        # Two included files go beyond the limit together.
        self.pbx.write_file("half.conf", ";" * 600000)
        self.assertEqual(self.check("[general]\n" + "#include half.conf\n" * 2)[1].splitlines()[0],
                         "error   half.conf: the configuration has more than 1048576 bytes from here on")
        program = live.build / "bin/quillbrook-check"
        for arguments, wanted in ((["--help"], 0), (["--nothing"], 3), (["one", "two"], 3), (["/nonexistent"], 2)):
            run = subprocess.run([program, *arguments], capture_output=True, text=True, check=False)
            self.assertEqual(run.returncode, wanted, arguments)

    def test_reads_as_the_pbx_does(self):
        self.pbx.write_file("included.conf", INCLUDED)
        cunning = CUNNING.format(plugin=live.build / "lib/quillbrook/plugin_dummy.so", folder=self.pbx.folder / "etc")
        status, report = self.check(cunning)
        self.assertEqual(status, 1)
        self.pbx.unload_module(MODULE)
        before = len(self.pbx.log())
        self.assertTrue(self.pbx.load_module(MODULE), self.pbx.log()[-5:])
        lines = [line.text for line in self.pbx.log()[before:]]
        for key, value in READ.items():
            self.assertIn(f"general.{key}={value}", lines)
            self.assertIn(f'{key}: "{value}" is neither yes nor no', report)
        # What the module complains of by itself is part of what the check does; the PBX tells no lines of sections.
        told = [re.sub(r":\d+(: a section)", r"\1", line.removeprefix("warning ")) for line in report.splitlines()]
        complaints = [line for line in lines if ".conf:" in line]
        self.assertEqual(len(complaints), 7, complaints)
        self.assertLessEqual(set(complaints), set(told))
        # What the PBX refuses is refused.
        self.pbx.unload_module(MODULE)
        for text in ("a=1\n", "[general\n", "[general](!\n", "[general](+)\n", "[general](nothing)\n",
                     "[general]\n#include nosuch.conf\n"):
            self.assertEqual(self.check(text, console=False)[0], 2, text)
            self.assertFalse(self.pbx.load_module(MODULE), text)


if __name__ == "__main__":
    live.main()
