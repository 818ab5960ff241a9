"""What calls cost: processor time, memory, threads, the way of a result, and a frame beside its floor.

Usage: calls.py --build FOLDER [--calls 60] [--seconds 20] [--plugins websocket,transcription,pocketsphinx]

FOLDER has been built with -DQUILLBROOK_BENCH=ON; another tree's build can be measured by the programs of this one, with
--stub PROGRAM. Each plugin gets a private PBX with so many calls at a time: one leg says a digit every four seconds, the
other asks, again and again. The servers are stubs that cost next to nothing and give their finals themselves. The first
row is of the same calls with nobody asking, and what a plugin takes beyond it is the price of recognition.
"""

import argparse
import re
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "demo"))

from pbx import PbxError, PrivatePbx, end_on_signals, prompt, report  # noqa: E402

SETTLE = 8  # seconds from the last call's beginning to the first measurement
ENGINES = {
    "websocket": {"url": "ws://127.0.0.1:{port}", "configuration": "final=utterance"},
    "transcription": {"url": "http://127.0.0.1:{port}/v1/audio/transcriptions", "configuration": "interim=0"},
    "pocketsphinx": {"phrases": "zero,one,two,three,four,five,six,seven,eight,nine"},
}
TALK = ["Answer()", f"Playback({prompt('digits/7')})", "Playback(silence/3)", "Goto(2)"]
LISTEN = ["Answer()", "Playback(silence/10)", "Goto(2)"]
ASK = ["Answer()", "SpeechCreate(quillbrook)", "SpeechStart()", "SpeechBackground(silence/10,60)",
       report("final ${SPEECH_TEXT(0)}"), "Goto(3)"]


class Usage:
    """What a process has used up to now: seconds of processor time, KiB of memory, threads."""

    def __init__(self, pid):
        fields = Path(f"/proc/{pid}/stat").read_text(encoding="utf-8").rsplit(")", 1)[1].split()
        status = Path(f"/proc/{pid}/status").read_text(encoding="utf-8")
        ticks = int(fields[11]) + int(fields[12])
        self.seconds = ticks / 100  # USER_HZ
        self.memory = int(re.search(r"VmRSS:\s+(\d+)", status)[1])
        self.threads = int(re.search(r"Threads:\s+(\d+)", status)[1])


class Row:
    def __init__(self, idle, before, after, options, waits):
        self.cpu = (after.seconds - before.seconds) / (options.calls * options.seconds) * 1000
        self.memory = (after.memory - idle.memory) / options.calls
        self.threads = (after.threads - idle.threads) / options.calls
        self.waits = waits

    def print(self, title, plain):
        beyond = f"{self.cpu - plain.cpu:.2f}" if plain else ""
        waits = (f"{statistics.median(self.waits):.0f} / {statistics.quantiles(self.waits, n=100)[98]:.0f}"
                 f" ({len(self.waits)})" if len(self.waits) > 1 else "")
        print(f"| {title:<14} | {self.cpu:8.2f} | {beyond:>6} | {self.memory:8.0f}"
              f" | {self.threads:5.1f} | {waits:>18} |", flush=True)


def configuration(build, plugin, port):
    keys = {"plugin": f"{build}/lib/quillbrook/plugin_{plugin}.so", "web": "no", "buffersize": 1600, "dsp": "yes",
            **ENGINES.get(plugin, {})}
    return "[general]\n" + "".join(f"{key}={str(value).format(port=port)}\n" for key, value in keys.items())


def place_calls(pbx, steps, count):
    """All of them by one dialplan."""
    contexts = {"talk": TALK, "listen": steps}
    pbx.write_file("extensions.conf", "".join(
        f"[{name}]\n" + "".join(f"exten => s,{number},{step}\n" for number, step in enumerate(lines, start=1))
        for name, lines in contexts.items()))
    pbx.cli("dialplan reload")
    for _ in range(count):
        pbx.cli("channel originate Local/s@talk extension s@listen")


def measure(pbx, steps, options, times):
    idle = Usage(pbx.pid)
    place_calls(pbx, steps, options.calls)
    time.sleep(SETTLE)
    before, begun = Usage(pbx.pid), time.time()
    time.sleep(options.seconds)
    after = Usage(pbx.pid)
    return Row(idle, before, after, options, waits_since(pbx, begun, times) if times else [])


def waits_since(pbx, begun, times):
    """Milliseconds from each final that the server sent behind `begun` to the dialplan that reports it."""
    sent = {word: int(moment) / 1e6 for word, moment in
            (line.rsplit(" ", 1) for line in times.read_text(encoding="utf-8").splitlines())}
    waits = []
    for line in pbx.log():
        found = re.search(r"final (word \d+)", line.text)
        if found and sent.get(found[1], 0) > begun:
            waits.append((line.time - sent[found[1]]) * 1000)
    return waits


def with_pbx(options, plugin, steps):
    with tempfile.TemporaryDirectory() as folder:
        times = Path(folder) / "times"
        command = [options.stub, "--silence", "300", "--times", str(times)]
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as server:
            port = server.stdout.readline().split()[1]
            try:
                with PrivatePbx(options.build, quillbrook_conf=configuration(options.build, plugin, port)) as pbx:
                    if not pbx.load_module("res_speech_quillbrook.so"):
                        raise PbxError(f"the module does not load: {pbx.logged('', level='ERROR')}")
                    return measure(pbx, steps, options, None if plugin in ("dummy", "pocketsphinx") else times)
            finally:
                server.terminate()


def frame_cost(build):
    with PrivatePbx(build, quillbrook_conf=configuration(build, "dummy", 0)) as pbx:
        for module in ("res_speech_quillbrook.so", "res_frame_cost.so"):
            if not pbx.load_module(module):
                raise PbxError(f"{module} does not load")
        return [int(number) for number in re.findall(r"\d+", pbx.logged("frame cost", level="NOTICE")[0])]


def main():
    end_on_signals()
    parser = argparse.ArgumentParser(description="Measures what calls cost.")
    parser.add_argument("--build", required=True, type=Path)
    parser.add_argument("--calls", type=int, default=60, help="at a time")
    parser.add_argument("--seconds", type=int, default=20, help="of measuring, for each plugin")
    parser.add_argument("--plugins", default=",".join(ENGINES))
    parser.add_argument("--stub", type=Path, help="the stub server, when it is of another build")
    options = parser.parse_args()
    options.build = options.build.resolve()
    options.stub = options.stub or options.build / "bench/stub_server"

    if (options.build / "lib/asterisk/modules/res_frame_cost.so").exists():
        cost, floor = frame_cost(options.build)
        print(f"a frame: {cost / 1000:.1f} us, its floor {floor / 1000:.1f} us, ratio {cost / floor:.2f}\n")
    print(f"{options.calls} calls:")
    print(f"| {'':<14} | ms CPU a | beyond | KiB a    | threads | final to dialplan, |\n"
          f"| {'':<14} | call-s   | plain  | call     | a call  | ms: median / 99 %  |\n"
          f"|{'-' * 16}|---:|---:|---:|---:|---:|")
    plain = with_pbx(options, "dummy", LISTEN)
    plain.print("nobody asks", None)
    for plugin in options.plugins.split(","):
        with_pbx(options, plugin, ASK).print(plugin, plain)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except PbxError as error:
        print(f"calls: {error}", file=sys.stderr)
        sys.exit(1)
