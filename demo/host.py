"""Which Asterisk the private PBX runs: the system's, or the one whose prefix the variable QUILLBROOK_HOST names, such as
/opt/asterisk for one that was compiled from source."""

import functools
import os
import re
import shutil
import subprocess
from pathlib import Path

SYSTEM_SOUNDS = Path("/usr/share/asterisk/sounds")
# What the recorded prompts of the demonstrations and tests are known by.
A_PROMPT = "en/digits/7.wav"


class PbxError(RuntimeError):
    """The PBX is not there, or did not do what it was asked; the message says what and where to look."""


@functools.cache
def host():
    return Host(os.environ.get("QUILLBROOK_HOST"))


class Host:
    """`program`, and the folders `modules`, `configuration`, `data` (with its documentation), `sounds` (with the recorded
    prompts) and `headers` (with asterisk.h)."""

    def __init__(self, prefix=None):
        self.program = _program(prefix)
        # The folder above the program's is its prefix in any case; sbin may be a link to elsewhere.
        prefix = Path(prefix) if prefix else Path(self.program).parent.parent
        self.configuration = (prefix.parent if prefix.name == "usr" else prefix) / "etc/asterisk"
        named = _folders_named_in(self.configuration / "asterisk.conf")
        self.modules = _first([named.get("astmoddir"), prefix / "lib/asterisk/modules",
                               *prefix.glob("lib/*/asterisk/modules"), prefix / "lib64/asterisk/modules"],
                              "res_speech.so", "modules")
        self.data = _first([named.get("astdatadir"), prefix / "share/asterisk", prefix / "var/lib/asterisk",
                            Path("/var/lib/asterisk")], "documentation", "documentation")
        self.sounds = _first([self.data / "sounds", SYSTEM_SOUNDS], A_PROMPT, "recorded prompts")
        self.headers = prefix / "include"

    @functools.cached_property
    def series(self):
        """Its major version."""
        answer = subprocess.run([self.program, "-V"], capture_output=True, text=True, check=False).stdout
        found = re.match(r"Asterisk (?:certified[/-])?(\d+)\.", answer)
        if not found:
            raise PbxError(f"{self.program} does not tell its version: {answer}")
        return int(found[1])

    def has_module(self, name):
        return (self.modules / f"{name}.so").exists()


def _program(prefix):
    """Path of the PBX's program, which stands in a folder that not every user searches."""
    path = f"{prefix}/sbin" if prefix else os.environ.get("PATH", "") + ":/usr/sbin:/usr/local/sbin"
    found = shutil.which("asterisk", path=path)
    if not found:
        raise PbxError(f"there is no program asterisk in {path}" if prefix
                        else "asterisk is not installed: run setup/packages.sh")
    return found


def _folders_named_in(file):
    """The folders that the PBX's own configuration names, or none where others may not read it."""
    try:
        text = file.read_text(encoding="utf-8", errors="replace")
    except OSError:
        return {}
    return {name: Path(path) for name, path in re.findall(r"^\s*(ast\w+dir)\s*=>?\s*([^\s;]+)", text, re.MULTILINE)}


def _first(folders, proof, what):
    """The first of the folders that holds the proof of being the right one."""
    folders = [folder for folder in folders if folder]
    for folder in folders:
        if (folder / proof).exists():
            return folder
    raise PbxError(f"the PBX's {what} are in none of {', '.join(map(str, folders))}")
