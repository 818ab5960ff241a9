"""The Debian package: made from the build tree, installed beside Debian's Asterisk with its own configuration, called,
and purged.

All of that happens in a copy of the machine: an overlay over its root, with a network of its own, that is gone with the
test. Where a container does not let us mount one, it happens on the machine itself, if nothing of ours is there.
"""

import os
import re
import shutil
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import live
from host import host
from pbx import LIMIT

PACKAGE = "/tmp/quillbrook.deb"
CONFIG = "/etc/asterisk/quillbrook.conf"
LOG_FOLDER = "/var/log/quillbrook"
DOCUMENTS = "/usr/share/doc/quillbrook"
GUIDE = Path(__file__).parents[2] / "docs/plugin-guide.md"
LOG = "/var/log/asterisk/messages*"  # newer series add .log to the name
# Of this run, so that its lines in the log are told from others.
CONTEXT = f"quillbrook-package-{os.getpid()}"

# $1: an empty folder. $2: LOOPBACK_UP. Says "ready" when $1/root is the copy.
MAKE_COPY = """
set -e
mount --make-rprivate /
mount -t tmpfs scratch "$1"
mkdir "$1/upper" "$1/work" "$1/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" "$1/root"
for folder in proc dev sys; do mount --rbind "/$folder" "$1/root/$folder"; done
for folder in tmp run; do mount -t tmpfs -o mode=1777 scratch "$1/root/$folder"; done
python3 -c "$2"
echo ready
exec sleep 600
"""

# A new network's loopback interface is down.
LOOPBACK_UP = """
import fcntl, socket, struct
SIOCSIFFLAGS, IFF_UP = 0x8914, 1
fcntl.ioctl(socket.socket(), SIOCSIFFLAGS, struct.pack("16sh14x", b"lo", IFF_UP))
"""

PJSIP = """
[local]
type=transport
protocol=udp
bind=127.0.0.1:15070
[anonymous]
type=endpoint
context=quillbrook-try
disallow=all
allow=ulaw
"""

# A telephone that dials, speaks, and waits for the PBX to hang up.
TELEPHONE = """<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="caller">
  <send retrans="500"><![CDATA[
INVITE sip:784@[remote_ip]:[remote_port] SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: <sip:caller@[local_ip]:[local_port]>;tag=[call_number]
To: <sip:784@[remote_ip]:[remote_port]>
Call-ID: [call_id]
CSeq: 1 INVITE
Contact: <sip:caller@[local_ip]:[local_port]>
Max-Forwards: 70
Content-Type: application/sdp
Content-Length: [len]

v=0
o=caller 1 1 IN IP4 [local_ip]
s=-
c=IN IP4 [media_ip]
t=0 0
m=audio [rtpstream_audio_port] RTP/AVP 0
a=rtpmap:0 PCMU/8000

  ]]></send>
  <recv response="100" optional="true"/>
  <recv response="180" optional="true"/>
  <recv response="183" optional="true"/>
  <recv response="200"/>
  <send><![CDATA[
ACK sip:784@[remote_ip]:[remote_port] SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: <sip:caller@[local_ip]:[local_port]>;tag=[call_number]
[last_To:]
Call-ID: [call_id]
CSeq: 1 ACK
Max-Forwards: 70
Content-Length: 0

  ]]></send>
  <nop><action><exec rtp_stream="/tmp/speech.ulaw,1,0,PCMU/8000"/></action></nop>
  <recv request="BYE"/>
  <send><![CDATA[
SIP/2.0 200 OK
[last_Via:]
[last_From:]
[last_To:]
[last_Call-ID:]
[last_CSeq:]
Content-Length: 0

  ]]></send>
</scenario>
"""


def run(command, **options):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, errors="replace", timeout=2 * LIMIT, check=False, **options)


