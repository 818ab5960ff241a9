// Grammar commands on the dialplan's thread while results are made on the plugin's.
#include "session_fixture.h"

namespace {

struct GrammarRaceTest : SessionTest {
  std::atomic<bool> talking{true};

  static std::string file(const std::string &name, const std::string &content) {
    stand_in::write_file(stand_in::config_path(name), content);
    return stand_in::config_path(name);
  }
  void load(const std::string &path) { quillbrook_recog_load_grammar(&speech, "g", path.c_str()); }

  // Long, so that a match takes most of the time and any change meets one.
  static std::string answer() {
    std::string text;
    for (int word = 0; word < 500; ++word) {
      text += "yes ";
    }
    return text + "yes";
  }

  // Gives the answer until the test has had enough, and reads the configuration that it was given at the start.
  void talk(quillbrook_context *context) {
    const auto *configuration = static_cast<const char *>(context->config_pointer);
    const std::string text = answer();
    while (talking && !__atomic_load_n(&context->finalize, __ATOMIC_ACQUIRE)) {
      quillbrook_callback(context, text.c_str(), 80);
      quillbrook_callback(context, "", QUILLBROOK_SCORE_FINISH);
      EXPECT_STREQ(configuration, "given at the start");
      usleep(1000);  // the other side gets the lock too
    }
  }
};

TEST_F(GrammarRaceTest, AMatchAndAChangeOfTheSetDoNotMeet) {
  engine.returnnlsml = 1;
  engine.continuous = 1;
  plugin.on_loop = [this](quillbrook_context *context) { talk(context); };
  create();
  const std::string grammar = file("a.jsgf", "#JSGF V1.0;\ngrammar a;\npublic <r> = yes+ {AFFIRMED};\n");
  load(file("configuration_a", "given at the start"));
  start();

  constexpr int ROUNDS = 40;
  int with_tags = 0;
  for (int round = 0; round < ROUNDS; ++round) {
    load(grammar);
    load(stand_in::config_path("configuration_a"));
    load("property:Speech-Timeout=1s");
    quillbrook_recog_activate_grammar(&speech, "g");
    ASSERT_TRUE(eventually([&] { return queued() > 0; }));
    quillbrook_recog_deactivate_grammar(&speech, "g");
    quillbrook_recog_unload_grammar(&speech, "g");
    const std::string document = stand_in::file_content(get());
    const bool tags = document.find("<instance>AFFIRMED</instance>") != std::string::npos;
    const bool text = document.find("<instance>yes yes") != std::string::npos;
    EXPECT_NE(tags, text) << document;
    with_tags += tags;
    while (queued() > 1) {
      get();
    }
  }
  talking = false;
  EXPECT_GT(with_tags, 0);
  destroy();
}

}  // namespace
