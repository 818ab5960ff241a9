// When an utterance has ended: the timers, on a clock that the test moves, to the millisecond. What is told here by
// example, endpointing_property_test.cpp tries at random.
#include "session_fixture.h"

namespace {

class EndpointingTest : public SessionTest {
protected:
  // A recognition with these timeouts, and its first text at time 0.
  void hear_first_text(int complete, int incomplete, bool quantum = false, int finalize = 0) {
    engine.completetimeout = complete;
    engine.incompletetimeout = incomplete;
    plugin.loops = 0;
    create_and_start();
    context()->quantum = quantum;
    context()->finalize = finalize;
    origin_ms_ = stand_in::clock_ms();
    EXPECT_EQ(send("words", QUILLBROOK_SCORE_INTERIM), 0);
  }
  int at(int64_t ms, const char *text = nullptr, int score = QUILLBROOK_SCORE_INTERIM) {
    stand_in::set_clock_ms(origin_ms_ + ms);
    return send(text, score);
  }
  std::vector<std::string> take_queue() {
    std::vector<std::string> texts;
    while (char *text = str_fifo_pop(&session()->last_results)) {
      texts.emplace_back(text);
      ast_free(text);
    }
    return texts;
  }

private:
  int64_t origin_ms_ = 0;
};

// The two timeouts against each other. A tick comes at each time; then the plugin's record and the queue are looked at.
struct Look {
  int at;
  int dsp;
  int finalize, incomplete;
  std::vector<std::string> queue = {};
};
struct Row {
  const char *name;
  int complete, incomplete;
  bool quantum;
  std::vector<Look> looks;
  int finalize = 0;       // raised before the first text
  bool both = false;      // `silences`
  bool detector = false;  // `dsp`
  bool broken = false;    // there is no detector to be had
};
// clang-format off
const Row kRows[] = {
    {"both off", 0, 0, false, {{1000000, 1000000, 0, 0}}},
    {"both off, quantum", 0, 0, true, {{1000000, 1000000, 0, 0}}},
    {"complete only", 1000, 0, false, {{1000, 1000, 0, 0}, {1001, 0, 0, 0, {"words"}}}},
    {"complete only, by the detector", 1000, 0, false, {{10, 1000, 0, 0}, {20, 1001, 0, 0, {"words"}}}},
    {"complete only, quantum", 1000, 0, true,
     {{1000, 1000, 0, 0}, {1001, 0, 1, 2000}, {2000, 9000, 1, 2000}, {2001, 0, 1, 2000, {"words"}}}},
    {"incomplete only", 0, 1500, false, {{1500, 9000, 0, 1500}, {1501, 0, 1, 1500, {"error"}}}},
    {"incomplete only, quantum", 0, 1500, true, {{1500, 9000, 0, 1500}, {1501, 0, 1, 1500, {"error"}}}},
    {"complete below incomplete", 1000, 3000, false, {{1000, 1000, 0, 3000}, {1001, 0, 0, 3000, {"words"}}}},
    {"complete below incomplete, quantum", 1000, 3000, true,
     {{1000, 1000, 0, 3000}, {1001, 0, 1, 2000}, {2000, 9000, 1, 2000}, {2001, 0, 1, 2000, {"words"}}}},
    {"complete below incomplete, finalize raised already", 1000, 3000, false,
     {{1001, 9000, 1, 3000}, {3000, 9000, 1, 3000}, {3001, 0, 1, 3000, {"words"}}}, 1},
    {"equal", 1000, 1000, false, {{1000, 1000, 0, 1000}, {1001, 0, 1, 1000, {"error", "words"}}}},
    {"equal, by the detector", 1000, 1000, false, {{10, 1001, 0, 1000, {"words"}}}},
    {"equal, quantum", 1000, 1000, true,
     {{1000, 1000, 0, 1000}, {1001, 0, 1, 2000}, {2000, 0, 1, 2000}, {2001, 0, 1, 2000, {"words"}}}},
    {"complete above incomplete", 2000, 1000, false, {{1000, 2000, 0, 1000}, {1001, 0, 1, 1000, {"error"}}}},
    {"complete above incomplete, by the detector", 2000, 1000, false, {{500, 2001, 0, 1000, {"words"}}}},
    {"complete above incomplete, quantum", 2000, 1000, true, {{1000, 0, 0, 1000}, {1001, 0, 1, 1000, {"error"}}}},
    {"complete above incomplete, quantum, by the detector", 2000, 1000, true,
     {{500, 2001, 1, 3000}, {3000, 9000, 1, 3000}, {3001, 0, 1, 3000, {"words"}}}},
    {"a negative timeout is any other number", -1, 3000, true,
     {{0, 0, 1, 999}, {999, 0, 1, 999}, {1000, 0, 1, 999, {"words"}}}},
    {"one late call does both steps", 1000, 3000, true, {{2500, 0, 1, 2000, {"words"}}}},
    {"both silences", 1000, 5000, false,
     {{1000, 9000, 0, 5000}, {1001, 1000, 0, 5000}, {2000, 1001, 0, 5000, {"words"}}}, 0, true, true},
    {"both silences in noise", 1000, 5000, false, {{3000, 0, 0, 5000}, {3001, 0, 0, 5000, {"words"}}}, 0, true, true},
    {"both silences, the outer limit", 2000, 5000, false,
     {{5000, 0, 0, 5000}, {5001, 0, 0, 5000, {"words"}}}, 0, true, true},
    {"both silences, quantum", 1000, 5000, true,
     {{2500, 1000, 0, 5000}, {2500, 1001, 1, 3500}, {3500, 0, 1, 3500}, {3501, 0, 1, 3500, {"words"}}}, 0, true, true},
    {"both silences, dsp off", 1000, 0, false, {{1000, 0, 0, 0}, {1001, 0, 0, 0, {"words"}}}, 0, true},
    {"both silences, no detector", 1000, 0, false, {{1000, 0, 0, 0}, {1001, 0, 0, 0, {"words"}}}, 0, true, true, true},
};
// clang-format on

TEST_F(EndpointingTest, TimeoutsExpireOneMillisecondAboveTheirValue) {
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.name);
    engine.both_silences = row.both;
    engine.dsp = row.detector;
    if (row.broken) stand_in::fail(stand_in::Fault::kDetector);
    hear_first_text(row.complete, row.incomplete, row.quantum, row.finalize);
    const std::string error = named("Error with incomplete timeout!\n");
    int errors = stand_in::logged(__LOG_ERROR, error);
    for (const Look &look : row.looks) {
      recognition()->silence = look.dsp;
      at(look.at);
      EXPECT_EQ(context()->finalize, look.finalize) << look.at;
      EXPECT_EQ(context()->incompletetimeout, look.incomplete) << look.at;
      EXPECT_EQ(context()->completetimeout, row.complete);
      EXPECT_EQ(state(), look.queue.empty() ? kReady : kDone) << look.at;
      const std::vector<std::string> queue = take_queue();
      EXPECT_EQ(queue, look.queue) << look.at;
      errors += static_cast<int>(std::count(queue.begin(), queue.end(), "error"));
      EXPECT_EQ(stand_in::logged(__LOG_ERROR, error), errors) << look.at;
    }
    destroy();
  }
}

