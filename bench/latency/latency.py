"""How long a caller waits: from the last frame of speech to the variable in the dialplan, on calls of a private PBX.

Usage: latency.py --build FOLDER [--utterances 100] [--calls 10] [--timeout 300] [--tick 20]

FOLDER has been built with -DQUILLBROOK_BENCH=ON. Prints the median and the 99th percentile of the whole and of its
parts: the age of the audio when the plugin sees it, the timeout that was chosen, and what module and host add.
"""

import argparse
import statistics
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "demo"))

from pbx import PbxError, PrivatePbx, end_on_signals, report  # noqa: E402

# Half a second of audio is the utterance: 16-bit samples at 8 kHz behind a WAV header.
UTTERANCE_BYTES = 44 + 8000


def parse_arguments():
    parser = argparse.ArgumentParser(description="Measures the latency of results on calls of a private PBX.")
    parser.add_argument("--build", required=True, type=Path)
    parser.add_argument("--utterances", type=int, default=100, help="at least")
    parser.add_argument("--calls", type=int, default=10, help="calls at the same time")
    parser.add_argument("--timeout", type=int, default=300, help="completetimeout in ms")
    parser.add_argument("--tick", type=int, default=20, help="ms between two calls of the plugin")
    return parser.parse_args()


def configuration(options, times):
    return ("[general]\n"
            f"plugin={options.build.resolve()}/bench/plugin_latency.so\n"
            f"configuration={UTTERANCE_BYTES} {options.tick} {times}\n"
            f"completetimeout={options.timeout}\n"
            "web=no\n")


def dialplan(questions):
    steps = ["SpeechCreate(quillbrook)"]
    for _ in range(questions):
        steps += ["SpeechStart()", "SpeechBackground(silence/10,10)", report("${SPEECH_TEXT(0)}")]
    return steps + ["SpeechDestroy()"]


def measure(options):
    """(written, seen, result, dialplan) of each utterance, in milliseconds since the epoch."""
    questions = -(-options.utterances // options.calls)
    with PrivatePbx(options.build, quillbrook_conf="[general]\n") as pbx:
        times = pbx.folder / "latency.txt"
        pbx.write_file("quillbrook.conf", configuration(options, times))
        if not pbx.load_module("res_speech_quillbrook.so"):
            raise PbxError(f"the module does not load: {pbx.logged('', level='ERROR')}")
        calls = [pbx.call(dialplan(questions)) for _ in range(options.calls)]
        arrived = {}
        for call in calls:
            call.wait(questions * 5 + 20)
            arrived.update({text: moment * 1000 for moment, text in call.reports()})
        records = [line.split() for line in times.read_text().splitlines()]
    return [tuple(int(value) / 1000 for value in record[1:]) + (arrived[record[0]],)
            for record in records if record[0] in arrived]


def show(title, values):
    centiles = statistics.quantiles(values, n=100, method="inclusive")
    print(f"{title:<58} {statistics.median(values):8.1f} {centiles[98]:8.1f}")


def main():
    end_on_signals()
    options = parse_arguments()
    utterances = measure(options)
    if len(utterances) < options.utterances:
        print(f"latency: only {len(utterances)} of {options.utterances} utterances were answered", file=sys.stderr)
        return 1
    print(f"{len(utterances)} utterances, {options.calls} calls at a time, a call of the plugin every {options.tick} ms")
    print(f"{'ms':<58} {'median':>8} {'99 %':>8}")
    show("last frame written to the variable in the dialplan", [d - w for w, s, r, d in utterances])
    show("  age of the audio at the plugin", [s - w for w, s, r, d in utterances])
    show("  timeout chosen", [options.timeout for _ in utterances])
    show("  added by the module: timeout over to the result queued", [r - s - options.timeout for w, s, r, d in utterances])
    show("  added by the host: result queued to the variable", [d - r for w, s, r, d in utterances])
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except PbxError as error:
        print(f"latency: {error}", file=sys.stderr)
        sys.exit(1)
