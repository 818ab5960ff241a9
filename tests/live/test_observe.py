"""What happened on a call, as the dialplan, an AGI program and the manager interface learn it."""

import json
import shutil
import socket
import subprocess
import tempfile
from pathlib import Path
from xml.etree import ElementTree

import live
from live import LiveTest
from pbx import LIMIT, free_port, prompt, report

TIMELINE = Path(__file__).parents[2] / "timeline/quillbrook-timeline"
GRAMMAR = "#JSGF V1.0;\ngrammar polar;\npublic <answer> = yes [please] {sure} | no {never};\n"
# Asks through AGI, and says what it got.
AGI = """#!/usr/bin/env python3
import sys
while sys.stdin.readline().strip():
    pass
for name in ("cause", "meaning"):
    print(f"GET FULL VARIABLE ${{SPEECH_ENGINE({name})}}", flush=True)
    print(f"SET VARIABLE AGI_{name} {sys.stdin.readline().split('(')[1].split(')')[0]}", flush=True)
    sys.stdin.readline()
"""


class Manager:
    """A connection to the manager interface of a PBX."""

    def __init__(self, port):
        self.connection = socket.create_connection(("127.0.0.1", port), timeout=LIMIT)
        self.connection.sendall(b"Action: Login\r\nUsername: watcher\r\nSecret: watch\r\n\r\n")
        self.stream = self.connection.makefile(newline="", encoding="utf-8")
        self.stream.readline()

    def close(self):
        self.stream.close()
        self.connection.close()

    def events_until(self, name):
        """The module's events up to one of that name."""
        found = []
        while not found or found[-1]["Event"] != name:
            lines = iter(self.stream.readline, "\r\n")
            message = dict(line.rstrip("\r\n").split(": ", 1) for line in lines if ": " in line)
            found += [message] if message.get("Event", "").startswith("Quillbrook") else []
        return found


