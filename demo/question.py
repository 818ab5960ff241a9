"""One question on one call: a leg plays a recording, the other asks the speech engine what was said."""

from pbx import report
from speech import voiced_end_ms

# Seconds that the caller is given to begin and to be understood.
ANSWER_SECONDS = 10

HEADING = f"{'said':<24} {'recognised':<30} {'score':>5}  {'ms after the speech':>19}"


class Answer:
    """What the dialplan got: `text` and `score`, or `failure`; `delay_ms` from the end of the speech to the result."""

    def __init__(self, text="", score=None, delay_ms=None, failure=""):
        self.text = text
        self.score = score
        self.delay_ms = delay_ms
        self.failure = failure


class Question:
    """Places the call. sound: path of an 8 kHz recording, without its extension."""

    def __init__(self, pbx, engine, sound):
        self._voiced_end = voiced_end_ms(f"{sound}.wav") / 1000
        self._call = pbx.call(
            [
                "Answer()",
                f"SpeechCreate({engine})",
                report("created ${ERROR}"),
                "SpeechStart()",
                f"SpeechBackground(silence/1,{ANSWER_SECONDS})",
                report("result ${SPEECH(results)}|${SPEECH_SCORE(0)}|${SPEECH_TEXT(0)}"),
                "SpeechDestroy()",
            ],
            talker=["Playback(silence/1)", report("speaks"), f"Playback({sound})", "Playback(silence/10&silence/10)"])

    def answer(self):
        """Waits for the end of the call."""
        self._call.wait(ANSWER_SECONDS + 20)
        results = [(time, text[len("result "):]) for time, text in self._call.reports() if text.startswith("result ")]
        if not results:
            return Answer(failure="the dialplan ended before a result")
        spoken = [time for time, text in self._call.reports(self._call.talker) if text == "speaks"]
        if not spoken:
            return Answer(failure="the speech was never played")
        time, result = results[0]
        count, score, text = result.split("|", 2)
        if not count.isdigit() or int(count) == 0:
            return Answer(failure=f"no result within {ANSWER_SECONDS} s")
        if text == "error" and score == "0":
            return Answer(failure="the plugin failed")
        return Answer(text, int(score), round((time - spoken[0] - self._voiced_end) * 1000))


def row(said, answer):
    """A line of the table under HEADING."""
    if answer.failure:
        return f"{said:<24} ({answer.failure})"
    # With score 0 the text is what the plugin guessed before it gave up, if anything.
    recognised = answer.text if answer.score > 0 else "(not understood)"
    return f"{said:<24} {recognised:<30} {answer.score:>5}  {answer.delay_ms:>19}"
