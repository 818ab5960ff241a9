"""Real calls on a private PBX for as long as you like: random hangups, keys and silence, every plugin, a server that is
killed and comes back, and between the rounds an unload and a load. Prints what the PBX holds at the end of each round,
when no call is up, and how fast that grows. Fails when it does not come back to what it was, or when an engine gives no
answer in the end.

Usage: soak.py MINUTES CALLS [--build FOLDER]
"""

import argparse
import collections
import os
import random
import re
import sys
import time
import urllib.request
from pathlib import Path

import live
from live import MODULE, RESULT
from pbx import LIMIT, PbxError, PrivatePbx, end_on_signals, free_port, report, sanitizer_environment
from test_hostile import LIMITS, SCRIPTS

ROUNDS = 60  # at most, of equal length
SHORTEST_ROUND = 10  # seconds
PATIENCE = 12  # seconds, on an average, behind which a caller hangs up
WARM = 2  # rounds behind which everything has been used once
# What the PBX may keep beyond its first state: pools of the host, and memory that the allocator keeps.
MORE_THREADS = 10
MORE_DESCRIPTORS = 5
MORE_KILOBYTES = 16 * 1024
MORE_KILOBYTES_SANITIZED = 512 * 1024  # the sanitizer keeps what was freed for a while

MODES = {"text": {}, "json": {"returnjson": "yes"}, "xml": {"returnnlsml": "yes"},
         "early": {"earlyspeechtimeout": "200", "dsp": "yes"},
         "separate": {"continuous": "yes", "utterances": "separate", "returnnlsml": "yes"}}
SAID = "bytes 4000\\;interim good\\;sleep 200\\;final 90 good morning"
TALKERS = {
    "speaks": ["Playback(silence/1&digits/7&silence/2)"] * 30,
    "keys": ["Playback(silence/2)", "SendDTMF(17)"] * 20,
    "still": ["Wait(60)"],
}

class Server:
    """The offline recogniser behind a server, which can be killed and started again on its port."""

    def __init__(self):
        self.port = free_port()
        self.process = None

    def start(self):
        self.process, _ = live.start_recogniser("--port", str(self.port))

    def kill(self):
        if self.process:
            self.process.kill()
            self.process.communicate()
        self.process = None


