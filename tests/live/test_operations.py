"""What operators see: the commands and both URIs whole, through the real console and HTTP server; and two profiles.

Files in expected/ hold each text with the values that vary as <name>; PLACEHOLDERS says what stands there.
"""

import contextlib
import json
import re
import socket
import subprocess
import sys
import urllib.request
from pathlib import Path

import live
from live import MODULE, LiveTest
from pbx import LIMIT

EXPECTED = Path(__file__).parent / "expected"
MONITORING = Path(__file__).parents[2] / "docs/monitoring"
FORM = "Content-Type: application/x-www-form-urlencoded\r\n"

PLACEHOLDERS = {
    "age": r"\d+",
    "build": r"/.+",
    "compiled": r"[A-Z][a-z]{2} [ \d]\d \d{4}",
    "date": r"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d",
    "eid": r"([\da-f]{2}:){5}[\da-f]{2}",
    "date of the file": r"\?|\d{4}/\d\d/\d\d \d\d:\d\d:\d\d( \(\d.*\))?",
    "date of the source": r"[A-Z][a-z]{2} [A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \d{4}",
    "host": r"by \S+@\S+",
    "machine": r"\S+",
    "platform": r"on \S+/\S+ .+",
    "stream": r"/tmp/quillbrook_0x[\da-f]+",
    "sum": r"[\da-f]{32}",
    "system": r"[^\"]+",
    "time": r"\d\d:\d\d:\d\d",
    "uuid": r"[\da-f]{8}(-[\da-f]{4}){3}-[\da-f]{12}",
    "version": r"\d\S+",
}


def masked(line, expected):
    """The expected line if the line fits it, else the line: a difference then shows the real value."""
    pieces = re.split(r"<([a-z ]+)>", expected)
    pattern = "".join(f"(?:{PLACEHOLDERS[piece]})" if index % 2 else re.escape(piece)
                      for index, piece in enumerate(pieces))
    return expected if re.fullmatch(pattern, line) else line


