// What the dialplan can ask about a result: the table of causes in docs/results.md, row by row, and the other names.
#include "session_fixture.h"
#include "result/json_pieces.h"
#include "session/watch.h"

namespace {

using stand_in::Fault;

struct Row {
  std::string way, cause, reason;
};

std::vector<Row> table_of_causes() {
  std::ifstream page(QUILLBROOK_SOURCE_DIR "/docs/results.md");
  std::vector<Row> rows;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (line.rfind("| The recognition ended because ", 0) == 0) {
      inside = std::getline(page, line).good();
    } else if (inside && line.rfind("| ", 0) == 0) {
      const size_t cause = line.find(" | `"), reason = line.find("` | ");
      const std::string text = line.substr(reason + 4, line.size() - reason - 4 - 1);
      rows.push_back({line.substr(2, cause - 2), line.substr(cause + 4, reason - cause - 4),
                      text.substr(0, text.find_last_not_of(' ') + 1)});
    } else {
      inside = false;
    }
  }
  return rows;
}

class CausesTest : public SessionTest {
protected:
  CausesTest() {
    set(engine.plugin_name, "p.so");
    engine.completetimeout = 1000;
    engine.incompletetimeout = 3000;
  }
  void load_polar_grammar() { load_grammar("polar", "public <answer> = yes {sure} | no {never};\n"); }
  void start_until_the_loop() {
    const int before = plugin.loops;
    start();
    write_ms(20, 1000);
    ASSERT_TRUE(eventually([&] { return plugin.loops > before; }));
  }
  void end_of_the_loop_brings_a_result() {
    start();
    write_ms(20, 1000);
    EXPECT_TRUE(eventually([&] { return state() == kDone; }));
  }
  void start_with(Fault fault) {
    stand_in::fail(fault);
    start();
    stand_in::stop_failing();
  }

  // Each ends a recognition in the way of its name.
  const std::map<std::string, std::function<void()>> ways = {
      {"a text was recognised", [&] { start_until_the_loop(), deliver("yes", 80); }},
      {"the recogniser understood nothing",
       [&] { start_until_the_loop(), send("yes", -1), send("?", QUILLBROOK_SCORE_NO_CONFIDENCE); }},
      {"no active grammar accepts the text",
       [&] {
         engine.returnnlsml = 1;
         load_polar_grammar();
         start_until_the_loop();
         deliver("perhaps", 80);
       }},
      {"a match with an active grammar was given up",
       [&] {
         engine.returnnlsml = 1;
         std::string rules = "public <r> = (<x>", text;
         for (int tag = 0; tag < 2000; ++tag) rules += " {t}";
         load_grammar("drinks", rules + ")*; <x> = a;\n");
         start_until_the_loop();
         for (int word = 0; word < 40000; ++word) text += "a ";
         deliver(text.c_str(), 80);
       }},
      {"no words came", [&] { start_until_the_loop(), finish(); }},
      {"the incomplete timeout ran out",
       [&] {
         session()->completetimeout = 5000;
         start_until_the_loop();
         send("yes", QUILLBROOK_SCORE_INTERIM);
         stand_in::advance_ms(3001);
         tick();
       }},
      {"the plugin reported a failure",
       [&] {
         plugin.loop_waits = false;
         plugin.on_end = [](quillbrook_context *context) { copy_text(context->extra, "ERROR: the plugin's words"); };
         end_of_the_loop_brings_a_result();
       }},
      {"the audio file could not be made or written", [&] { start_with(Fault::kWriteStream); }},
      {"the result document could not be written",
       [&] {
         engine.returnjson = 1;
         start_until_the_loop();
         stand_in::fail(Fault::kWrite);
         deliver("yes", 80);
       }},
      {"there was no memory for it",
       [&] {
         stand_in::fail_allocations_of(sizeof(quillbrook_run_t));
         start();
         stand_in::stop_failing();
       }},
      {"there was no thread for it", [&] { start_with(Fault::kThread); }},
      {"the plugin refused it", [&] { plugin.init_result = 1, start(); }},
      {"the plugin returned after words",
       [&] {
         plugin.loop_waits = false;
         plugin.on_loop = [](quillbrook_context *context) {
           quillbrook_callback(context, "text that is not stored", QUILLBROOK_SCORE_NO_CONFIDENCE);
         };
         end_of_the_loop_brings_a_result();
       }},
      {"nothing could be kept of what came",
       [&] {
         start_until_the_loop();
         send("text that is not stored", QUILLBROOK_SCORE_NO_CONFIDENCE);
         stand_in::advance_ms(1001);
         send("", QUILLBROOK_SCORE_INTERIM);
       }},
      {"the plugin stopped calling back",
       [&] {
         engine.plugintimeout = 500;
         start_until_the_loop();
         send("yes", QUILLBROOK_SCORE_INTERIM);
         stand_in::advance_ms(501);
         quillbrook_watch_look();
       }},
  };
};

