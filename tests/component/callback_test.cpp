// What becomes of the plugin's messages: what their class and the gates say, and the one text and one score that
// interims and finals make.
#include "session_fixture.h"

namespace {

class CallbackTest : public SessionTest {
protected:
  CallbackTest() {
    engine.completetimeout = 1000;
    engine.incompletetimeout = 3000;
  }
  static quillbrook_statistics stats() { return quillbrook_statistics_read().stats; }
};

TEST_F(CallbackTest, NoContextAndNoSessionAreRefused) {
  EXPECT_EQ(quillbrook_callback(nullptr, "x", 80), -1);
  create_and_start();
  int late = 0;
  plugin.on_end = [&](quillbrook_context *context) { late = quillbrook_callback(context, "x", 80); };
  destroy();
  EXPECT_EQ(late, -1);
  EXPECT_TRUE(stand_in::log_lines().empty());
}

TEST_F(CallbackTest, ABadScoreIsRefusedWithALineASecond) {
  create_and_start();
  context()->extra_pointer = "{\"a\":1}";
  for (const int bad : {-3, -199, -201, INT_MIN}) {
    stand_in::advance_ms(1000);
    EXPECT_EQ(send("word", bad), -1);
    EXPECT_EQ(stand_in::logged(__LOG_ERROR, labelled("CALLBACK: text [word] score=") + std::to_string(bad) +
                                                " len=4 context={\"a\":1}\n"),
              1);
  }
  for (int more = 0; more < 5; ++more) EXPECT_EQ(send(nullptr, -3), -1);
  EXPECT_EQ(stand_in::mentioned("CALLBACK: text [(null)]"), 0);
  stand_in::advance_ms(1000);
  EXPECT_EQ(send(nullptr, -3), -1);
  EXPECT_EQ(stand_in::mentioned("CALLBACK: text [(null)] score=-3 len=0 context={\"a\":1} (and 5 more"), 1);
  send(nullptr, -3);
  const std::string rest = labelled("CALLBACK: 1 more messages with a bad score\n");
  EXPECT_TRUE(ast_tvzero(transcript().datelast));
  EXPECT_EQ(stats().messages_total, 0U);
  destroy();
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, rest), 1);
}

struct Script {
  std::vector<std::pair<const char *, int>> messages;
  std::string text, sentences;  // with endpointing off and on; "error" when nothing is delivered
  int score;
  unsigned finals, interims;  // as counted
  bool ends = false;          // the last message delivers
};

// clang-format off
const Script kScripts[] = {
    {{{nullptr, -1}, {"", 0}, {"", 80}}, "error", "error", 0, 0, 0},
    {{{"a", -1}, {"b", -1}, {"a", -1}, {"a", -1}}, "a", "a.", 50, 0, 4},
    {{{"a", 90}, {"b", 85}}, "a b", "a.\nb.", 87, 2, 0},  // rounded down
    {{{"a", 70}, {"b", -1}}, "a b", "a.\nb.", 70, 1, 1},
    {{{"a", -1}, {nullptr, -1}, {"", 80}}, "a", "a.", 50, 0, 1},
    {{{"a", -1}, {"lost", -2}}, "a", "a.", 50, 0, 2, true},
    {{{"", -2}, {"lost", -2}}, "error", "error", 0, 0, 1},
    {{{"?", 0}}, "?", "?.", 0, 0, 1, true},
    {{{"a", 70}, {"-", 0}}, "-", "-.", 70, 1, 1, true},
    {{{" ", 0}, {"ab", 0}, {"\xC3\xA9", 0}}, "error", "error", 0, 0, 3},
    {{{"a", INT_MAX}, {"b", INT_MAX}}, "a b", "a.\nb.", INT_MAX / 2, 2, 0},
};
// clang-format on

TEST_F(CallbackTest, MessagesMakeOneTextAndOneScore) {
  for (const Script &script : kScripts) {
    for (const bool sentences : {false, true}) {
      SCOPED_TRACE(script.text + " from " + shown(script.messages.back().first));
      engine.endpointing = sentences;
      plugin.loops = 0;
      create_and_start();
      const quillbrook_statistics before = stats();
      for (const auto &[text, score] : script.messages) EXPECT_EQ(send(text, score), 0);
      EXPECT_EQ(stats().messages_final - before.messages_final, script.finals);
      EXPECT_EQ(stats().messages_interim - before.messages_interim, script.interims);
      EXPECT_EQ(queued(), script.ends ? 1U : 0U);
      EXPECT_EQ(state(), script.ends ? kDone : kReady);
      EXPECT_EQ(get(), sentences ? script.sentences : script.text);
      EXPECT_EQ(score, script.score);
      destroy();
    }
  }
}

TEST_F(CallbackTest, WhatComesBehindAResultIsRefused) {
  debug = 1;
  create_and_start();
  send("first", 80);
  finish();
  stand_in::advance_ms(5000);
  const unsigned counted = stats().messages_total;
  const timeval date = transcript().datelast;
  for (const int score : {80, 0, QUILLBROOK_SCORE_INTERIM, QUILLBROOK_SCORE_FINISH}) {
    EXPECT_EQ(send("late", score), -1);
    EXPECT_EQ(send(nullptr, score), -1);
  }
  EXPECT_EQ(stats().messages_total, counted);
  EXPECT_EQ(ast_tvdiff_ms(transcript().datelast, date), 0);
  EXPECT_EQ(stand_in::logged(__LOG_WARNING, labelled("CALLBACK: Too late, we have already a result! (1)\n")), 4);
  EXPECT_EQ(get(), "first");
  EXPECT_EQ(score, 80);
}

