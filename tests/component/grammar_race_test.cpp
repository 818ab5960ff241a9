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

  // The instance of a result that was begun after this call.
  std::string fresh_instance() {
    while (queued()) {
      get();
    }
    std::string document;
    for (int result = 0; result < 2; ++result) {  // the first may have been under way
      EXPECT_TRUE(eventually([&] { return queued() > 0; }));
      document = stand_in::file_content(get());
    }
    const size_t begin = document.find("<instance>") + sizeof("<instance>") - 1;
    return document.substr(begin, document.find("</instance>") - begin);
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

  for (int round = 0; round < 40; ++round) {
    load(grammar);
    load("property:Speech-Timeout=1s");
    quillbrook_recog_activate_grammar(&speech, "g");
    EXPECT_EQ(fresh_instance(), "AFFIRMED");
    quillbrook_recog_deactivate_grammar(&speech, "g");
    // Waiting for the lock has put this thread in step with the matches; these take none.
    for (int again = 0; again < 5; ++again) {
      load(stand_in::config_path("configuration_a"));
    }
    quillbrook_recog_unload_grammar(&speech, "g");
    EXPECT_EQ(fresh_instance(), answer());
  }
  talking = false;
  destroy();
}

}  // namespace
