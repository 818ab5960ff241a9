"""Numbers read with pauses, under three settings of the timeout that ends an utterance: where does the module cut?

The recogniser is told to send hypotheses only, so the module alone decides when the caller has finished.
"""

import wave

from pbx import prompt, report

DIGITS = ["zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine"]
# completetimeout of the three engines.
TIMEOUTS = (200, 800, 1500)
# What is said, and the pauses in between, in ms.
UTTERANCES = [((4, 7, 2), 400), ((1, 5, 0, 9), 400), ((8, 3), 700), ((2, 6, 1), 1000)]

# Quiet after which a call has nothing more to say, in seconds, and the pieces that it is asked for at most.
QUIET_SECONDS = 3
PIECES = 6

RATE = 8000


def profiles(_options):
    """Sections of the configuration: an engine for each timeout."""
    return {f"complete-{timeout}": {"phrases": ",".join(DIGITS), "configuration": "endpointing=no",
                                    "completetimeout": timeout, "incompletetimeout": 10000}
            for timeout in TIMEOUTS}


def run(pbx, _options):
    """Prints for each utterance what each timeout made of it. Gives whether the pauses showed as they should."""
    print("Numbers read with pauses; the results of each call, one behind the other:\n")
    print(f"{'said':<22} {'pauses':>7}  " + "  ".join(f"{f'completetimeout {ms}':<24}" for ms in TIMEOUTS))
    counts = {timeout: [] for timeout in TIMEOUTS}
    for number, (digits, pause) in enumerate(UTTERANCES):
        sound = pbx.folder / f"number-{number}"
        write_number(f"{sound}.wav", digits, pause)
        calls = [ask(pbx, f"quillbrook:complete-{timeout}", sound) for timeout in TIMEOUTS]
        results = [pieces_of(call) for call in calls]
        for timeout, pieces in zip(TIMEOUTS, results):
            counts[timeout].append(len(pieces))
        said = " ".join(DIGITS[digit] for digit in digits)
        print(f"{said:<22} {f'{pause} ms':>7}  " + "  ".join(f"{' | '.join(pieces):<24}" for pieces in results),
              flush=True)
    print("\nA bar is a cut: two results. See docs/endpointing.md for what to set.")
    return 0 not in sum(counts.values(), []) and sum(counts[TIMEOUTS[0]]) > sum(counts[TIMEOUTS[-1]])


def write_number(path, digits, pause_ms):
    """Joins the recorded digits, each cut to its voiced part, with pauses of silence."""
    with wave.open(str(path), "wb") as number:
        number.setparams((1, 2, RATE, 0, "NONE", "not compressed"))
        for position, digit in enumerate(digits):
            if position:
                number.writeframes(bytes(2 * RATE * pause_ms // 1000))
            with wave.open(prompt(f"digits/{digit}") + ".wav") as recording:
                number.writeframes(without_silence(recording.readframes(recording.getnframes())))


def without_silence(samples, limit=300):
    """Cuts what is quieter than the limit from both ends of 16-bit samples."""
    loud = [i for i in range(0, len(samples), 2) if abs(int.from_bytes(samples[i:i + 2], "little", signed=True)) > limit]
    return samples[loud[0]:loud[-1] + 2] if loud else b""


def ask(pbx, engine, sound):
    """Places a call that takes one result after the other until the caller is quiet."""
    steps = ["Answer()", f"SpeechCreate({engine})"]
    last = len(steps) + 3 * PIECES + 1
    for _ in range(PIECES):
        steps += [f"SpeechBackground(no-prompt,{QUIET_SECONDS})",
                  f'GotoIf($["${{SPEECH(results)}}" = "0"]?{last})',
                  report("piece ${SPEECH_TEXT(0)}")]
    steps.append("SpeechDestroy()")
    return pbx.call(steps, talker=["Playback(silence/1)", f"Playback({sound})", "Playback(silence/10&silence/10)"])


def pieces_of(call):
    call.wait((PIECES + 1) * QUIET_SECONDS + 20)
    return [text[len("piece "):] for text in call.lines if text.startswith("piece ")]