class Soak:
    def __init__(self, pbx, server, calls):
        self.pbx, self.server, self.calls = pbx, server, calls
        self.engines = []
        self.placed = 0
        self.files_seen = set()
        self.samples = []
        self.causes = collections.Counter()

    # --- configuration and dialplan

    @staticmethod
    def configuration(server):
        plugins = live.build / "lib/quillbrook"
        words = {"phrases": "one,two,seven"}
        profiles = {name: {**keys, "configuration": SAID} for name, keys in MODES.items()}
        profiles["example"] = {"plugin": plugins / "plugin_example.so"}
        profiles["pocketsphinx"] = {"plugin": plugins / "plugin_pocketsphinx.so", **words}
        profiles["websocket"] = {"plugin": plugins / "plugin_websocket.so",
                                 "url": f"ws://127.0.0.1:{server.port}", **words}
        profiles["transcription"] = {"plugin": plugins / "plugin_transcription.so",
                                     "url": f"http://127.0.0.1:{server.port}/v1/audio/transcriptions", **words}
        if (live.build / "tests/plugin_hostile.so").exists():
            profiles["hostile"] = {"plugin": live.build / "tests/plugin_hostile.so"}
        general = {**LIMITS, "completetimeout": "800", "incompletetimeout": "3000", "plugintimeout": "3000",
                   "verbose": "no"}
        return live.configuration(general, **profiles), list(profiles)

    def write_dialplan(self):
        lines = []
        for name, steps in {**{f"talk-{name}": ["Answer()", *steps] for name, steps in TALKERS.items()},
                            **{f"ask-{engine}": self.questions(engine) for engine in self.engines}}.items():
            lines += [f"[{name}]", *(f"exten => s,{number},{step}" for number, step in enumerate(steps, start=1))]
        self.pbx.write_file("extensions.conf", "\n".join(lines) + "\n")
        self.pbx.cli("dialplan reload")

    @staticmethod
    def questions(engine):
        """A dialplan without an end. One object may be asked several times."""
        steps, made = ["Answer()"], False
        for script in random.sample(SCRIPTS, 10) if engine == "hostile" else [""] * 5:
            if not made:
                steps.append(f"SpeechCreate(quillbrook:{engine})")
            if script:
                steps.append(f"SpeechLoadGrammar(x,builtin:grammar/configuration={script})")
            # The second start ends the prompt of early speech.
            steps += ["SpeechStart()", "SpeechStart()", "SpeechBackground(silence/1,6)",
                      report(f"{engine} ${{SPEECH_ENGINE(cause)}}"), "Wait(0.3)"]
            made = random.random() < 0.5
            if not made:
                steps.append("SpeechDestroy()")
        return [*steps, *(["SpeechDestroy()"] if made else []), "Goto(2)"]

    # --- one round

    def channels(self):
        """Listening legs, by the engine that they ask."""
        rows = [line.split("!") for line in self.pbx.cli("core show channels concise").splitlines()]
        return [row[0] for row in rows if len(row) > 1 and row[1].startswith("ask-")]

    def place_call(self, engine):
        talker = random.choice(list(TALKERS))
        self.pbx.cli(f"channel originate Local/s@talk-{talker} extension s@ask-{engine}")
        self.placed += 1

    def look(self):
        """What an operator looks at, and which files there are."""
        self.pbx.cli(f"quillbrook show {random.choice(['sessions', 'statistics', 'plugins'])}")
        urllib.request.urlopen(f"http://127.0.0.1:{self.pbx.http_port}/quillbrook_metrics", timeout=LIMIT).read()
        if self.own_list.exists():
            self.files_seen.update(re.findall(rb"/tmp/quillbrook[\w.-]+", self.own_list.read_bytes()))

    @property
    def own_list(self):
        return Path(f"/tmp/quillbrook.{self.pbx.pid}")

    def run_round(self, seconds):
        self.write_dialplan()
        begin = time.monotonic()
        dies, comes_back = begin + seconds / 2, begin + seconds * 2 / 3
        looked = begin
        while time.monotonic() < begin + seconds:
            up = self.channels()
            for _ in range(self.calls - len(up)):
                self.place_call(self.engines[self.placed % len(self.engines)])
            looked, before = time.monotonic(), looked
            for channel in up:
                if random.random() < (looked - before) / PATIENCE:
                    self.pbx.cli(f"channel request hangup {channel}")
            self.look()
            if self.server.process and dies < time.monotonic() < comes_back:
                self.server.kill()
            elif not self.server.process and time.monotonic() > comes_back:
                self.server.start()
            time.sleep(random.uniform(0, 0.3))
        if not self.server.process:
            self.server.start()

    def come_to_rest(self):
        self.pbx.cli("channel request hangup all")
        self.pbx.wait_until(lambda: "0 active channels" in self.pbx.cli("core show channels"), LIMIT, "a call hangs")
        self.pbx.wait_until(lambda: "quillbrook_thread" not in self.pbx.cli("core show threads"), LIMIT,
                            "a thread of the module's goes on")
        self.pbx.wait_until(lambda: self.pbx.unload_module(MODULE), LIMIT, "something holds the module")
        left = [name for name in self.files_seen if os.path.exists(name)]
        if left or self.own_list.exists():
            raise PbxError(f"left in /tmp: {left or self.own_list}")
        self.files_seen.clear()
        self.samples.append(self.sample())
        if not self.pbx.load_module(MODULE):
            raise PbxError("the module does not load any more")

    def sample(self):
        status = Path(f"/proc/{self.pbx.pid}/status").read_text()
        values = {name: int(re.search(rf"^{name}:\s*(\d+)", status, re.M)[1]) for name in ("VmRSS", "Threads")}
        return time.monotonic(), values["VmRSS"], values["Threads"], len(os.listdir(f"/proc/{self.pbx.pid}/fd"))

    # --- the end

    def print_row(self, number):
        _, memory, threads, descriptors = self.samples[-1]
        print(f"{number:5} {self.placed:8} {memory:10} {threads:8} {descriptors:12}", flush=True)

    def expect_answers(self):
        """Each engine answers, whatever it has been through."""
        for engine in self.engines:
            if engine in ("hostile", "example"):
                continue
            lines = self.pbx.call(["Answer()", f"SpeechCreate(quillbrook:{engine})", "SpeechStart()", "SpeechStart()",
                                   "SpeechBackground(silence/1,60)", RESULT, report("cause ${SPEECH_ENGINE(cause)}")],
                                  TALKERS["speaks"]).wait(2 * LIMIT)
            if "cause understood" not in lines and "cause nomatch" not in lines:
                raise PbxError(f"{engine} gives no answer in the end: {lines}")

    def judge(self):
        """The least of the last third of the rounds against the least of the first third, once everything has been used. A
        single round tells little: the allocator keeps a heap as high as the highest piece that was in use by chance."""
        warm = self.samples[min(WARM, len(self.samples)) - 1:]
        third = (len(warm) + 2) // 3
        hours = max(warm[-1][0] - warm[0][0], 1) / 3600
        faults = []
        kilobytes = MORE_KILOBYTES_SANITIZED if sanitizer_environment(live.build) else MORE_KILOBYTES
        for name, index, more in (("memory in KiB", 1, kilobytes), ("threads", 2, MORE_THREADS),
                                  ("descriptors", 3, MORE_DESCRIPTORS)):
            first, last = (min(sample[index] for sample in part) for part in (warm[:third], warm[-third:]))
            growth = last - first
            print(f"{name}: {growth:+} from {first}, {slope(warm, index) * 3600:+.0f} an hour")
            if growth > more:
                faults.append(name)
        print(f"{self.placed} calls, {len(self.samples)} loads, {hours:.2f} hours; questions ended by: "
              + ", ".join(f"{cause} {count}" for cause, count in sorted(self.causes.items())))
        return faults

    def count_causes(self):
        for line in self.pbx.log():
            if found := re.match(r"R ask-\w+: (\w+ \w*)$", line.text):
                self.causes[found[1]] += 1


