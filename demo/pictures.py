"""Pictures of what decided when an utterance ended: a recording goes through an engine for each timeout, from the
console and at the speed of a call, and quillbrook-timeline draws the traces. docs/endpointing.md shows them."""

import subprocess
from pathlib import Path

from pbx import LIMIT, PbxError

TIMELINE = Path(__file__).resolve().parents[1] / "timeline/quillbrook-timeline"


def folder_of(options):
    return Path(options.build or "build").resolve() / "endpointing"


def engines(options, settings, timeouts):
    """Sections of the configuration: an engine for each timeout that leaves a trace."""
    folder_of(options).mkdir(parents=True, exist_ok=True)
    return {f"drawn-{timeout}": {**settings, "completetimeout": timeout, "dsp": "yes", "trace": folder_of(options)}
            for timeout in timeouts}


def draw(pbx, options, sound, timeouts):
    """Prints where the pictures are."""
    folder = folder_of(options)
    for old in folder.iterdir():
        old.unlink()
    for timeout in timeouts:
        pbx.cli(f"quillbrook recognize quillbrook:drawn-{timeout} {sound}")
        pbx.wait_until(lambda: any('"what":"end"' in trace.read_text() for trace in folder.glob("*.jsonl")), LIMIT,
                       "there is no trace")
        trace, = folder.glob("*.jsonl")
        picture = folder / f"complete-{timeout}.svg"
        drawn = subprocess.run([TIMELINE, trace, sound, "-o", picture], capture_output=True, text=True, check=False)
        if drawn.returncode:
            raise PbxError(drawn.stderr.strip())
        trace.rename(folder / f"complete-{timeout}.trace")
        print(f"  {picture}")
