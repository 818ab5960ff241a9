"""A private PBX: an Asterisk of one's own for a demonstration or a test, beside whatever the machine runs.

It lives in one scratch folder, listens on the loopback interface only, knows only the host modules that it is given,
and is gone with everything it wrote when the `with` block is left, also by Ctrl-C or SIGTERM. Nothing of the installed
Asterisk is read but its modules, its documentation and its sounds, so any user can run one, beside the system's.

    with PrivatePbx(build, quillbrook_conf="[general]\\n") as pbx:
        pbx.load_module("res_speech_quillbrook.so")
        call = pbx.call(["SpeechCreate(quillbrook)", report("error=${ERROR}")])
        print(call.wait())
"""

import atexit
import contextlib
import ctypes
import datetime
import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
from pathlib import Path

from host import PbxError, host

# Without a timing module the first digit on a channel crashes the host.
BASE_MODULES = (
    "res_timing_timerfd", "pbx_config", "res_clioriginate", "res_speech", "app_speech_utils", "format_wav",
    "format_pcm", "format_gsm", "codec_gsm", "codec_ulaw", "app_playback", "app_verbose", "app_senddtmf",
    "func_callerid", "func_channel",
)

# Seconds that anything may take on a machine with other work. Nothing waits for them to pass when all is well.
LIMIT = 60

SILENT_TALKER = ["Playback(" + "&".join(["silence/10"] * 6) + ")"]

LOG_LINE = re.compile(
    r"^\[(?P<time>[^]]+)\] (?P<level>[A-Z]+)\[\d+\](?:\[[^]]*\])? (?P<source>[^ ]+?)(?: |:) ?(?P<text>.*)$")


class LogLine:
    """One line of the PBX's log: `time` in seconds since the epoch, `level`, `source` file, `text`."""

    def __init__(self, match):
        moment = datetime.datetime.strptime(match["time"], "%Y-%m-%d %H:%M:%S.%f")
        self.time = moment.timestamp()
        self.level = match["level"]
        self.source = match["source"]
        self.text = match["text"]

    def __repr__(self):
        return f"{self.level} {self.text}"


class Call:
    """A call that was placed. Its two dialplans report by `report("text")`."""

    def __init__(self, pbx, number):
        self.pbx = pbx
        self.context = f"call-{number}"
        self.talker = f"talk-{number}"

    def reports(self, context=None):
        """What the dialplan of the listening leg reported, or of the given leg: (seconds since the epoch, text)."""
        mark = f"R {context or self.context}: "
        return [(line.time, line.text[len(mark):]) for line in self.pbx.log() if line.text.startswith(mark)]

    @property
    def lines(self):
        return [text for _, text in self.reports()]

    @property
    def ended(self):
        return "end" in self.lines

    def wait(self, timeout=LIMIT):
        """Waits for the end of the dialplan and gives the reports before it."""
        self.pbx.wait_until(lambda: self.ended, timeout, f"{self.context} did not end; so far: {self.lines}")
        return [line for line in self.lines if line != "end"]

    def wait_for(self, text, timeout=LIMIT):
        """Waits for a report that contains the text, and gives it."""
        found = []

        def seen():
            found[:] = [line for line in self.lines if text in line]
            return bool(found)

        self.pbx.wait_until(seen, timeout, f"{self.context} never reported '{text}'; so far: {self.lines}")
        return found[0]

    def hang_up(self):
        self.pbx.cli(f"channel request hangup {self.pbx.channel_of(self.context)}")


