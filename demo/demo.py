"""The demonstration: real calls on a private PBX, recognised offline by the module built in this tree.

Usage, normally through demo.sh: demo.py --build FOLDER [RECORDING.wav [--words WORD,WORD]]. Without --build it only looks
at the other arguments, and ends.
"""

import argparse
import sys

import endpointing
import grammar
import recording
import server
import words
from pbx import PbxError, PrivatePbx, end_on_signals
from speech import SpeechError, check_recording

MODULE = "res_speech_quillbrook.so"


def configuration(options):
    """The module's configuration file: the mode's plugin (the offline one unless it says so) and its profiles."""
    build, mode = options.build, options.mode
    profiles = mode.profiles(options)
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
    parser.add_argument("--words", metavar="WORD,WORD", help="what may be said in FILE.wav; without it, anything")
    modes = parser.add_mutually_exclusive_group()
    modes.add_argument("--grammar", dest="mode", action="store_const", const=grammar,
                       help="a dialogue with grammars, and its result documents")
    modes.add_argument("--endpointing", dest="mode", action="store_const", const=endpointing,
                       help="numbers read with pauses, cut by three settings of the timeouts and by a grammar")
    modes.add_argument("--server", dest="mode", action="store_const", const=server.websocket,
                       help="the words through a speech server and the WebSocket plugin")
    modes.add_argument("--transcription", dest="mode", action="store_const", const=server.transcription,
                       help="the words through an HTTP transcription server")
    parser.add_argument("--build", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.recording and options.mode:
        parser.error("FILE.wav is heard by itself, without --grammar, --endpointing, --server or --transcription")
    if options.words and not options.recording:
        parser.error("--words says what may be heard in FILE.wav: name that file too")
    if options.recording:
        check_recording(options.recording)
    options.mode = options.mode or (recording if options.recording else words)
    return options


def run(options):
    print("demo: starting a private Asterisk", flush=True)
    with PrivatePbx(options.build, quillbrook_conf=configuration(options)) as pbx:
        if not pbx.load_module(MODULE):
            errors = pbx.logged("", level="ERROR") + pbx.logged("", level="WARNING")
            raise PbxError("the module does not load: " + "; ".join(errors))
        good = options.mode.run(pbx, options)
        for complaint in pbx.logged("plugin error"):
            print(f"demo: {complaint}", file=sys.stderr)
        print("demo: stopping the private Asterisk", flush=True)
    return good


def main():
    end_on_signals()
    try:
        options = parse_arguments()
        return 0 if not options.build or run(options) else 1
    except (PbxError, SpeechError) as error:
        print(f"demo: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("\ndemo: interrupted, everything is stopped and removed", file=sys.stderr)
        return 130


if __name__ == "__main__":
    sys.exit(main())
