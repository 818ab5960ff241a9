"""A recording of the user's own."""

from question import HEADING, Question, row
from speech import to_telephone


def profiles():
    return {"recording": {"phrases": ""}}


def run(pbx, options):
    sound = pbx.folder / "recording"
    to_telephone(options.recording, f"{sound}.wav")
    print(f"{options.recording}, with no list of words to expect:\n")
    print(HEADING)
    answer = Question(pbx, "quillbrook:recording", sound).answer()
    print(row("(your recording)", answer))
    return not answer.failure
