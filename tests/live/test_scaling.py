"""Two PBXs, and recogniser servers behind one address that a balancer keeps: one is lost in mid-call, one is added, one is
drained. docs/scaling.md describes this set-up, and takes its figures from here (-v prints them)."""

import contextlib
import csv
import shutil
import socket
import statistics
import subprocess
import tempfile
import unittest
from pathlib import Path

import live
from live import RESULT, report
from pbx import LIMIT, PbxError, free_port

CALLS = 4  # on each PBX
SERVERS = ("one", "two", "three")
# The caller is silent until told to speak, so that things happen at known places of a call.
TALKER = ["Playback(silence/1)", 'GotoIf($["${speak}"!="yes"]?2)', "Playback(digits/7)", report("said"),
          "Playback(silence/10&silence/10)"]
STEPS = ["Answer()", "SpeechCreate(quillbrook)", "SpeechStart()", "SpeechBackground(silence/1,60)", RESULT,
         "SpeechDestroy()"]

BALANCER = """\
global
    stats socket {folder}/admin level admin
defaults
    mode tcp
    timeout connect 1s
    timeout client 1h
    timeout server 1h
    retries 3
    option redispatch
frontend speech
    bind 127.0.0.1:{port}
    default_backend recognisers
backend recognisers
    balance leastconn
    default-server check inter 200 fall 2 rise 1 on-marked-down shutdown-sessions
"""


class Balancer:
    def __init__(self, folder, servers):
        self.folder = folder
        self.port = free_port()
        lines = [f"    server {name} 127.0.0.1:{port}" for name, port in servers.items()]
        lines.append("    server added 127.0.0.1:1 disabled")
        (folder / "haproxy.cfg").write_text(BALANCER.format(folder=folder, port=self.port) + "\n".join(lines) + "\n",
                                            encoding="utf-8")
        self.process = subprocess.Popen(["haproxy", "-q", "-db", "-f", folder / "haproxy.cfg"])

    def stop(self):
        self.process.terminate()
        self.process.wait()

    def tell(self, command):
        with socket.socket(socket.AF_UNIX) as console:
            console.connect(str(self.folder / "admin"))
            console.sendall(command.encode() + b"\n")
            return b"".join(iter(lambda: console.recv(65536), b"")).decode()

    def servers(self, column):
        """A column of the statistics, by server: scur (connections), stot (those since the start), status."""
        rows = csv.DictReader(self.tell("show stat").removeprefix("# ").splitlines())
        return {row["svname"]: row[column] for row in rows
                if row["pxname"] == "recognisers" and row["svname"] != "BACKEND"}

    def connections(self):
        return {name: int(count) for name, count in self.servers("scur").items()}


@unittest.skipUnless(shutil.which("haproxy"), "haproxy is not installed")
class ScalingTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.processes = {}
        cls.balancer = Balancer(folder, {name: cls.start_server(name) for name in SERVERS})
        cls.addClassCleanup(cls.balancer.stop)
        general = {"plugin": live.build / "lib/quillbrook/plugin_websocket.so", "phrases": "five,seven,nine",
                   "url": f"ws://127.0.0.1:{cls.balancer.port}", "configuration": "connect_timeout=20000",
                   "completetimeout": 800, "incompletetimeout": 3000}
        cls.pbxs = [cls.enterClassContext(live.loaded_pbx(live.configuration(general))) for _ in range(2)]
        cls.wait_until(lambda: all(cls.balancer.servers("status")[name] == "UP" for name in SERVERS))

    @classmethod
    def start_server(cls, name):
        server, port = live.start_recogniser()
        cls.processes[name] = server
        cls.addClassCleanup(server.__exit__, None, None, None)
        cls.addClassCleanup(server.kill)
        return port

    @classmethod
    def wait_until(cls, condition):
        def holds():
            with contextlib.suppress(OSError, KeyError):  # the balancer is not there yet
                return condition()
            return False

        cls.pbxs[0].wait_until(holds, LIMIT, "the balancer never got there")

    def begin(self):
        """Silent calls on both PBXs, each with its connection."""
        before = sum(self.balancer.connections().values())
        for pbx in self.pbxs:
            pbx.cli("dialplan set global speak no")
        calls = [pbx.call(STEPS, TALKER) for pbx in self.pbxs for _ in range(CALLS)]
        self.wait_until(lambda: sum(self.balancer.connections().values()) == before + len(calls))
        return calls

    def speak(self, calls):
        """Expects each to be understood. Gives the milliseconds from the end of the words to the results."""
        for pbx in self.pbxs:
            pbx.cli("dialplan set global speak yes")
        self.assertEqual([call.wait()[0].split("|")[-1] for call in calls], ["seven"] * len(calls),
                         [pbx.logged("", "WARNING") for pbx in self.pbxs])
        self.wait_until(lambda: sum(self.balancer.connections().values()) == 0)
        delays = []
        for call in calls:
            said, = [time for time, text in call.reports(call.talker) if text == "said"]
            delays.append((call.reports()[0][0] - said) * 1000)
        return f"{statistics.median(delays):.0f} ms median, {max(delays):.0f} ms at most"

    def test_a_server_is_lost_another_comes_and_one_is_drained(self):
        calls = self.begin()
        spread = self.balancer.connections()
        self.assertTrue(all(spread[name] >= 2 for name in SERVERS), spread)
        delays = self.speak(calls)
        print(f"{len(calls)} calls over three servers {spread}: {delays}")

        calls = self.begin()
        lost = self.balancer.connections()["one"]
        self.assertGreater(lost, 0)
        self.processes["one"].kill()
        self.wait_until(lambda: self.balancer.servers("status")["one"] == "DOWN"
                        and sum(self.balancer.connections().values()) == len(calls))
        delays = self.speak(calls)
        print(f"{lost} of {len(calls)} calls lost their server before they spoke: {delays}")

        port = self.start_server("added")
        self.balancer.tell(f"set server recognisers/added addr 127.0.0.1 port {port}")
        self.balancer.tell("enable server recognisers/added")
        self.wait_until(lambda: self.balancer.servers("status")["added"] == "UP")
        calls = self.begin()
        self.assertGreater(self.balancer.connections()["added"], 0, "new calls reach the server that came")

        # The server that is drained keeps the calls that it has, and gets no new ones.
        kept = self.balancer.connections()["two"]
        self.assertGreater(kept, 0)
        self.balancer.tell("set server recognisers/two state drain")
        more = self.begin()
        self.assertEqual(self.balancer.connections()["two"], kept)
        delays = self.speak(calls + more)
        print(f"{len(calls + more)} calls beside a server that is drained: {delays}")
        complaints = [line for pbx in self.pbxs for line in pbx.logged("error", "WARNING")]
        self.assertFalse(complaints)

        calls = self.begin()
        for process in self.processes.values():
            process.kill()
        self.assertEqual([call.wait()[0].split("|")[-1] for call in calls], ["error"] * len(calls), "all are gone")


if __name__ == "__main__":
    try:
        live.main()
    except PbxError as error:
        raise SystemExit(f"test_scaling: {error}") from error
