"""What the built libraries show to the process that they are loaded into."""

import subprocess
import unittest

import live

PLUGIN = {"quillbrook_init", "quillbrook_loop", "quillbrook_stop"}


class ExportsTest(unittest.TestCase):
    def exported(self, path):
        """(type, name) of what the library defines for others, without the linker's own."""
        lines = subprocess.run(["nm", "-D", "--defined-only", live.build / path], capture_output=True, text=True,
                               check=True).stdout.splitlines()
        symbols = [tuple(line.split()[-2:]) for line in lines]
        return {(kind, name.split("@")[0]) for kind, name in symbols if name not in ("_init", "_fini")}

    def test_only_the_contract_is_exported(self):
        modules, plugins = "lib/asterisk/modules/", "lib/quillbrook/"
        wanted = {modules + live.MODULE: {"json_escape_unicode_copy"}, modules + live.COMPANION: set()}
        wanted.update({plugins + path.name: PLUGIN for path in (live.build / plugins).glob("plugin_*.so")})
        self.assertGreaterEqual(len(wanted), 4)
        for path, names in wanted.items():
            with self.subTest(path):
                self.assertEqual({name for _, name in self.exported(path)}, names)

    def test_no_unique_symbol_keeps_a_library_mapped(self):
        for path in [f"lib/asterisk/modules/{live.MODULE}", *(live.build / "lib/quillbrook").glob("lib*.so")]:
            with self.subTest(path):
                self.assertEqual({name for kind, name in self.exported(path) if kind == "u"}, set())

    def test_the_module_looks_for_the_grammar_library_where_plugins_live(self):
        headers = subprocess.run(["readelf", "-d", live.build / "lib/asterisk/modules" / live.MODULE],
                                 capture_output=True, text=True, check=True).stdout
        self.assertIn("Library runpath: [/usr/lib/quillbrook]", headers)


if __name__ == "__main__":
    live.main()
