#!/usr/bin/env python3
"""Says real sentences to each grammar that comes along: "sentence => value", the tags without blanks; nothing behind the
arrow for a sentence that the grammar does not accept, and "-" for one that it accepts without a value.

Usage: shipped_grammars_test.py JSGF_MATCH GRAMMARS SENTENCES"""

import re
import subprocess
import sys
from pathlib import Path


def heard(tool, grammar, sentences):
    """What the grammar makes of each sentence."""
    run = subprocess.run([tool, str(grammar)], input="\n".join(sentences) + "\n", capture_output=True, text=True)
    if run.returncode == 2:
        return [run.stderr] * len(sentences)
    answers = re.split(r"^(?=match: |no match: |given up: )", run.stdout, flags=re.MULTILINE)[1:]
    values = []
    for answer in answers:
        tags = answer.partition("  tags:")[2]
        value = "".join(re.findall(r"\{(.*?)\}", tags))
        values.append(("" if answer.startswith("no match") else value or "-") if "given up" not in answer else answer)
    return values


def main(tool, grammars, sentences):
    faults = 0
    for grammar in sorted(Path(grammars).glob("*/*.jsgf")):
        file = Path(sentences, grammar.parent.name, grammar.stem + ".txt")
        rows = [line.partition("=>") for line in file.read_text(encoding="utf-8").splitlines()]
        said = [row[0].strip() for row in rows]
        for sentence, (_, _, wanted), got in zip(said, rows, heard(tool, grammar, said)):
            if got != wanted.strip():
                print(f"{file}: {sentence!r} gives {got!r}, not {wanted.strip()!r}")
                faults += 1
        if len(rows) < 5:
            print(f"{file}: only {len(rows)} sentences")
            faults += 1
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
