"""Calls in a real PBX through the plugins that talk to a server: the offline recogniser behind the server, and servers
that fail."""

import subprocess
import tempfile
import unittest
from pathlib import Path

import live
from live import RESULT
from pbx import free_port

DIGITS = "zero,one,two,three,four,five,six,seven,eight,nine"
# The other leg may be a second late on a busy machine, and must not miss the beginning of the word.
SAYS_SEVEN = "Playback(silence/3&digits/7&silence/2)"


class ServerTest:
    """One server for each behaviour, and an engine on each of them."""

    @classmethod
    def setUpClass(cls):
        cls.folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.certificate, key = cls.folder / "certificate.pem", cls.folder / "key.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                        "-days", "1", "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost",
                        "-keyout", key, "-out", cls.certificate], check=True, capture_output=True)
        plain = cls.start_server()
        down = free_port()
        profiles = {"plain": {"url": cls.url(plain)}, "down": {"url": cls.url(down)},
                    "several": {"url": f"{cls.url(down)} {cls.url(plain)}"}}
        for name in cls.misbehaviours:
            profiles[name] = {"url": cls.url(cls.start_server("--behave", name))}
        profiles["mute"]["configuration"] = "answer_timeout=1000"
        tls = cls.url(cls.start_server("--certificate", cls.certificate, "--key", key), "s", "localhost")
        profiles["trusted"] = {"url": tls, "configuration": f"tls_ca={cls.certificate}"}
        profiles["untrusted"] = {"url": tls}
        general = {"plugin": live.build / "lib/quillbrook" / cls.plugin, "phrases": DIGITS,
                   "completetimeout": 800, "incompletetimeout": 3000}
        cls.pbx = cls.enterClassContext(live.loaded_pbx(live.configuration(general, **profiles)))

    @classmethod
    def url(cls, port, secure="", host="127.0.0.1"):
        return f"{cls.scheme}{secure}://{host}:{port}"

    @classmethod
    def start_server(cls, *arguments):
        server, port = live.start_recogniser(*arguments)
        cls.addClassCleanup(server.__exit__, None, None, None)
        cls.addClassCleanup(server.terminate)
        return port

    def ask(self, engine):
        return self.pbx.call(["Answer()", f"SpeechCreate(quillbrook:{engine})", "SpeechStart()",
                              "SpeechBackground(silence/1,60)", RESULT, "SpeechDestroy()"],
                             [SAYS_SEVEN, "Playback(silence/10)"])

    def test_words_are_recognised_by_the_server(self):
        calls = [self.ask(engine) for engine in ("plain", "trusted", *self.forgiven)]
        for call in calls:
            line, = call.wait()
            self.assertRegex(line, r"^result 1\|[1-9]\d*\|seven$")

    def test_servers_that_fail(self):
        reasons = {"down": "cannot connect: Connection refused",
                   "mute": "the server did not answer for 1000 ms",
                   "die": "the server closed the connection",
                   "garbage": "the server sent text that is no JSON object",
                   "untrusted": "the server's certificate is refused: ", **self.refusals}
        calls = {engine: self.ask(engine) for engine in reasons}
        for engine, reason in reasons.items():
            with self.subTest(engine):
                self.assertEqual(calls[engine].wait(), ["result 1|0|error"])
                self.assertTrue(self.pbx.logged(reason, "WARNING"))


class WebSocketTest(ServerTest, unittest.TestCase):
    plugin = "plugin_websocket.so"
    scheme = "ws"
    misbehaviours = ("mute", "die", "die-once", "die-after-words", "garbage")
    forgiven = ("die-once",)
    refusals = {}

    def test_words_outlive_the_server(self):
        line, = self.ask("die-after-words").wait()
        self.assertRegex(line, r"^result 1\|50\|[a-z ]+$")


class TranscriptionTest(ServerTest, unittest.TestCase):
    plugin = "plugin_transcription.so"
    scheme = "http"
    misbehaviours = ("mute", "die", "garbage", "busy", "unauthorized", "broken")
    forgiven = ("busy", "several")
    refusals = {"unauthorized": "HTTP 401: no such key", "broken": "HTTP 500: out of memory"}


if __name__ == "__main__":
    live.main()