// A PIN of four digits, which may be followed by "please" in one of two forms.
TEST_F(EndpointingTest, WhatTheGrammarSaysToTheWordsChoosesTheLimit) {
  const struct {
    const char *said;
    int limit;
    bool is_final = false;
    const char *settings = "";
  } rows[] = {{"one two", 3000},
              {"one two", 3000, true},
              {"one two one t", 3000},        // the recogniser is in the middle of a word
              {"one two one t", 1000, true},  // this is none
              {"one two one two", 200},
              {"one two one two", 200, true},
              {"One, two, one, two.", 200},
              {"two two two two", 1000},
              {"one two one two one", 1000},
              {"maybe", 1000},
              {"one two one two", 700, false, "Match-Timeout=700ms"},
              {"one two one two", 1000, false, "Match-Timeout=0ms"},
              {"one two one two", 1000, false, "Grammar-Timeouts=no"},
              {"one two", 1000, false, "Grammar-Timeouts=no"}};
  engine.grammartimeouts = 1;
  engine.matchtimeout = 200;
  engine.completetimeout = 1000;
  engine.incompletetimeout = 3000;
  for (const bool quantum : {false, true}) {
    for (const auto &row : rows) {
      SCOPED_TRACE(row.said);
      plugin.loops = 0;
      create_and_start();
      load_grammar("pin", "public <pin> = <d> <d> <d> <d> {pin}; <d> = one | two;");
      load_grammar("long", "public <pin> = two two two two [please] {long};");
      load_grammar("off", "public <pin> = one two one two one {off};");
      quillbrook_recog_deactivate_grammar(&speech, "off");
      context()->quantum = quantum;
      const int64_t origin = stand_in::clock_ms();
      send("one", QUILLBROOK_SCORE_INTERIM);
      stand_in::set_clock_ms(origin + 500);
      if (row.settings[0]) {
        quillbrook_recog_load_grammar(&speech, "x", (std::string("property:") + row.settings).c_str());
      }
      send(row.said, row.is_final ? 80 : QUILLBROOK_SCORE_INTERIM);
      stand_in::set_clock_ms(origin + 500 + row.limit);
      tick();
      EXPECT_EQ(queued(), 0U);
      EXPECT_EQ(context()->finalize, 0);
      stand_in::set_clock_ms(origin + 500 + row.limit + 1);
      tick();
      EXPECT_EQ(context()->finalize, quantum);
      EXPECT_EQ(context()->incompletetimeout, quantum ? row.limit + 1000 : 3000);
      EXPECT_EQ(context()->completetimeout, 1000);
      EXPECT_EQ(queued(), quantum ? 0U : 1U);
      destroy();
    }
  }
}

