"""Words out of short lists, from the PBX's own recorded prompts: a human voice at telephone quality."""

from collections import deque

from pbx import prompt
from question import HEADING, Question, row

DAYS = ["sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"]
MONTHS = ["january", "february", "march", "april", "may", "june", "july", "august", "september", "october", "november",
          "december"]
LETTERS = ["alpha", "bravo", "charlie", "delta", "echo", "foxtrot", "golf", "hotel", "india", "juliet", "kilo", "lima"]
NUMBERS = ["zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine", "ten"]

# Engine profile, words that it expects, and what is said: (word, recording).
LISTS = {
    "days": (DAYS, [(DAYS[i], f"digits/day-{i}") for i in (1, 3, 6)]),
    "months": (MONTHS, [(MONTHS[i], f"digits/mon-{i}") for i in (1, 6, 11)]),
    "letters": (LETTERS, [(LETTERS[i], f"phonetic/{LETTERS[i][0]}_p") for i in (1, 5, 10)]),
    "numbers": (NUMBERS, [(NUMBERS[i], f"digits/{i}") for i in (2, 5, 7)]),
}
OUTSIDE = ("days", "goodbye (not in list)", "vm-goodbye")

CALLS_AT_ONCE = 3


def profiles(_options):
    """Sections of the configuration: an engine for each list."""
    return {name: {"phrases": ",".join(words)} for name, (words, _) in LISTS.items()}


def run(pbx, _options):
    """Prints a line for each word. Gives whether every call had a result, and some of them the right one."""
    spoken = [(name, word, sound) for name, (_, sounds) in LISTS.items() for word, sound in sounds]
    print(f"{len(spoken)} words out of four lists, then one that is in none, {CALLS_AT_ONCE} calls at a time:\n")
    print(HEADING)

    failed = right = 0
    mistaken = []
    for word, answer in answers(pbx, [*spoken, OUTSIDE]):
        print(row(word, answer), flush=True)
        failed += bool(answer.failure)
        right += answer.text.lower() == word
        if answer.score and answer.text.lower() != word:
            mistaken.append(f"{word} for {answer.text}")
    print(f"\n{right} of {len(spoken)} words recognised.")
    if mistaken:
        print(f"It took {', '.join(mistaken)}: words of one list that sound alike are its weak side, and a low score is\n"
              "the sign of it. Choose words that differ, or ask back below a score of 60.")
    return failed == 0 and right > 0


def answers(pbx, spoken):
    """Asks for all of them, a few calls at a time, and gives (word, answer) in order."""
    waiting = deque()
    for name, word, sound in spoken:
        if len(waiting) == CALLS_AT_ONCE:
            yield next_answer(waiting)
        waiting.append((word, Question(pbx, f"quillbrook:{name}", prompt(sound))))
    while waiting:
        yield next_answer(waiting)


def next_answer(waiting):
    word, question = waiting.popleft()
    return word, question.answer()