class PrivatePbx:
    def __init__(self, build, quillbrook_conf=None, modules=(), files=None, environment=None, prefix=()):
        """build: the build tree. modules: further host modules. files: configuration files by name. environment:
        variables in place of those that it is given. prefix: a command that runs the PBX in its place."""
        self.build = Path(build).resolve()
        self._modules = BASE_MODULES + tuple(modules)
        self._files = dict(files or {})
        if quillbrook_conf is not None:
            self._files["quillbrook.conf"] = quillbrook_conf
        self._environment = dict(environment or {})
        self._prefix = tuple(prefix)
        self._process = None
        self._calls = 0
        self._dialplan = {}
        self._log_bytes = 0
        self._log_rest = b""
        self._log_lines = []
        self.error_output = ""  # what the PBX wrote to its standard error, once it has been stopped
        self.http_port = free_port()
        self.folder = Path(tempfile.mkdtemp(prefix="pbx-"))

    # --- life ---------------------------------------------------------------------------------------------------

    def __enter__(self):
        atexit.register(self.stop)  # for a test run that is interrupted between its set-up and its clean-up
        try:
            self._write_folder()
            self._start()
        except BaseException:
            self._clean_up()
            raise
        return self

    def __exit__(self, *unused):
        self.stop()

    def _write_folder(self):
        for name in ("etc", "run", "db", "log", "keys", "cache", "data", "mod", "spool/tmp", "spool/outgoing"):
            (self.folder / name).mkdir(parents=True)
        for name in self._modules:
            source = host().modules / f"{name}.so"
            if not source.exists():
                raise PbxError(f"{source} is missing: run setup/packages.sh")
            (self.folder / "mod" / source.name).symlink_to(source)
        # The host looks for its documentation and its sounds in one folder, and they may stand in two.
        (self.folder / "data/documentation").symlink_to(host().data / "documentation")
        (self.folder / "data/sounds").symlink_to(host().sounds)
        folders = {
            "astetcdir": "etc", "astmoddir": "mod", "astvarlibdir": "data", "astdbdir": "db", "astkeydir": "keys",
            "astdatadir": "data", "astagidir": "data", "astspooldir": "spool", "astrundir": "run", "astlogdir": "log",
            "astcachedir": "cache",
        }
        files = {
            "asterisk.conf": "[directories]\n"
                             + "".join(f"{key} => {self.folder / name}\n" for key, name in folders.items())
                             + "[options]\nverbose = 0\nnocolor = yes\nsystemname = private\n",
            "modules.conf": "[modules]\nautoload=yes\n",
            "logger.conf": "[general]\ndateformat=%F %T.%3q\n"
                           "[logfiles]\nfull => notice,warning,error,debug,verbose(5),dtmf\n",
            "http.conf": f"[general]\nenabled=yes\nbindaddr=127.0.0.1\nbindport={self.http_port}\n",
            "indications.conf": "[general]\ncountry=us\n[us]\ndescription=x\nringcadence=2000,4000\ndial=350+440\n",
            "extensions.conf": "",
        }
        for name in ("acl", "ccss", "cdr", "cel", "features", "manager", "stasis", "udptl"):
            files[f"{name}.conf"] = ""
        files.update(self._files)
        for name, text in files.items():
            self.write_file(name, text)

    def write_file(self, name, text):
        """Writes a configuration file; the PBX reads it at its start or at the next load of the module."""
        (self.folder / "etc" / name).write_text(text, encoding="utf-8")

    def _start(self):
        # The grammar library is looked for where it will be installed; the build tree's comes first.
        environment = {**os.environ, "LD_LIBRARY_PATH": str(self.build / "lib" / "quillbrook"),
                       **sanitizer_environment(self.build), **self._environment}
        command = [*self._prefix, host().program, "-C", str(self.folder / "etc/asterisk.conf"), "-f"]
        with open(self.folder / "out", "wb") as out, open(self.folder / "err", "wb") as err:
            self._process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=out, stderr=err, env=environment, cwd=self.folder,
                start_new_session=True, preexec_fn=_die_with_parent)
        console = self.folder / "run/asterisk.ctl"
        self.wait_until(lambda: console.exists() and "fully booted" in self.cli("core waitfullybooted", check=False),
                        LIMIT, "the PBX did not start")

    def stop(self):
        """Stops the PBX and removes what it wrote. Gives its exit status."""
        try:
            if self.running:
                self._process.terminate()
                try:
                    self._process.wait(LIMIT)
                except subprocess.TimeoutExpired:
                    self._process.kill()
                    self._process.wait()
            return self._process.returncode if self._process else None
        finally:
            self._clean_up()

    def _clean_up(self):
        atexit.unregister(self.stop)
        if self.running:
            self._process.kill()
            self._process.wait()
        self.error_output = self._error_lines() or self.error_output
        shutil.rmtree(self.folder, ignore_errors=True)

    @property
    def running(self):
        return self._process is not None and self._process.poll() is None

    @property
    def pid(self):
        return self._process.pid

    # --- console ------------------------------------------------------------------------------------------------

    def cli(self, command, check=True):
        """What the console prints for a command."""
        answer = subprocess.run(
            [host().program, "-C", str(self.folder / "etc/asterisk.conf"), "-rx", command],
            stdin=subprocess.DEVNULL, capture_output=True, timeout=LIMIT, text=True, errors="replace", check=False)
        if check and answer.returncode != 0:
            raise PbxError(f"no answer to '{command}': {answer.stderr or answer.stdout}{self._last_words()}")
        return answer.stdout

    def load_module(self, name):
        """Loads a module of the build tree, and says whether it runs."""
        link = self.folder / "mod" / name
        if not link.exists():
            source = self.build / "lib/asterisk/modules" / name
            if not source.exists():
                raise PbxError(f"{source} is missing: build it first")
            link.symlink_to(source)
        self.cli(f"module load {name}")
        return self.module_runs(name)

    def unload_module(self, name):
        """Unloads a module, and says whether the PBX agreed."""
        self.cli(f"module unload {name}")
        return not self.module_runs(name)

    def module_runs(self, name):
        lines = self.cli(f"module show like {name}").splitlines()
        return any(line.startswith(name) and " Running " in line and " Not Running " not in line for line in lines)

    # --- calls --------------------------------------------------------------------------------------------------

    def call(self, steps, talker=None, at_hangup=()):
        """Places a call: one leg runs the dialplan `steps`, the other plays to it by the steps of `talker`.

        The listening leg ends with its steps, and the talking one with it.
        """
        self._calls += 1
        call = Call(self, self._calls)
        self._dialplan[call.context] = {"s": list(steps), "h": [*at_hangup, report("end")]}
        self._dialplan[call.talker] = {"s": ["Answer()", *(SILENT_TALKER if talker is None else talker)]}
        self._write_dialplan()
        self.cli(f"channel originate Local/s@{call.talker} extension s@{call.context}")
        return call

    def _write_dialplan(self):
        lines = []
        for context, extensions in self._dialplan.items():
            lines.append(f"[{context}]")
            for extension, steps in extensions.items():
                lines += [f"exten => {extension},{number},{escape_dialplan(step)}"
                          for number, step in enumerate(steps, start=1)]
        self.write_file("extensions.conf", "\n".join(lines) + "\n")
        self.cli("dialplan reload")

    def channel_of(self, context):
        """The channel whose dialplan runs in the context."""
        for line in self.cli("core show channels concise").splitlines():
            fields = line.split("!")
            if len(fields) > 1 and fields[1] == context:
                return fields[0]
        raise PbxError(f"no channel runs {context}")

    # --- log ----------------------------------------------------------------------------------------------------

    def log(self):
        """All log lines up to now. A text with line feeds gives one line here; what follows them is left out."""
        with contextlib.suppress(FileNotFoundError), open(self.folder / "log/full", "rb") as file:
            file.seek(self._log_bytes)
            news = file.read()
            self._log_bytes += len(news)
            *lines, self._log_rest = (self._log_rest + news).split(b"\n")
            for line in lines:
                if match := LOG_LINE.match(line.decode("utf-8", "replace")):
                    self._log_lines.append(LogLine(match))
        return self._log_lines

    def logged(self, text, level=None):
        """The texts of the log lines that contain a text, of one level if given."""
        return [line.text for line in self.log() if text in line.text and level in (None, line.level)]

    def wait_until(self, condition, timeout, complaint):
        end = time.monotonic() + timeout
        while not condition():
            if not self.running:
                raise PbxError(f"the PBX has died (status {self._process.returncode}): {complaint}{self._last_words()}")
            if time.monotonic() > end:
                raise PbxError(f"{complaint}{self._last_words()}")
            time.sleep(0.01)

    def _last_words(self):
        return "".join(f"\n    {line}" for line in self.log()[-15:]) + "\n" + self._error_lines()

    def _error_lines(self):
        with contextlib.suppress(OSError):
            return (self.folder / "err").read_text(errors="replace")[:10000]
        return ""


