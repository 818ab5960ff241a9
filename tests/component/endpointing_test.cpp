// What the words mean to an active grammar chooses the limit. All else about the timers, endpointing_property_test.cpp
// tries at random.
#include "session_fixture.h"

namespace {

using EndpointingTest = SessionTest;

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

}  // namespace