class ObserveTest(LiveTest):
    general = {"returnnlsml": "yes", "completetimeout": "300", "incompletetimeout": "2000"}
    profiles = {"followed": {"returnnlsml": "no", "events": "interims", "dsp": "yes", "completetimeout": "5000",
                             "incompletetimeout": "9000"},
                "english": {"plugin": "plugin_pocketsphinx.so", "phrases": "yes,zzyzxq"}}
    complaints = ("says: ",)
    modules = ("res_agi",)
    port = free_port()

    @classmethod
    def files(cls):
        return {"manager.conf": f"[general]\nenabled=yes\nbindaddr=127.0.0.1\nport={cls.port}\n"
                                "[watcher]\nsecret=watch\nread=all\nwrite=all\n"}

    @classmethod
    def setUpClass(cls):
        cls.traces = Path(tempfile.mkdtemp(prefix="traces-"))
        cls.addClassCleanup(shutil.rmtree, cls.traces)
        cls.profiles["followed"]["trace"] = cls.traces
        cls.profiles["english"]["plugin"] = live.build / "lib/quillbrook/plugin_pocketsphinx.so"
        super().setUpClass()
        (cls.pbx.folder / "polar.jsgf").write_text(GRAMMAR, encoding="utf-8")

    def setUp(self):
        super().setUp()
        self.manager = Manager(self.port)
        self.addCleanup(self.manager.close)

    def test_agi_reads_the_same(self):
        program = self.pbx.folder / "ask.py"
        program.write_text(AGI, encoding="utf-8")
        program.chmod(0o755)
        lines = self.pbx.call(
            ["Answer()", "SpeechCreate(quillbrook)", self.script("bytes 4000\nfinal 80 no\nfinish"),
             f"SpeechLoadGrammar(polar,{self.pbx.folder}/polar.jsgf)", "SpeechActivateGrammar(polar)", "SpeechStart()",
             "SpeechBackground(silence/1,5)", f"AGI({program})", report("agi ${AGI_cause} ${AGI_meaning}")]).wait()
        self.assertEqual(lines, ["agi understood never"])

    def test_a_program_follows_a_call_by_its_events_and_a_trace_tells_it_later(self):
        lines = self.pbx.call(
            ["Answer()", "SpeechCreate(quillbrook:followed)",
             self.script("bytes 4000\ninterim I\ninterim I would\nsleep 300\ninterim I would like\nsleep 300\n"
                         "final 80 tea\nfinish"),
             "SpeechStart()", "SpeechBackground(silence/1,30)", report("uniqueid ${UNIQUEID}"), live.RESULT,
             "SpeechDestroy()"]).wait()
        self.assertEqual(lines[1], "result 1|80|tea")
        start, *interims, result, end = self.manager.events_until("QuillbrookEnd")
        self.assertEqual([event["Event"] for event in (start, result, end)],
                         ["QuillbrookStart", "QuillbrookResult", "QuillbrookEnd"])
        for event in (start, *interims, result, end):
            self.assertEqual(event["Uniqueid"], lines[0].split(" ")[1])
            self.assertEqual((event["Engine"], event["Session"]), ("quillbrook:followed", start["Session"]))
        hypotheses = [event for event in interims if "Score" not in event]  # a final piece has one
        self.assertEqual(hypotheses[-1]["Text"], "I would like")
        self.assertEqual({event["Event"] for event in interims}, {"QuillbrookInterim"})
        self.assertEqual((result["Text"], result["Score"], result["Cause"]), ("tea", "80", "understood"))
        self.assertLessEqual(int(hypotheses[-1]["Ms"]) + 300, int(result["Ms"]))
        self.assertEqual(end["Cause"], "understood")
        trace, = self.traces.glob("*.jsonl")
        self.pbx.wait_until(lambda: '"end"' in trace.read_text(encoding="ascii"), LIMIT, "the trace has no end")
        told = [json.loads(line) for line in trace.read_text(encoding="ascii").splitlines()]
        self.assertEqual([line["text"] for line in told if line["what"] in ("interim", "final")],
                         ["I", "I would", "I would like", "tea"])
        self.assertEqual((told[0]["what"], told[0]["uniqueid"], told[-1]["what"]),
                         ("start", start["Uniqueid"], "end"))
        picture = self.draw(trace, f"{prompt('vm-no')}.wav")
        for text in ("I", "would", "like", "tea", "completetimeout"):
            self.assertIn(text, picture)

    def draw(self, *arguments, status=0):
        """What quillbrook-timeline draws, which is XML, or the sentence with which it refuses."""
        drawn = subprocess.run([TIMELINE, *arguments], capture_output=True, text=True, timeout=LIMIT, check=False)
        self.assertEqual(drawn.returncode, status, drawn.stderr)
        return drawn.stderr if status else "".join(ElementTree.fromstring(drawn.stdout).itertext())

    def test_the_timeline_draws_what_anybody_says(self):
        trace = self.traces / "hostile.trace"
        trace.write_text(json.dumps({"ms": 0, "what": "start", "engine": "a\"<b", "completetimeout": "x"}) + "\n"
                         + json.dumps({"ms": 1e300, "what": "interim", "text": "</text><script>\0\ud800&" + 3000 * "x"})
                         + '\n{"ms":5,"what":"timers","since":-9,"completetimeout":800}\n[1]\nnull\n'
                         + '{"ms":7,"what":"expiry","timer":"plugintimeout","limit":7}\n{"ms":9,"what":"res', "ascii")
        self.assertIn("</text><script>??&", self.draw(trace))
        for path in (trace.with_name("none"), Path(__file__)):
            self.assertRegex(self.draw(path, status=1), r"^quillbrook-timeline: .*\n$")
        self.assertIn("cannot read", self.draw(trace, trace, status=1))

    def test_lines_name_call_session_and_engine(self):
        self.pbx.call(["Answer()", "SpeechCreate(quillbrook:english)", "SpeechStart()", "SpeechBackground(silence/1,1)",
                       "SpeechDestroy()"]).wait()
        log = (self.pbx.folder / "log/full").read_text(encoding="utf-8")
        self.assertRegex(log, r"WARNING\[\d+\]\[C-[0-9a-f]+\] \S+: \[quillbrook:english\] \(QBK-\S+\) The plugin "
                              r"\S+ says: not in the dictionary, left out with their phrases: 'zzyzxq'\n")


if __name__ == "__main__":
    live.main()