def prompt(name):
    """The path, without its extension, of a recorded prompt: prompt("digits/7")."""
    return f"{host().sounds}/en/{name}"


def sanitizer_environment(build):
    """What a process needs to load a module built with the address sanitizer: its library comes before all others."""
    module = Path(build) / "lib/asterisk/modules/res_speech_quillbrook.so"
    headers = subprocess.run(["readelf", "-d", module], capture_output=True, text=True, check=False).stdout
    found = re.search(r"\[(libasan\.so[^]]*)\]", headers)
    # The PBX keeps much to its end. With the sanitizer's library in front, the C library gives back a lock of its message
    # catalogues once too often at the start of the PBX, and who comes for it later waits for ever: GnuTLS does, which
    # libcurl brings along, so it comes before.
    return {"LD_PRELOAD": found[1] + " libgnutls.so.30", "ASAN_OPTIONS": "detect_leaks=0"} if found else {}


def report(text):
    """A dialplan step that writes the text where `Call.reports` finds it."""
    return f"Verbose(1,R ${{CONTEXT}}: {text})"


def escape_dialplan(step):
    """A semicolon begins a comment in the PBX's files."""
    return re.sub(r"(?<!\\);", r"\\;", step)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def end_on_signals():
    """Makes SIGTERM and SIGHUP end the program as Ctrl-C does, through the `with` blocks; also in the background."""

    def leave(_number, _frame):
        raise KeyboardInterrupt

    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, leave)


def _die_with_parent():
    """In the new process: end it when the program that started it is killed outright."""
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, signal.SIGTERM)