TEST_F(CallbackTest, TheEndOfTheProvidersSession) {
  create_and_start();
  send("one", 80);
  const timeval date = transcript().datelast;
  stand_in::advance_ms(100);
  EXPECT_EQ(send("ignored", QUILLBROOK_SCORE_END), 0);
  EXPECT_EQ(recognition()->plugin_closed, 0) << "nobody waits for it";
  EXPECT_EQ(ast_tvdiff_ms(transcript().datelast, date), 0);
  EXPECT_EQ(stats().messages_total, 1U);

  engine.waitclose = 1;
  EXPECT_EQ(send(nullptr, QUILLBROOK_SCORE_END), 0);
  EXPECT_EQ(recognition()->plugin_closed, 1);
  EXPECT_EQ(queued(), 1U);

  recognition()->plugin_closed = 0;
  EXPECT_EQ(send(nullptr, QUILLBROOK_SCORE_END), -1) << "a result is out";
  EXPECT_EQ(recognition()->plugin_closed, 1);
}

TEST_F(CallbackTest, TheFirstTextRaisesTheHostsFlagsOnce) {
  create_and_start();
  tick();
  EXPECT_EQ(speech.flags, 0U);
  send("heard", QUILLBROOK_SCORE_NO_CONFIDENCE);
  EXPECT_EQ(speech.flags, static_cast<unsigned>(AST_SPEECH_QUIET | AST_SPEECH_SPOKE));
  speech.flags = 0;
  send("heard more", QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(speech.flags, 0U);
}

TEST_F(CallbackTest, ExtrasBelongToTheLastMessageThatHadThem) {
  create_and_start();
  std::string json = "{\"n\":1}", meaning = "first";
  context()->extra_pointer = json.c_str();
  context()->api_pointer = meaning.c_str();
  send("one", QUILLBROOK_SCORE_INTERIM);
  json = "{\"n\":2}";
  meaning = "second";
  tick();
  EXPECT_STREQ(transcript().json, "{\"n\":1}");
  send("one", QUILLBROOK_SCORE_INTERIM);
  context()->extra_pointer = context()->api_pointer = nullptr;
  send("two", QUILLBROOK_SCORE_INTERIM);
  EXPECT_STREQ(transcript().json, "{\"n\":2}");
  EXPECT_STREQ(transcript().interpretation, "second");
}

// By which a dialplan is debugged.
TEST_F(CallbackTest, ACallTellsItsStepsUnderDebug) {
  create_and_start();
  send("one", 80);
  send("so far", QUILLBROOK_SCORE_INTERIM);
  stand_in::advance_ms(250);
  context()->hangup = 1;
  debug = verbose = 1;
  ast_verb_sys_level = 2;
  send("two", 60);
  ast_verb_sys_level = debug = verbose = 0;
  std::string steps;
  for (const stand_in::Line &line : stand_in::verbose_lines()) steps += line.text;
  EXPECT_EQ(steps.substr(steps.find("CALLBACK: last_result")), R"(CALLBACK: last_result = 0
CALLBACK: session duration [250]
CALLBACK: speech duration [250]
CALLBACK: DSP / VAD silence [0]
CALLBACK: New text, no silence!
CALLBACK: Silence started 0ms before...
CALLBACK: completetimeout delay silence [stt=0,dsp=0] > 1000
CALLBACK: incompletetimeout delay silence [0] < 3000
CALLBACK: Forgive last interim =so far
CALLBACK: Last text =one
CALLBACK: New text =one two
CALLBACK: text [one two] score=70
CALLBACK: complete=hangup
Set score = -2 !
CALLBACK: finalize result
CALLBACK: text [one two] score=70 len=7
CALLBACK: realloc[7+2]
CALLBACK: FINAL RESULT text [one two] score = 70 (completetimeout)
)");
}

// The message is lost then, and nothing of what came before.
TEST_F(CallbackTest, ATranscriptHasALimit) {
  constexpr size_t kLimit = 1 << 20;
  const std::string piece = "caf\xC3\xA9 " + std::string(1000, 'x');
  create_and_start();
  const std::string line = labelled("The transcript has more than 1048576 bytes: what is beyond is dropped\n");
  std::string whole;
  while (whole.size() <= kLimit + 5000) {
    send(piece.c_str(), 80);
    whole += (whole.empty() ? "" : " ") + piece;
  }
  finish();
  EXPECT_EQ(get(), whole.substr(0, kLimit));
  start();
  send(std::string(kLimit - 1, 'y').c_str(), 80);
  send("z", 80);
  finish();
  EXPECT_EQ(get(), std::string(kLimit - 1, 'y')) << "not even the blank before the piece";
  start();
  send((std::string(kLimit - 1, 'y') + "\xC3\xA9").c_str(), QUILLBROOK_SCORE_INTERIM);
  finish();
  EXPECT_EQ(get(), std::string(kLimit - 1, 'y')) << "cut behind a whole character";
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, line), 3);
}

TEST_F(CallbackTest, ManySmallPiecesNeedFewAllocations) {
  create_and_start();
  stand_in::fail(stand_in::Fault::kAllocation, 20, INT_MAX);
  for (int piece = 0; piece < 20000; ++piece) send("word", 80);
  EXPECT_EQ(stand_in::stop_failing(), 0);
  EXPECT_EQ(transcript().text_length, 20000U * 5 - 1);
}

}  // namespace
