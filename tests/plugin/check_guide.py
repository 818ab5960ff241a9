"""What docs/plugin-guide.md shows against what it describes: the example's code and the fields of the record.

Usage: check_guide.py ROOT
"""

import re
import sys
from pathlib import Path

EXAMPLE_LINES = 170


def complaints(root):
    guide = (root / "docs/plugin-guide.md").read_text(encoding="utf-8")
    example = (root / "plugins/example/example.c").read_text(encoding="utf-8")
    header = (root / "quillbrook/include/quillbrook.h").read_text(encoding="utf-8")

    pieces = re.findall(r"^```c\n(.*?)^```$", guide, re.MULTILINE | re.DOTALL)
    if not pieces:
        yield "the guide shows no code"
    for piece in pieces:
        if "\n" + piece not in example:
            yield f"not in the example as it stands:\n{piece}"
    if example.count("\n") >= EXAMPLE_LINES:
        yield f"the example has {example.count(chr(10))} lines"

    record = header[header.index("struct quillbrook_context {"):]
    record = re.sub(r"/\*.*?\*/", "", record[:record.index("\n};")], flags=re.DOTALL)
    fields = re.findall(r"(\w+)(?:\[\w+\])?;", record)
    described = re.findall(r"^\| `(\w+)` \|", guide[guide.index("\n## The record"):], re.MULTILINE)
    if fields != described:
        yield f"fields of the record: {fields}\nfields in the guide:  {described}"


def main():
    wrong = list(complaints(Path(sys.argv[1])))
    for complaint in wrong:
        print(complaint)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
