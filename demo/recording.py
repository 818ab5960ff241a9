"""A recording of the user's own."""

from question import HEADING, Question, row
from speech import to_telephone


def profiles(options):
    return {"recording": {"phrases": options.words or ""}}


def run(pbx, options):
    sound = pbx.folder / "recording"
    to_telephone(options.recording, f"{sound}.wav")
    expected = f"one of {options.words}" if options.words else "any words, which it is poor at: --words lists what may be said"
    print(f"{options.recording}, in which it expects {expected}:\n")
    print(HEADING)
    answer = Question(pbx, "quillbrook:recording", sound).answer()
    print(row("(your recording)", answer))
    return not answer.failure
