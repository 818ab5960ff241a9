"""Recorded speech: where it ends, and how it becomes what a call carries."""

import array
import math
import shutil
import subprocess
import sys
import wave
from pathlib import Path

BLOCK_MS = 10
# A block belongs to the speech when it is not quieter than the loudest block by more than this.
VOICED_BELOW_LOUDEST_DB = 30


class SpeechError(RuntimeError):
    """A recording cannot be used; the message says why."""


def voiced_end_ms(path):
    """Milliseconds from the start of an 8 kHz mono recording to the end of its last voiced block of 10 ms."""
    with wave.open(str(path)) as recording:
        if (recording.getframerate(), recording.getnchannels(), recording.getsampwidth()) != (8000, 1, 2):
            raise SpeechError(f"{path} is not 8 kHz, mono, 16 bit")
        samples = array.array("h", recording.readframes(recording.getnframes()))
    if sys.byteorder == "big":
        samples.byteswap()
    size = 8 * BLOCK_MS
    loudness = [
        math.sqrt(sum(sample * sample for sample in samples[start:start + size]) / size)
        for start in range(0, len(samples), size)
    ]
    if not any(loudness):
        raise SpeechError(f"{path} holds no sound")
    floor = max(loudness) / 10 ** (VOICED_BELOW_LOUDEST_DB / 20)
    return max(index for index, value in enumerate(loudness) if value >= floor) * BLOCK_MS + BLOCK_MS


def check_recording(path):
    """Raises SpeechError when there is no file to be read."""
    if Path(path).is_dir():
        raise SpeechError(f"{path} is a folder: name one recording in it")
    if not Path(path).is_file():
        raise SpeechError(f"there is no file {path}")


def to_telephone(source, target):
    """Converts a recording of any kind that sox reads to 8 kHz, mono, 16 bit."""
    if not shutil.which("sox"):
        raise SpeechError("sox is not installed: run setup/packages.sh")
    answer = subprocess.run(["sox", str(source), "-r", "8000", "-c", "1", "-b", "16", "-e", "signed", str(target)],
                            capture_output=True, text=True, check=False)
    if answer.returncode != 0:
        raise SpeechError(f"{source} is no recording that sox can read: {answer.stderr.strip()}")
