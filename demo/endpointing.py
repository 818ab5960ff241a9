"""Numbers read with pauses, under three settings of the timeout that ends an utterance, and with a grammar that knows
how many digits there are: where does the module cut, and how long does the caller wait behind the last digit?

The recogniser is told to send hypotheses only, so the module alone decides when the caller has finished.
"""

import wave

import pictures
from pbx import prompt, report

DIGITS = ["zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine"]
# completetimeout of the three engines.
TIMEOUTS = (200, 800, 1500)
# The fourth engine: completetimeout, and the silence behind the last digit.
KNOWING = {"completetimeout": 1500, "matchtimeout": 200}
# What is said, and the pauses in between, in ms.
UTTERANCES = [((4, 7, 2), 400), ((1, 5, 0, 9), 400), ((8, 3), 700), ((2, 6, 1), 1000)]

# The number that is drawn: its pause is longer than the first timeout.
DRAWN = ((8, 3), 700)

# Quiet after which a call has nothing more to say, in seconds, and the pieces that it is asked for at most.
QUIET_SECONDS = 3
PIECES = 6

RATE = 8000
LEAD_MS = 1000  # of silence ahead of each number


def profiles(options):
    """Sections of the configuration: an engine for each timeout, one that asks the grammar, and those that are drawn."""
    common = {"phrases": ",".join(DIGITS), "configuration": "endpointing=no", "incompletetimeout": 10000}
    return {**{f"complete-{timeout}": {**common, "completetimeout": timeout} for timeout in TIMEOUTS},
            "knowing": {**common, **KNOWING, "grammartimeouts": "yes"},
            **pictures.engines(options, common, TIMEOUTS)}


def run(pbx, options):
    """Prints for each utterance what each engine made of it. Gives whether the pauses showed as they should."""
    print("Numbers read with pauses; the results of each call, one behind the other:\n")
    headings = [f"completetimeout {ms}" for ms in TIMEOUTS] + ["grammartimeouts"]
    print(f"{'said':<20} {'pauses':>7}  " + "  ".join(f"{heading:<22}" for heading in headings))
    counts = [[] for _ in headings]
    waits = [[] for _ in headings]
    for number, (digits, pause) in enumerate(UTTERANCES):
        sound = pbx.folder / f"number-{number}"
        length = write_number(f"{sound}.wav", digits, pause)
        grammar = write_grammar(pbx.folder / f"number-{number}.jsgf", len(digits))
        calls = [ask(pbx, f"quillbrook:complete-{timeout}", sound) for timeout in TIMEOUTS]
        calls.append(ask(pbx, "quillbrook:knowing", sound, f"SpeechLoadGrammar(number,{grammar})"))
        results = [pieces_of(call) for call in calls]
        for column, pieces in enumerate(results):
            counts[column].append(len(pieces))
            if len(pieces) == 1:
                waits[column].append(pieces[0][1] - LEAD_MS - length)
        said = " ".join(DIGITS[digit] for digit in digits)
        cells = [" | ".join(text for text, _ in pieces) for pieces in results]
        print(f"{said:<20} {f'{pause} ms':>7}  " + "  ".join(f"{cell:<22}" for cell in cells), flush=True)
    cells = [f"{sum(some) // len(some)} ms" if some else "" for some in waits]
    print(f"{'wait behind the end':<28}  " + "  ".join(f"{cell:<22}" for cell in cells))
    print("\nA bar is a cut: two results. The grammar accepts as many digits as are said. The wait is the mean of the calls\n"
          "that were not cut. See docs/endpointing.md for what to set.")
    digits, pause = DRAWN
    sound = pbx.folder / "drawn.wav"
    write_number(sound, digits, pause)
    print(f"\n{' '.join(DIGITS[digit] for digit in digits)} with {pause} ms in between, drawn with the silence of the audio:")
    pictures.draw(pbx, options, sound, TIMEOUTS)
    fixed = [sum(column) for column in counts[:-1]]
    return 0 not in sum(counts, []) and fixed[0] > fixed[-1] and set(counts[-1]) == {1}


def write_grammar(path, count):
    """A grammar of so many digits. Gives its path."""
    path.write_text(f"#JSGF V1.0;\ngrammar number;\npublic <number> = {'<digit> ' * count} {{number}};\n"
                    f"<digit> = {' | '.join(DIGITS)};\n", encoding="utf-8")
    return path


def write_number(path, digits, pause_ms):
    """Joins the recorded digits, each cut to its voiced part, with pauses of silence. Gives the length in ms."""
    with wave.open(str(path), "wb") as number:
        number.setparams((1, 2, RATE, 0, "NONE", "not compressed"))
        for position, digit in enumerate(digits):
            if position:
                number.writeframes(bytes(2 * RATE * pause_ms // 1000))
            with wave.open(prompt(f"digits/{digit}") + ".wav") as recording:
                number.writeframes(without_silence(recording.readframes(recording.getnframes())))
        return 1000 * number.getnframes() // RATE


def without_silence(samples, limit=300):
    """Cuts what is quieter than the limit from both ends of 16-bit samples."""
    loud = [i for i in range(0, len(samples), 2) if abs(int.from_bytes(samples[i:i + 2], "little", signed=True)) > limit]
    return samples[loud[0]:loud[-1] + 2] if loud else b""


def ask(pbx, engine, sound, *settings):
    """Places a call that takes one result after the other until the caller is quiet."""
    steps = ["Answer()", f"SpeechCreate({engine})", *settings]
    last = len(steps) + 3 * PIECES + 1
    for _ in range(PIECES):
        steps += [f"SpeechBackground(no-prompt,{QUIET_SECONDS})",
                  f'GotoIf($["${{SPEECH(results)}}" = "0"]?{last})',
                  report("piece ${SPEECH_ENGINE(length)} ${SPEECH_TEXT(0)}")]
    steps.append("SpeechDestroy()")
    return pbx.call(steps, talker=[f"Playback(silence/{LEAD_MS // 1000})", f"Playback({sound})", "Playback(silence/10&silence/10)"])


def pieces_of(call):
    """The results of a call, each with the ms from the start of its recognition."""
    call.wait((PIECES + 1) * QUIET_SECONDS + 20)
    pieces = [line.split(" ", 2) for line in call.lines if line.startswith("piece ")]
    return [(text, int(length)) for _, length, text in pieces]
