// What becomes of a message by its class, against the gates: a result that is out, the plugin's session end.
#include "session_fixture.h"

namespace {

class CallbackTest : public SessionTest {
protected:
  CallbackTest() {
    engine.completetimeout = 1000;
    engine.incompletetimeout = 3000;
  }
  quillbrook_statistics stats() { return quillbrook_statistics_read().stats; }
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

TEST_F(CallbackTest, ABadScoreIsRefusedWithALine) {
  create_and_start();
  context()->extra_pointer = "{\"a\":1}";
  for (const int bad : {-3, -199, -201, INT_MIN}) {
    EXPECT_EQ(send("word", bad), -1);
    EXPECT_EQ(stand_in::logged(__LOG_ERROR,
                               "CALLBACK: text [word] score=" + std::to_string(bad) + " len=4 context={\"a\":1}\n"),
              1);
  }
  EXPECT_EQ(send(nullptr, -3), -1);
  EXPECT_TRUE(ast_tvzero(session()->datelast));
  EXPECT_EQ(stats().messages_total, 0U);
}

struct Message {
  const char *name;
  const char *text;
  int score;
  const char *result;            // at the end
  bool ends = false;             // the message delivers it
  int finals = 0, interims = 0;  // as counted
};
void PrintTo(const Message &message, std::ostream *out) {
  *out << message.name;
}
class MessageTest : public CallbackTest, public testing::WithParamInterface<Message> {};

// The words "so far" are stored as an interim when the message comes.
TEST_P(MessageTest, DeliversWhatItsClassSays) {
  const Message &message = GetParam();
  create_and_start();
  send("so far", QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(send(message.text, message.score), 0);
  EXPECT_EQ(queued(), message.ends ? 1U : 0U);
  EXPECT_EQ(state(), message.ends ? DONE : READY);
  EXPECT_EQ(stats().messages_final, static_cast<unsigned>(message.finals));
  EXPECT_EQ(stats().messages_interim, static_cast<unsigned>(1 + message.interims));
  EXPECT_EQ(get(), message.result);
}

TEST_P(MessageTest, IsRefusedBehindAResultOfASingleShot) {
  const Message &message = GetParam();
  debug = 1;
  create_and_start();
  send("first", 80);
  finish();
  stand_in::advance_ms(5000);
  const quillbrook_statistics before = stats();
  const timeval date = session()->datelast;
  EXPECT_EQ(send(message.text, message.score), -1);
  EXPECT_EQ(stats().messages_total, before.messages_total);
  EXPECT_EQ(ast_tvdiff_ms(session()->datelast, date), 0);
  EXPECT_EQ(stand_in::logged(__LOG_WARNING, "CALLBACK: Too late, we have already a result! (1)\n"),
            message.text ? 1 : 0);
  EXPECT_EQ(get(), "first");
  EXPECT_EQ(score, 80);
}

const Message messages[] = {
    {"tick", nullptr, -1, "so far"},
    {"empty tick", "", 0, "so far"},
    {"tick with a score", "", 80, "so far"},
    {"interim", "more", -1, "more", false, 0, 1},
    {"repeated interim", "so far", -1, "so far", false, 0, 1},
    {"final", "more", 80, "more", false, 1, 0},
    {"finish", "", -2, "so far", true},
    {"finish with words", "lost", -2, "so far", true, 0, 1},
    {"no match", "?", 0, "? so far", true, 0, 1},
    {"blank", " ", 0, "so far", false, 0, 1},
    {"two bytes without confidence", "\xC3\xA9", 0, "so far", false, 0, 1},
};
INSTANTIATE_TEST_SUITE_P(Each, MessageTest, testing::ValuesIn(messages));

TEST_F(CallbackTest, AFinishWithNothingHeardDeliversNothing) {
  create_and_start();
  EXPECT_EQ(finish(), 0);
  EXPECT_EQ(send("not stored", QUILLBROOK_SCORE_FINISH), 0);
  EXPECT_EQ(queued(), 0U);
  EXPECT_EQ(state(), READY);
  EXPECT_FALSE(ast_tvzero(session()->datefirst)) << "yet they were heard";
  EXPECT_EQ(stats().messages_interim, 1U);
}

TEST_F(CallbackTest, TheEndOfTheProvidersSession) {
  create_and_start();
  send("one", 80);
  const timeval date = session()->datelast;
  stand_in::advance_ms(100);
  EXPECT_EQ(send("ignored", QUILLBROOK_SCORE_END), 0);
  EXPECT_EQ(session()->plugin_closed, 0) << "nobody waits for it";
  EXPECT_EQ(ast_tvdiff_ms(session()->datelast, date), 0);
  EXPECT_EQ(stats().messages_total, 1U);

  engine.waitclose = 1;
  EXPECT_EQ(send(nullptr, QUILLBROOK_SCORE_END), 0);
  EXPECT_EQ(session()->plugin_closed, 1);
  EXPECT_EQ(queued(), 1U);

  session()->plugin_closed = 0;
  EXPECT_EQ(send(nullptr, QUILLBROOK_SCORE_END), -1) << "a result is out";
  EXPECT_EQ(session()->plugin_closed, 1);
  EXPECT_EQ(get(), "one");

  start();
  EXPECT_EQ(send(nullptr, QUILLBROOK_SCORE_END), 0) << "with nothing heard";
  EXPECT_EQ(session()->plugin_closed, 1);
  EXPECT_EQ(queued(), 0U);
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

}  // namespace