def slope(samples, index):
    """Of the line through the samples, by least squares, for a second."""
    times, values = [sample[0] for sample in samples], [sample[index] for sample in samples]
    mean_time, mean_value = sum(times) / len(times), sum(values) / len(values)
    spread = sum((moment - mean_time) ** 2 for moment in times)
    return sum((moment - mean_time) * (value - mean_value)
               for moment, value in zip(times, values)) / spread if spread else 0


def main():
    end_on_signals()
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("minutes", type=float)
    parser.add_argument("calls", type=int, help="that are up at a time")
    parser.add_argument("--build", default="build")
    options = parser.parse_args()
    live.build = Path(options.build).resolve()
    seconds = max(SHORTEST_ROUND, options.minutes * 60 / ROUNDS)
    server = Server()
    server.start()
    conf, engines = Soak.configuration(server)
    # The host's own steps are not written: an hour of them fills a disk.
    files = {"logger.conf": "[general]\ndateformat=%F %T.%3q\n[logfiles]\nfull => warning,error,verbose(1)\n"}
    try:
        # With as many heaps as threads, memory would tell of the allocator only.
        with PrivatePbx(live.build, quillbrook_conf=conf, files=files,
                        environment={"MALLOC_ARENA_MAX": "1"}) as pbx:
            soak = Soak(pbx, server, options.calls)
            soak.engines = engines
            if not pbx.load_module(MODULE):
                raise PbxError("the module does not load")
            print("round    calls memory/KiB  threads  descriptors")
            for number in range(1, max(WARM + 1, int(options.minutes * 60 / seconds)) + 1):
                soak.run_round(seconds)
                soak.come_to_rest()
                soak.print_row(number)
            soak.expect_answers()
            soak.count_causes()
            faults = soak.judge()
    finally:
        server.kill()
    sys.exit(f"does not come back: {', '.join(faults)}" if faults else 0)


if __name__ == "__main__":
    main()
