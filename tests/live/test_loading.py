"""Loads that fail: each is named in the log, leaves nothing behind, and a good load works afterwards."""

import live
from live import MODULE, LiveTest, configuration


class LoadFailureTest(LiveTest):
    load = ()

    @classmethod
    def tearDownClass(cls):
        cls.complaints = ("",)
        super().tearDownClass()

    def fails(self, message, conf=None, level="ERROR"):
        """Loads with a configuration (None: without the file) and expects the message."""
        path = self.pbx.folder / "etc/quillbrook.conf"
        path.unlink(missing_ok=True)
        if conf is not None:
            self.pbx.write_file(path.name, conf)
        before = len(self.pbx.logged(message, level))
        self.assertFalse(self.pbx.load_module(MODULE), "the module runs all the same")
        self.assertEqual(len(self.pbx.logged(message, level)), before + 1,
                         f"'{message}' was not logged: {self.pbx.log()[-6:]}")
        # Nothing stays: the engines can be registered again, and their calls work.
        self.pbx.write_file(path.name, configuration(one={}, two={}))
        self.assertTrue(self.pbx.load_module(MODULE), "a good load fails after it")
        self.assertEqual(self.ask("bytes 4000\nfinal 90 yes", engine="quillbrook:two"), ["result 1|90|yes"])
        self.assertTrue(self.pbx.unload_module(MODULE))

    def test_no_configuration_file(self):
        self.fails("No such configuration file quillbrook.conf", level="WARNING")

    def test_malformed_configuration_file(self):
        self.fails("Error in the configuration file.", "[general\nplugin=x\n")

    def test_no_such_plugin(self):
        self.fails("Failed to load the plugin : /nonexistent/plugin.so: cannot open shared object file",
                   configuration({"plugin": "/nonexistent/plugin.so"}))

    def test_a_plugin_without_the_functions(self):
        self.fails("Failed to load the plugin function : quillbrook_init / init",
                   configuration({"plugin": "/lib/x86_64-linux-gnu/libm.so.6"}))

    def test_a_profile_that_fails_withdraws_the_engines_before_it(self):
        self.fails("Failed to load the plugin : /nonexistent/plugin.so",
                   configuration(one={}, two={"plugin": "/nonexistent/plugin.so"}))

    def test_a_log_file_that_cannot_be_opened(self):
        self.fails("Failed to open log file : /nonexistent/folder/log.",
                   configuration({"logfile": "/nonexistent/folder/log"}))


if __name__ == "__main__":
    live.main()
