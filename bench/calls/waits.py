"""What a caller waits, from the end of his speech to the dialplan, with a server that ends utterances itself.

Usage: waits.py --build FOLDER [--calls 20]

FOLDER has been built with -DQUILLBROOK_BENCH=ON. The server of the WebSocket plugin is a stub with 500 ms of silence of
its own. Prints the median and the slowest for each way to set the engine.
"""

import argparse
import statistics
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "demo"))

from pbx import SOUNDS, PbxError, PrivatePbx, end_on_signals  # noqa: E402
from question import Question  # noqa: E402

SERVER_SILENCE = 500
# Title, and the keys of the engine.
ENGINES = {
    "each final of the server is a result: both timeouts 0": {},
    "`final=utterance`, `completetimeout` 800": {"configuration": "final=utterance", "completetimeout": 800,
                                                 "incompletetimeout": 3000},
    "default, `completetimeout` 300": {"completetimeout": 300, "incompletetimeout": 3000},
    "default, `completetimeout` 800": {"completetimeout": 800, "incompletetimeout": 3000},
    "default, `completetimeout` 800, `providertimeout` 500": {"completetimeout": 800, "incompletetimeout": 3000,
                                                              "providertimeout": 500},
}


def measure(build, calls):
    """Milliseconds of each call, by title."""
    command = [f"{build}/bench/stub_server", "--silence", str(SERVER_SILENCE)]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as server:
        url = f"ws://127.0.0.1:{server.stdout.readline().split()[1]}"
        names = [f"engine{number}" for number in range(len(ENGINES))]
        general = {"plugin": f"{build}/lib/quillbrook/plugin_websocket.so", "url": url, "buffersize": 1600, "web": "no",
                   "profiles": ",".join(names)}
        sections = {"general": general, **dict(zip(names, ENGINES.values()))}
        configuration = "".join(f"[{name}]\n" + "".join(f"{key}={value}\n" for key, value in keys.items())
                                for name, keys in sections.items())
        try:
            with PrivatePbx(build, quillbrook_conf=configuration) as pbx:
                if not pbx.load_module("res_speech_quillbrook.so"):
                    raise PbxError(f"the module does not load: {pbx.logged('', level='ERROR')}")
                return {title: ask(pbx, name, calls) for title, name in zip(ENGINES, names)}
        finally:
            server.terminate()


def ask(pbx, name, calls):
    questions = [Question(pbx, f"quillbrook:{name}", SOUNDS / "digits/7") for _ in range(calls)]
    return [question.answer() for question in questions]


def main():
    end_on_signals()
    parser = argparse.ArgumentParser(description="Measures what a caller waits.")
    parser.add_argument("--build", required=True, type=Path)
    parser.add_argument("--calls", type=int, default=10, help="for each setting")
    options = parser.parse_args()
    print(f"{'ms from the end of the speech to the dialplan':<58} {'median':>8} {'slowest':>8}")
    for title, answers in measure(options.build.resolve(), options.calls).items():
        waits = [answer.delay_ms for answer in answers if not answer.failure]
        if len(waits) < options.calls:
            print(f"waits: {title}: {[answer.failure for answer in answers if answer.failure][0]}", file=sys.stderr)
            return 1
        print(f"{title:<58} {statistics.median(waits):>8.0f} {max(waits):>8.0f}")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except PbxError as error:
        print(f"waits: {error}", file=sys.stderr)
        sys.exit(1)
