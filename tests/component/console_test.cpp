// What the console tells of sessions, and tries without a call.
#include "ops/cli_commands.h"
#include "ops/cli_sessions.h"
#include "session/trial.h"
#include "session_fixture.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class ConsoleTest : public SessionTest {
protected:
  ConsoleTest() { quillbrook_cli_register(); }
  ~ConsoleTest() override { quillbrook_cli_unregister(); }
  static std::string completion(const char *word, int position, int n) {
    ast_cli_args args = {-1, 0, nullptr, "", word, position, n};
    char *offered = handle_cli_quillbrook_sessions(nullptr, CLI_GENERATE, &args);
    const std::string text = offered ? offered : "(none)";
    ast_free(offered);
    return text;
  }
  std::string sessions(const std::string &arguments = "") {
    return stand_in::run_command("quillbrook show sessions" + arguments);
  }
};

TEST_F(ConsoleTest, EachSessionIsALineOfItsOwn) {
  EXPECT_THAT(sessions(), HasSubstr("\n0 sessions\n"));
  stand_in::add_channel("7");
  engine.completetimeout = 5000;
  engine.continuous = 1;
  create();
  const std::string head = std::string(session()->name) + " +Local/7 +quillbrook +";
  EXPECT_THAT(sessions(), ContainsRegex(head + "idle +- +- +\n1 session\n"));
  start();
  EXPECT_THAT(sessions(), ContainsRegex(head + "waiting +0.0 +- +\n"));
  write_ms(20, 1000);
  ASSERT_TRUE(eventually([&] { return plugin.loops > 0; }));
  stand_in::advance_ms(200);
  tick();
  EXPECT_THAT(sessions(), ContainsRegex(head + "listening +0.2 +0 ms +\n"));
  stand_in::advance_ms(1000);
  send("four", 80);
  send("se\nven", QUILLBROOK_SCORE_INTERIM);
  stand_in::advance_ms(300);
  EXPECT_THAT(sessions(), ContainsRegex(head + "speech +1.5 +300 ms +four se\\?ven\n"));
  finish();
  EXPECT_THAT(sessions(), ContainsRegex(head + "result +1.5 +0 ms +\n"));
  {
    // A plugin that writes its result holds nobody up.
    MutexLock held(session()->result_lock);
    std::string text;
    std::thread([&] { text = sessions(); }).join();
    EXPECT_THAT(text, ContainsRegex(head + "busy +- +- +\n"));
  }
  for (const char *pattern : {" like local/7", " like QUILL", " like qbk-"}) {
    EXPECT_THAT(sessions(pattern), HasSubstr("\n1 session\n")) << pattern;
  }
  EXPECT_THAT(sessions(" like sales"), HasSubstr("\n0 sessions\n"));
  for (const char *wrong : {" like", " unlike x", " like x y"}) EXPECT_THAT(sessions(wrong), HasSubstr("Usage: "));
  EXPECT_EQ(completion("l", 3, 0) + completion("l", 3, 1) + completion("x", 3, 0), "like(none)(none)");
  EXPECT_EQ(completion("qbk", 4, 0) + completion("", 4, 1), std::string(session()->name) + "(none)");
  EXPECT_EQ(stand_in::channel_references(), 0);
}

TEST_F(ConsoleTest, ARecordingIsTriedWithoutACall) {
  constexpr char kRecording[] = "/tmp/quillbrook_recording.wav";
  stand_in::write_file(kRecording, std::string(kWavHeader + 320 * 50, '\0'));
  std::string phrases, printed;
  const auto run = [&](const char *name, const char *recording) {
    printed.clear();
    quillbrook_run_trial({name, recording, "yes,no"}, [&](const std::string &line) { printed += line + "\n"; });
    return printed;
  };
  plugin.on_loop = [&](quillbrook_context *context) {
    phrases = context->phrases;
    quillbrook_callback(context, "ye", QUILLBROOK_SCORE_INTERIM);
    EXPECT_TRUE(eventually([&] { return printed.find("interim") != std::string::npos; }));
    quillbrook_callback(context, "yes", 80);
  };
  EXPECT_THAT(run("quillbrook", kRecording),
              ContainsRegex(" s  interim  ye\n.* s  result   yes\n"
                            " +score 80\n +cause understood\n +input yes\n +first [0-9]+\n +length "));
  EXPECT_EQ(phrases, "yes,no");
  EXPECT_THAT(printed, Not(HasSubstr("reason")));
  // Who says nothing is waited for, and then there is a result all the same.
  plugin.on_loop = nullptr;
  EXPECT_THAT(run("quillbrook", kRecording), ContainsRegex("result   error\n +score 0\n +cause nothing\n"));
  EXPECT_THAT(printed, HasSubstr("The recording lasts 1000 ms; 1 result\n"));
  for (const char *name : {"quillbrook:nobody", "nobody"}) {
    EXPECT_THAT(run(name, kRecording), HasSubstr("There is no engine " + std::string(name))) << name;
  }
  EXPECT_THAT(run("quillbrook", "/tmp/quillbrook_none.wav"), HasSubstr("Cannot read /tmp/quillbrook_none.wav"));
  unlink(stand_in::real_path(kRecording).c_str());
  EXPECT_EQ(quillbrook_statistics_read().stats.sessions_active, 0U);
}

}  // namespace