TEST_F(CausesTest, EachWayToEndIsInTheManual) {
  const std::set<std::string> failures = {"incomplete", "provider", "storage", "memory", "plugin"};
  std::set<std::string> walked, causes;
  for (const auto &[way, cause, reason] : table_of_causes()) {
    SCOPED_TRACE(way);
    ASSERT_TRUE(ways.count(way));
    const quillbrook_engine_t before = engine;
    create();
    ways.at(way)();
    const std::string result = get();
    EXPECT_EQ(result == "error", failures.count(cause) || cause == "nothing");
    EXPECT_EQ(setting("cause"), cause);
    const size_t dots = std::min(reason.find("..."), reason.size());
    EXPECT_THAT(setting("reason"), testing::StartsWith(reason.substr(0, dots)));
    EXPECT_THAT(setting("reason"), testing::EndsWith(reason.substr(std::min(dots + 3, reason.size()))));
    // One line at default verbosity, which names session, engine, cause and what to do.
    EXPECT_EQ(stand_in::mentioned(named("quillbrook has no result (" + cause + "): ")), failures.count(cause));
    walked.insert(way);
    causes.insert(cause);
    plugin.init_result = 0, plugin.loop_waits = true, plugin.on_loop = nullptr, plugin.on_end = nullptr;
    destroy();
    engine = before;
    stand_in::reset();
  }
  EXPECT_EQ(walked.size(), ways.size());
  EXPECT_EQ(causes.size(), static_cast<size_t>(kCauses));
}

TEST_F(CausesTest, TheDialplanAsksForWhatIsKnownOfItsResult) {
  engine.returnnlsml = 1;
  create();
  EXPECT_EQ(setting("cause"), "nothing");
  load_polar_grammar();
  start_until_the_loop();
  stand_in::advance_ms(300);
  send("y\xC3\xA9", QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(setting("interim"), "y\xC3\xA9");
  EXPECT_EQ(setting("waiting"), "0");
  stand_in::advance_ms(500);
  context()->extra_pointer = "{\"a\":1}";
  deliver("yes", 80);
  EXPECT_EQ(setting("waiting") + setting("cause"), "1nothing") << "it describes what was fetched";
  get();
  const std::pair<const char *, const char *> known[] = {
      {"cause", "understood"}, {"reason", ""},        {"input", "yes"}, {"meaning", "sure"}, {"grammar", "polar"},
      {"rule", "answer"},      {"json", "{\"a\":1}"}, {"first", "300"}, {"length", "800"},   {"waiting", "0"},
      {"interim", ""},         {"score", "(none)"},   {"", "(none)"}};
  for (const auto &[name, value] : known) EXPECT_EQ(setting(name), value) << name;
  start_until_the_loop();
  EXPECT_EQ(setting("input") + setting("first") + setting("cause"), "nothing") << "of the former question";

  // A value is cut between two characters, and a provider writes no line of its own.
  send("y\xC3\xA9", QUILLBROOK_SCORE_INTERIM);
  char little[3] = "xx";
  EXPECT_EQ(quillbrook_recog_get_settings(&speech, "interim", little, sizeof(little)), 0);
  EXPECT_STREQ(little, "y");
  plugin.on_end = [](quillbrook_context *context) { copy_text(context->extra, "ERROR:\tone\n\x1B[2Jtwo\xC2\x9B"); };
  destroy();
  EXPECT_EQ(setting("cause"), "(none)");
  create();
  plugin.loop_waits = false;
  end_of_the_loop_brings_a_result();
  get();
  EXPECT_EQ(setting("reason"), "?one??[2Jtwo??");
  EXPECT_EQ(stand_in::mentioned("\x1B"), 0);
}

TEST_F(CausesTest, TheJsonOfAllPieces) {
  engine.returnjson = 1;
  engine.jsonpieces = 1;
  const auto piece = [&](const char *json, const char *text, int score_of_it) {
    context()->extra_pointer = json;
    send(text, score_of_it);
  };
  create();
  start_until_the_loop();
  piece("{\"n\":0}", "on", QUILLBROOK_SCORE_INTERIM);
  piece("{\"n\":1}", "one", 80);
  piece(nullptr, "say \"two\"", 70);
  piece("{\"n\":", "no JSON", 80);
  piece("\xEF\xBB\xBF{}", "no value", 80);
  piece("{\"n\":3}", "thr", QUILLBROOK_SCORE_INTERIM);
  const std::string all = "[{\"n\":1},\"say \\\"two\\\"\",\"{\\\"n\\\":\",\"\\uFEFF{}\",{\"n\":3}]";
  finish();
  EXPECT_EQ(stand_in::file_content(get()), all);
  EXPECT_EQ(setting("json"), all);
  // The next utterance of a continuous recognition has its own, and without any document it is an array all the same.
  destroy();
  engine.continuous = 1;
  create();
  start_until_the_loop();
  piece("1", "one", 80);
  finish();
  piece(nullptr, "four", 80);
  finish();
  EXPECT_EQ(stand_in::file_content(get()), "[1]");
  EXPECT_EQ(stand_in::file_content(get()), "[\"four\"]");
  // What a provider sends has a bound.
  const std::string large = "\"" + std::string(kJsonPiecesMax - 10, '1') + "\"";
  for (int number = 0; number < 3; ++number) piece(large.c_str(), "x", 80);
  finish();
  EXPECT_EQ(stand_in::file_content(get()).size(), large.size() + 2);
  EXPECT_EQ(stand_in::mentioned("a piece is left out"), 2);
}

}  // namespace
