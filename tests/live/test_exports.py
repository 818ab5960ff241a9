"""What the built libraries show to the process that they are loaded into."""

import subprocess
import unittest

import live

PLUGIN = {"quillbrook_init", "quillbrook_loop", "quillbrook_stop"}
OPTIONAL = {"quillbrook_check", "quillbrook_attach"}


class ExportsTest(unittest.TestCase):
    def test_only_the_contract_is_exported(self):
        modules, plugins = live.build / "lib/asterisk/modules", live.build / "lib/quillbrook"
        wanted = {modules / live.MODULE: {"json_escape_unicode_copy"}, modules / live.COMPANION: set(),
                  **{path: PLUGIN for path in plugins.glob("plugin_*.so")}}
        self.assertGreaterEqual(len(wanted), 6)
        for path, names in wanted.items():
            with self.subTest(path.name):
                symbols = subprocess.run(["nm", "-D", "--defined-only", path], capture_output=True, text=True, check=True)
                exported = {line.split()[-1].split("@")[0] for line in symbols.stdout.splitlines()}
                self.assertEqual(exported - OPTIONAL - {"_init", "_fini"}, names)


if __name__ == "__main__":
    live.main()