class OperationsTest(LiveTest):
    maxDiff = None
    general = {"name": "Main", "debug": "yes"}
    profiles = {
        "first": {"url": "wss://one.example/v1", "model": "m1", "language": "en", "voice": "v1", "context": "c1",
                  "configuration": "k1", "phrases": "yes,no", "extra": "x1", "format": "ulaw", "buffersize": "1600",
                  "endpointing": "yes", "returnjson": "yes", "keepfiles": "yes", "closetimeout": "300",
                  "timeouts": "no", "completetimeout": "700", "incompletetimeout": "900", "providertimeout": "50"},
        "second": {"returnnlsml": "yes", "waitclose": "yes", "completetimeout": "400"},
    }

    def assert_expected(self, text, name):
        expected = (EXPECTED / f"{name}.txt").read_text(encoding="utf-8")
        lines, expected_lines = text.split("\n"), expected.split("\n")
        if len(lines) == len(expected_lines):
            text = "\n".join(map(masked, lines, expected_lines))
        self.assertEqual(text, expected)

    def request(self, method, path, headers="", body=""):
        """Status and body of the answer; of an error page, which is the server's, only the reason."""
        message = f"{method} /{path} HTTP/1.1\r\nHost: pbx\r\nConnection: close\r\n{headers}\r\n{body}"
        with socket.create_connection(("127.0.0.1", self.pbx.http_port), timeout=LIMIT) as connection:
            connection.sendall(message.encode())
            with contextlib.suppress(OSError):  # the answer is there and the connection closed
                connection.shutdown(socket.SHUT_WR)
            answer = b"".join(iter(lambda: connection.recv(65536), b"")).decode()
        head, _, content = answer.partition("\r\n\r\n")
        return int(head.split(" ")[1]), re.sub(r"(?s)^<!DOCTYPE.*<p>(.*)</p>.*", r"\1", content)

    def metrics(self, uri="quillbrook_metrics"):
        return self.request("GET", uri)[1]

    def metric(self, name):
        return re.search(rf"^asterisk_quillbrook_{name}{{.*}} (.*)$", self.metrics(), re.MULTILINE)[1]

    def setUp(self):
        super().setUp()
        if not self.pbx.module_runs(MODULE):
            self.pbx.load_module(MODULE)

    def test_commands(self):
        self.pbx.unload_module(MODULE)
        self.pbx.load_module(MODULE)
        for name in ("version", "plugins", "statistics", "dates"):
            self.assert_expected(self.pbx.cli(f"quillbrook show {name}"), f"show_{name}")
        self.assert_expected(self.metrics(), "metrics")
        self.assertEqual(self.ask("bytes 4000\ninterim go\nfinal 80 good"), ["result 1|80|good"])
        self.pbx.cli(f"module reload {MODULE}")
        self.assert_expected(self.pbx.cli("quillbrook show statistics"), "show_statistics_after_a_call")
        self.assert_expected(self.metrics(), "metrics_after_a_call")
        self.assert_expected(self.pbx.cli("quillbrook reset statistics"), "reset_statistics")
        self.assert_expected(self.pbx.cli("quillbrook show dates"), "show_dates_after_a_call")

    def test_help_of_the_commands(self):
        self.assert_expected(self.pbx.cli("core show help quillbrook"), "help")
        words = ("show version", "show plugins", "show statistics", "show dates", "reset statistics",
                 "check configuration", "reload anyway")
        self.assert_expected("".join(self.pbx.cli(f"quillbrook {two} more") for two in words), "usage")

    def test_uris(self):
        bodies = {
            "no body": ("", ""),
            "a form": (FORM + "Content-Length: 9\r\n", "value=abc"),
            "an empty form": (FORM + "Content-Length: 0\r\n", ""),
            "a short form": (FORM + "Content-Length: 100\r\n", "value=short"),
            "a negative length": (FORM + "Content-Length: -1\r\n", ""),
            "a broken chunk": (FORM + "Transfer-Encoding: chunked\r\n", "zz\r\n"),
            "an oversized form": (FORM + "Content-Length: 40961\r\n", ""),
            "another type": ("Content-Type: application/json\r\nContent-Length: 3\r\n", "{x}"),
        }
        requests = [("quillbrook_metrics", method, "no body") for method in ("HEAD", "POST", "PUT", "NONE")]
        requests += [("quillbrook_jsgf", method, "no body") for method in ("PUT", "NONE")]
        requests += [("quillbrook_jsgf", method, body) for method in ("GET", "HEAD", "POST") for body in bodies]
        text = ""
        for uri, method, body in requests:
            status, content = self.request(method, uri, *bodies[body])
            text += f"{uri} {method} with {body}: {status} {content}\n"
        self.assert_expected(text, "http_answers")

    def test_two_calls_on_two_profiles_keep_apart(self):
        fields = ("model language voice configuration phrases buffer_size format completetimeout incompletetimeout "
                  "filename")
        calls = {}
        for name in ("first", "second"):
            path = self.pbx.folder / f"configuration_{name}"
            path.write_text(f"report={self.pbx.folder}/report_{name}\nbytes 4000\nsleep 1500\nshow {fields}\n"
                            f"json {{}}\nfinal 80 {name}\nfinish\n", encoding="utf-8")
            calls[name] = self.pbx.call(
                ["Answer()", f"SpeechCreate(quillbrook:{name})", f"SpeechLoadGrammar(script,{path})", "SpeechStart()",
                 "SpeechBackground(silence/1,5)", live.RESULT, "SpeechDestroy()"])
        self.pbx.wait_until(lambda: self.metric("sessions_active") == "2", LIMIT, "the calls did not meet")
        ends = {name: call.wait() for name, call in calls.items()}
        self.assertRegex(ends["first"][0], r"^result 1\|80\|/tmp/quillbrook_.*\.json$")
        self.assertRegex(ends["second"][0], r"^result 1\|80\|/tmp/quillbrook_.*\.xml$")
        shown = "".join(f"{name}:\n" + (self.pbx.folder / f"report_{name}").read_text(encoding="utf-8")
                        for name in calls)
        # Only the first profile keeps its files.
        kept, removed = map(Path, re.findall(r"^filename=(.*)$", shown, re.MULTILINE))
        self.assertFalse(removed.exists())
        for path in (kept, Path(ends["first"][0].split("|")[2])):
            path.unlink()
        self.assert_expected(shown, "two_profiles")


    # --- The metrics in the eyes of Prometheus, and what docs/monitoring builds on them ------------------------------------

    def promtool(self, *arguments, text=None, cwd=None):
        return subprocess.run(["promtool", *arguments], input=text, capture_output=True, text=True, timeout=60,
                              cwd=cwd, check=False)

    def test_metrics_are_valid(self):
        # The names are fixed; advice on them, status 3, is known and listed in docs/operations.md.
        answer = self.promtool("check", "metrics", text=self.metrics())
        self.assertEqual(answer.returncode, 3, answer.stderr)
        self.assertEqual(sorted(answer.stderr.split("\n")[:-1]), [
            f'asterisk_quillbrook_{name} counter metrics should have "_total" suffix'
            for name in ("messages_final", "messages_interim", "sessions_closed")])

    def test_metrics_by_engine(self):
        self.ask("bytes 4000\nfinal 80 good\nfinish", engine="quillbrook:second")
        answer = self.promtool("check", "metrics", text=self.metrics("quillbrook_engine_metrics"))
        self.assertEqual((answer.returncode, answer.stdout + answer.stderr), (0, ""))
        print("\npromtool check metrics: no remark on quillbrook_engine_metrics", file=sys.stderr)
        with urllib.request.urlopen(f"http://127.0.0.1:{self.pbx.http_port}/quillbrook_engine_metrics",
                                    timeout=LIMIT) as page:
            self.assertEqual(page.headers.get_all("Content-Type"), ["text/plain; version=0.0.4; charset=utf-8"])

    def test_scrape_job_rules_and_dashboard(self):
        for arguments in (("check", "config", "prometheus.yml"), ("check", "rules", "alerts.yml"),
                          ("test", "rules", "alerts_test.yml")):
            answer = self.promtool(*arguments, cwd=MONITORING)
            self.assertEqual(answer.returncode, 0, answer.stdout + answer.stderr)
            print(f"\npromtool {' '.join(arguments)}: {' '.join(answer.stdout.split())}", file=sys.stderr)
        known = set()
        for uri in ("quillbrook_metrics", "quillbrook_engine_metrics"):
            for name, kind in re.findall(r"^# TYPE (\S+) (\S+)", self.metrics(uri), re.MULTILINE):
                known.add(name + "_bucket" if kind == "histogram" else name)
        dashboard = json.loads((MONITORING / "grafana-dashboard.json").read_text(encoding="utf-8"))
        for text in (json.dumps(dashboard), (MONITORING / "alerts.yml").read_text(encoding="utf-8")):
            used = {name for name in re.findall(r"asterisk_quillbrook_\w+", text) if not name.endswith("date_")}
            self.assertTrue(used)
            self.assertLessEqual(used, known)


if __name__ == "__main__":
    live.main()
