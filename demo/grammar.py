"""A dialogue with grammars: what the caller meant, not only what was said, and the documents that carry it."""

import shutil
from pathlib import Path
from xml.etree import ElementTree

from pbx import prompt, report

GRAMMARS = Path(__file__).resolve().parent
# Grammar, what is said, its recordings, and the tags that it should give. The last answer is a digit short.
QUESTIONS = [
    ("room", "eight four one", ("digits/8", "digits/4", "digits/1"), "8 4 1"),
    ("confirm", "enabled", ("enabled",), "YES"),
    ("confirm", "no", ("vm-no",), "NO"),
    ("room", "eight three", ("digits/8", "digits/3"), None),
]
ANSWER_SECONDS = 10


def profiles(_options):
    return {"dialogue": {"returnnlsml": "yes"}}


def run(pbx, _options):
    """Prints a line for each answer, then two documents. Gives whether the grammars did as they should."""
    # The tree may stand in a folder with a colon in its name, at which the path would be cut.
    for name in ("room", "confirm"):
        shutil.copy(GRAMMARS / f"{name}.jsgf", pbx.folder)
    # What they import is looked for beside them first; nothing has to be installed.
    shutil.copytree(GRAMMARS.parent / "configs/grammars", pbx.folder, dirs_exist_ok=True)
    print("One call with four questions; the grammars are demo/room.jsgf, which imports digits and fillers from\n"
          "configs/grammars/en, and demo/confirm.jsgf:\n")
    print(f"{'grammar':<9} {'said':<16} {'recognised':<18} {'tags':<7} {'score':>5}")
    call = pbx.call(dialplan(pbx.folder), talker())
    documents = []
    right = 0
    for number, (grammar, said, _, tags) in enumerate(QUESTIONS):
        _, count, path = call.wait_for(f"answer-{number} ", 4 * ANSWER_SECONDS).split(" ", 2)
        if count != "1" or not path.startswith("/"):
            print(f"{grammar:<9} {said:<16} ({'no result' if count == '0' else path})")
            continue
        documents.append(Path(path).read_text(encoding="utf-8"))  # gone with the session, which is still there
        answer = Answer(documents[-1])
        print(f"{grammar:<9} {said:<16} {answer.transcript:<18} {answer.tags or '(none)':<7} {answer.score:>5}",
              flush=True)
        right += answer.tags == tags
    call.wait(ANSWER_SECONDS)
    if documents:
        print(f"\nThe first document:\n\n{documents[0]}\nand the last, which the grammar does not accept:\n\n{documents[-1]}")
    # A word may be misheard; what is said outside a grammar must not get tags.
    return len(documents) == len(QUESTIONS) and right > 1 and answer.tags is None


class Answer:
    """What a document says: `transcript`, `tags` (None when nothing matched) and `score`."""

    def __init__(self, document):
        interpretation = ElementTree.fromstring(document).find("interpretation")
        self.transcript = interpretation.find("input").text
        self.tags = interpretation.find("instance").text
        self.score = int(interpretation.get("confidence"))


def dialplan(folder):
    steps = ["Answer()", "SpeechCreate(quillbrook:dialogue)"]
    for name in ("room", "confirm"):
        # A grammar takes part from the moment it is loaded; here each question has its own.
        steps += [f"SpeechLoadGrammar({name},{folder}/{name}.jsgf)", f"SpeechDeactivateGrammar({name})"]
    for number, (grammar, *_) in enumerate(QUESTIONS):
        steps += [f"SpeechActivateGrammar({grammar})", "SpeechStart()", f"SpeechBackground(silence/1,{ANSWER_SECONDS})",
                  report(f"answer-{number} ${{SPEECH(results)}} ${{SPEECH_TEXT(0)}}"), f"SpeechDeactivateGrammar({grammar})"]
    return [*steps, "Wait(2)", "SpeechDestroy()"]


def talker():
    steps = ["Playback(silence/2)"]
    for _, _, sounds, _ in QUESTIONS:
        steps += ["Playback(" + "&".join(map(prompt, sounds)) + ")", "Playback(silence/4)"]
    return [*steps, "Playback(silence/10&silence/10)"]