TEST_F(EndpointingTest, AnInterimThatIsNeverConfirmed) {
  hear_first_text(1000, 3000);
  at(500, "more words");
  for (int ms = 600; ms <= 1500; ms += 100) EXPECT_EQ(at(ms), 0);
  EXPECT_EQ(queued(), 0U);
  EXPECT_EQ(at(1600), 0);
  EXPECT_EQ(queued(), 1U);
  EXPECT_EQ(at(1700), -1);
  EXPECT_EQ(get(), "more words");
  EXPECT_EQ(score, 50);
}

TEST_F(EndpointingTest, APluginThatIsAskedToFinalizeAndCloses) {
  engine.waitclose = 1;
  for (const bool closes : {true, false}) {
    hear_first_text(1000, 3000, true);
    for (int ms = 100; ms <= 1000; ms += 100) at(ms);
    EXPECT_EQ(context()->finalize, 0);
    at(1100);
    EXPECT_EQ(context()->finalize, 1);
    EXPECT_EQ(context()->incompletetimeout, 2000);
    EXPECT_TRUE(ast_tvzero(transcript().dateclose));
    at(1200);
    EXPECT_FALSE(ast_tvzero(transcript().dateclose));
    at(1500, "all the words", 90);
    EXPECT_EQ(transcript().text_interim, nullptr);
    if (closes) {
      EXPECT_EQ(at(1700, nullptr, QUILLBROOK_SCORE_END), 0);
    } else {
      // Held up to 3,100; from then on the silence since 1,500 counts.
      for (int ms = 1600; ms <= 3500; ms += 100) at(ms);
      EXPECT_EQ(queued(), 0U);
      at(3600);
    }
    EXPECT_EQ(queued(), 1U);
    EXPECT_EQ(get(), "all the words");
    EXPECT_EQ(score, 90);
    destroy();
  }
}

}  // namespace
