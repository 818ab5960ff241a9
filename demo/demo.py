"""The demonstration: real calls on a private PBX, recognised offline by the module built in this tree.

Usage, normally through demo.sh: demo.py --build FOLDER [RECORDING.wav]
"""

import argparse
import sys

import endpointing
import grammar
import recording
import server
import words
from pbx import PbxError, PrivatePbx, end_on_signals
from speech import SpeechError

MODULE = "res_speech_quillbrook.so"


def configuration(build, mode):
    """The module's configuration file: the mode's plugin (the offline one unless it says so) and its profiles."""
    profiles = mode.profiles()
    plugin = getattr(mode, "PLUGIN", "plugin_pocketsphinx.so")
    sections = {"general": {
        "plugin": f"{build}/lib/quillbrook/{plugin}",
        "web": "no",
        "profiles": ",".join(profiles),
    }, **profiles}
    return "".join(f"[{name}]\n" + "".join(f"{key}={value}\n" for key, value in keys.items()) + "\n"
                   for name, keys in sections.items())


def parse_arguments():
    parser = argparse.ArgumentParser(prog="demo.sh", description="Recognises recorded speech on calls of a private PBX.")
    parser.add_argument("recording", nargs="?", metavar="FILE.wav", help="a recording of your own instead of the words")
    parser.add_argument("--grammar", dest="mode", action="store_const", const=grammar,
                        help="a dialogue with grammars, and its result documents")
    parser.add_argument("--endpointing", dest="mode", action="store_const", const=endpointing,
                        help="numbers read with pauses, cut by three settings of the timeouts")
    parser.add_argument("--server", dest="mode", action="store_const", const=server,
                        help="the words through a speech server and the WebSocket plugin")
    parser.add_argument("--build", required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def run(options):
    mode = options.mode or (recording if options.recording else words)
    print("demo: starting a private Asterisk", flush=True)
    with PrivatePbx(options.build, quillbrook_conf=configuration(options.build, mode)) as pbx:
        if not pbx.load_module(MODULE):
            errors = pbx.logged("", level="ERROR") + pbx.logged("", level="WARNING")
            raise PbxError("the module does not load: " + "; ".join(errors))
        good = mode.run(pbx, options)
        for complaint in pbx.logged("plugin error"):
            print(f"demo: {complaint}", file=sys.stderr)
        print("demo: stopping the private Asterisk", flush=True)
    return good


def main():
    end_on_signals()
    try:
        return 0 if run(parse_arguments()) else 1
    except (PbxError, SpeechError) as error:
        print(f"demo: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("\ndemo: interrupted, everything is stopped and removed", file=sys.stderr)
        return 130


if __name__ == "__main__":
    sys.exit(main())
