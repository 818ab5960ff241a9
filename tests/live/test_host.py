"""The private PBX itself: another one than the system's, run by another user, beside one that runs."""

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

import live
from host import Host, host
from live import LiveTest

OTHER_TEST = Path(__file__).with_name("test_companion.py")


class HostTest(LiveTest):
    def prefix(self):
        """A prefix with everything of the PBX in use, and with modules where only its configuration tells."""
        folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        folder.chmod(0o755)
        links = {"sbin/asterisk": host().program, "libexec/pbx": host().modules, "include": host().headers,
                 "var/lib/asterisk/documentation": host().data / "documentation"}
        for name, target in links.items():
            (folder / name).parent.mkdir(parents=True, exist_ok=True)
            (folder / name).symlink_to(target)
        (folder / "etc/asterisk").mkdir(parents=True)
        (folder / "etc/asterisk/asterisk.conf").write_text(
            f"[directories](!)\nastmoddir => {folder}/libexec/pbx ; the modules\n;astmoddir => /nonexistent\n")
        return folder

    def test_a_pbx_with_a_prefix_is_run_by_any_user_beside_another(self):
        prefix = self.prefix()
        other = Host(prefix)
        self.assertEqual((other.program, other.modules, other.data, other.headers, other.series),
                         (f"{prefix}/sbin/asterisk", prefix / "libexec/pbx", prefix / "var/lib/asterisk",
                          prefix / "include", host().series))
        # A tree in somebody's home is not for others to read; then the prefix alone is tried.
        nobody = {"user": "nobody", "group": "nogroup", "extra_groups": []}
        readable = os.geteuid() == 0 and subprocess.run(
            ["test", "-r", OTHER_TEST, "-a", "-r", live.build / "lib"], check=False, **nobody).returncode == 0
        answer = subprocess.run(
            ["/usr/bin/python3", OTHER_TEST, "--build", live.build, "--host", prefix], stdin=subprocess.DEVNULL,
            capture_output=True, text=True, check=False, cwd="/", env={**os.environ, "PYTHONDONTWRITEBYTECODE": "1"},
            **(nobody if readable else {}))
        self.assertEqual(answer.returncode, 0, answer.stderr)
        self.assertIn("\nOK", answer.stderr)
        self.assertTrue(self.pbx.running)

    def test_what_is_missing_is_named(self):
        with self.assertRaisesRegex(RuntimeError, "no program asterisk in /nonexistent/sbin"):
            Host("/nonexistent")


if __name__ == "__main__":
    live.main()
