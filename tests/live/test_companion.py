"""Whose call a session belongs to, asked of the companion application."""

import live
from live import COMPANION, MODULE, LiveTest
from pbx import report

SCRIPT = "report={report}\nbytes 1000\nshow uniqueid mark param\nfinal 90 yes"


class CompanionTest(LiveTest):
    general = {"logtag": "yes", "loggingtag": "param"}
    load = (COMPANION, MODULE)

    def test_the_call_s_values_reach_the_plugin_and_the_log(self):
        call = self.pbx.call(
            ["Answer()", "Set(CALLERID(num)=4711)", "Set(QUILLBROOK_TAG=order 7)", "Set(QUILLBROOK_PARAM=gold;x)",
             report("id ${UNIQUEID}"), "SpeechCreate(quillbrook)", self.script(SCRIPT), "SpeechStart()",
             "SpeechBackground(silence/1,5)", live.RESULT])
        unique_id, result = call.wait()
        self.assertEqual(result, "result 1|90|yes")
        self.assertEqual(self.read_report(), {"uniqueid": unique_id[3:], "mark": "4711", "param": "gold;x"})
        self.assertTrue(self.pbx.logged("(QBK-order 7) Start recognition"))
        self.wait_for_no_files()

    def test_a_thread_without_a_call_has_no_values(self):
        self.assertEqual(self.pbx.cli("tandrel show session threadid uniqueid"), "")


if __name__ == "__main__":
    live.main()