class Machine:
    """Where the package is installed: `sh` runs there."""

    def __init__(self):
        self.prefix = []
        self._folder = Path(tempfile.mkdtemp(prefix="package-"))
        self._holder = subprocess.Popen(
            ["unshare", "--mount", "--net", "sh", "-c", MAKE_COPY, "sh", str(self._folder), LOOPBACK_UP],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        if self._holder.stdout.readline() == "ready\n":
            self.prefix = ["nsenter", "--target", str(self._holder.pid), "--mount", "--net",
                           "chroot", str(self._folder / "root")]

    @property
    def is_a_copy(self):
        return bool(self.prefix)

    def start(self, *command):
        return subprocess.Popen([*self.prefix, *command], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL, cwd="/")

    def sh(self, script, *arguments, check=True):
        """What a shell script prints, errors too."""
        answer = run([*self.prefix, "sh", "-c", script, "sh", *arguments], cwd="/")
        if check and answer.returncode != 0:
            raise AssertionError(f"{script} {' '.join(arguments)}: exit {answer.returncode}\n{answer.stdout}")
        return answer.stdout

    def put(self, path, content):
        """Writes a file that everybody may read."""
        subprocess.run([*self.prefix, "sh", "-c", 'cat >"$1" && chmod 644 "$1"', "sh", path], input=content, cwd="/",
                       check=True)

    def leave(self):
        self._holder.kill()
        self._holder.communicate()
        shutil.rmtree(self._folder, ignore_errors=True)


class InstallTest(unittest.TestCase):
    def test_puts_everything_where_it_is_looked_for(self):
        with tempfile.TemporaryDirectory() as root:
            answer = run(["cmake", "--install", str(live.build)], env={**os.environ, "DESTDIR": root})
            self.assertEqual(answer.returncode, 0, answer.stdout)
            files = {f"/{path.relative_to(root)}" for path in Path(root).rglob("*") if not path.is_dir()}
        plugins = {f"/usr/lib/quillbrook/{path.name}" for path in (live.build / "lib/quillbrook").glob("*.so")}
        self.assertEqual(plugins - files, {"/usr/lib/quillbrook/plugin_example.so"})  # for reading, not for use
        self.assertLessEqual({f"{host().modules}/res_speech_quillbrook.so", "/usr/include/quillbrook.h",
                              f"{host().configuration}/quillbrook.conf.sample", "/usr/bin/jsgf-match",
                              "/usr/bin/quillbrook-srgs", "/usr/bin/quillbrook-timeline",
                              "/usr/share/quillbrook/grammars/yesno.jsgf"}, files)
        self.assertFalse({path for path in files if "/local/" in path or path == CONFIG})


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not (live.build / "CPackConfig.cmake").exists():
            raise unittest.SkipTest("no package is made for a PBX that is not Debian's")
        cls.machine = Machine()
        cls.addClassCleanup(cls.machine.leave)
        if not cls.machine.is_a_copy and any(map(os.path.exists, (CONFIG, "/usr/lib/quillbrook", "/run/asterisk"))):
            raise unittest.SkipTest("no copy of the machine can be mounted, and on the machine itself is something")
        folder = tempfile.mkdtemp(prefix="package-")
        cls.addClassCleanup(shutil.rmtree, folder)
        # cpack strips and packs the files of the build tree and of the source tree; it compiles nothing.
        answer = run(["cpack", "--config", str(live.build / "CPackConfig.cmake"), "-B", folder])
        packages = list(Path(folder).glob("*.deb"))
        assert answer.returncode == 0 and len(packages) == 1, answer.stdout
        cls.package = packages[0]
        cls.machine.put(PACKAGE, cls.package.read_bytes())
        cls.addClassCleanup(cls.machine.sh, f"dpkg --purge quillbrook; rm -f {PACKAGE}", check=False)

    def test_depends_on_the_major_version_that_it_was_built_for(self):
        version = run(["dpkg-query", "-W", "-f=${Version}", "asterisk-dev"]).stdout
        epoch, major = re.match(r"(\d+:|)(\d+)\.", version).groups()
        depends = run(["dpkg-deb", "-f", str(self.package), "Depends"]).stdout.strip().split(", ")
        self.assertLessEqual({f"asterisk (>= {epoch}{major}~)", f"asterisk (<< {epoch}{int(major) + 1}~)"}, set(depends))
        self.assertTrue(any(part.startswith("libstdc++6 ") for part in depends), depends)
        # On a system with the next major version it is refused.
        status = "/tmp/status"
        self.machine.sh('sed "/^Package: asterisk$/,/^$/s/^Version: .*/Version: $1/" /var/lib/dpkg/status >"$2"',
                        f"{epoch}{int(major) + 1}.0.0", status)
        self.addCleanup(self.machine.sh, f"rm -f {status}")
        answer = self.machine.sh(f"LC_ALL=C apt-get -o Dir::State::status={status} --simulate install {PACKAGE}",
                                 check=False)
        self.assertIn(f"quillbrook : Depends: asterisk (< {epoch}{int(major) + 1}~)", answer)

    def test_installs_answers_a_call_and_is_purged(self):
        self.machine.sh(f"dpkg -i {PACKAGE}")
        files = self.machine.sh("dpkg -L quillbrook").split()
        self.assertFalse([path for path in files if "/local/" in path or path == f"{CONFIG}.sample"])
        self.assertEqual(self.dead_links([path for path in files if path.endswith(".md")]), [])
        self.assertEqual(self.machine.sh(f"stat -c '%U:%G %a' {LOG_FOLDER} {CONFIG}").split("\n")[:2],
                         ["asterisk:adm 2750", "asterisk:asterisk 640"])
        self.assertIn("{11-} {23}", self.machine.sh("jsgf-match /usr/share/quillbrook/grammars/en/date.jsgf "
                                                    "'november the twenty third'"))
        # As the guide for plugins tells.
        recipe, = re.findall(r"^```\n(cmake_minimum_required.*?)^```$", GUIDE.read_text(), re.MULTILINE | re.DOTALL)
        self.machine.sh("mkdir /tmp/plugin")
        self.machine.put("/tmp/plugin/CMakeLists.txt", recipe.encode())
        self.machine.sh(f"cd /tmp/plugin && cp {DOCUMENTS}/plugins/example/example.c . && cmake . && "
                        "cmake --build . && cmake --install . && cd / && rm -r /tmp/plugin")
        self.assertIn("PASSED", self.machine.sh("quillbrook-plugin-test /usr/lib/quillbrook/plugin_example.so"))
        self.answers_calls()
        self.machine.sh("rm /usr/lib/quillbrook/plugin_example.so; dpkg --remove quillbrook")
        self.machine.sh(f"test -e {CONFIG} && test ! -e /usr/lib/quillbrook")
        self.machine.sh("dpkg --purge quillbrook")
        left = self.machine.sh('for path; do [ -d "$path" ] || [ ! -e "$path" ] || echo "$path"; done', *files)
        self.assertEqual(left, "")
        self.machine.sh(f"test ! -e {LOG_FOLDER}")

    def dead_links(self, pages):
        """Links of installed pages to files that are not installed."""
        linked = [f"{os.path.dirname(page)}/{target}" for page in pages
                  for target in re.findall(r"\]\(([^):#]+)[^)]*\)", self.machine.sh(f"cat {page}"))]
        self.assertGreater(len(linked), 20)
        return self.machine.sh('for path; do [ -e "$path" ] || echo "$path"; done', *linked).split()

    def answers_calls(self):
        """Debian's Asterisk, with Debian's configuration and the package's, as the user that Debian runs it as."""
        self.machine.sh("install -d -o asterisk -g asterisk /run/asterisk")
        self.machine.sh(f"sed -i 's/^;profiles = .*/profiles=example,script/; s/^;logfile = .*/logfile=yes/' {CONFIG}")
        self.machine.sh("printf '[example]\\nplugin=plugin_example.so\\n[script]\\nplugin=plugin_dummy.so\\n'"
                        f" >>{CONFIG}")
        for path in ("/etc/asterisk/extensions.conf", "/etc/asterisk/pjsip.conf"):
            self.machine.sh(f"cp -p {path} {path}.before")
            self.addCleanup(self.machine.sh, f"mv {path}.before {path}")
        self.machine.sh("echo '#include /usr/share/quillbrook/extensions.conf' >>/etc/asterisk/extensions.conf")
        self.machine.put("/etc/asterisk/pjsip.conf", PJSIP.encode())
        pbx = self.machine.start("asterisk", "-f", "-U", "asterisk", "-G", "asterisk")
        try:
            self.wait_until(lambda: "fully booted" in self.rx("core waitfullybooted"), "the PBX did not start")
            # It is configured to load all modules that are there.
            self.assertIn("Running", self.rx("module show like res_speech_quillbrook.so"))
            self.rx("module unload res_speech_quillbrook.so")
            self.assertIn("0 modules loaded", self.rx("module show like res_speech_quillbrook.so"))
            self.rx("module load res_speech_quillbrook.so")
            self.assertIn("plugin_example.so", self.rx("quillbrook show plugins"))
            self.assertEqual(self.machine.sh(f"stat -c %U {LOG_FOLDER}/debug.log"), "asterisk\n")
            self.machine.put("/tmp/configuration_script", b"bytes 4000\nfinal 90 hello")
            self.assertEqual(self.call("quillbrook:script", "SpeechLoadGrammar(script,/tmp/configuration_script)"),
                             "90:hello")
            # What the plugin of the guide and the recogniser are to hear: the system's own voice.
            self.assertRegex(self.call("quillbrook:example", "NoOp()"), r"^\d+:speech \d+$")
            self.try_the_sample()
        finally:
            pbx.terminate()
            pbx.wait(LIMIT)

    def try_the_sample(self):
        """Dials the extension of the installed dialplan, which asks the installed recogniser, with a SIP telephone."""
        self.machine.put("/tmp/telephone.xml", TELEPHONE.encode())
        self.machine.sh("sox /usr/share/asterisk/sounds/en/digits/day-3.wav -t ul -r 8000 -c 1 /tmp/speech.ulaw "
                        "pad 1.5 4")
        telephone = self.machine.start("sipp", "127.0.0.1:15070", "-sf", "/tmp/telephone.xml", "-i", "127.0.0.1", "-mi",
                                       "127.0.0.1", "-m", "1", "-nostdin", "-timeout", str(LIMIT))
        try:
            self.wait_until(lambda: "Playback!digits/day-3" in self.rx("core show channels concise"),
                            "the day was not heard")
            self.assertEqual(telephone.wait(LIMIT), 0)
        finally:
            telephone.kill()
            telephone.wait()

    def rx(self, command):
        return self.machine.sh("asterisk -rx \"$1\"", command, check=False)

    def call(self, engine, step):
        """Score and text of the result of a call."""
        # The console takes each of these as one word, so there are no blanks.
        steps = ["Answer()", f"SpeechCreate({engine})", step, "SpeechStart()", "SpeechBackground(silence/1,8)",
                 f"Log(NOTICE,{CONTEXT}:{engine}:${{SPEECH_SCORE(0)}}:${{SPEECH_TEXT(0)}};)"]
        self.rx(f"dialplan remove context {CONTEXT}")
        for number, text in enumerate(steps, start=1):
            self.rx(f"dialplan add extension s,{number},{text} into {CONTEXT}")
        self.rx(f"dialplan add extension talk,1,Answer() into {CONTEXT}")
        self.rx(f"dialplan add extension talk,2,Playback(silence/1&digits/1&silence/10) into {CONTEXT}")
        self.rx(f"channel originate Local/talk@{CONTEXT} extension s@{CONTEXT}")
        found = []

        def logged():
            log = self.machine.sh(f"cat {LOG}", check=False)
            found[:] = re.findall(rf"{CONTEXT}:{engine}:(.*?);", log)
            return bool(found)

        self.wait_until(logged, f"no result of {engine}")
        return found[0]

    def wait_until(self, condition, complaint):
        end = time.monotonic() + LIMIT
        while not condition():
            self.assertLess(time.monotonic(), end, complaint + ": " + self.machine.sh(f"tail -n 20 {LOG}", check=False))
            time.sleep(0.1)


if __name__ == "__main__":
    live.main()
