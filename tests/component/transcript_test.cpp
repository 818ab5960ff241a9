// Interims and finals on their way into one text and one score.
#include "session_fixture.h"

namespace {

struct Said {
  const char *text;
  int score;
};
struct Script {
  const char *name;
  std::vector<Said> said;
  std::string text, sentences;  // with endpointing off and on; "error" when nothing is delivered
  int score;
};
void PrintTo(const Script &script, std::ostream *out) {
  *out << script.name;
}

class TranscriptTest : public SessionTest {
protected:
  TranscriptTest() {
    engine.completetimeout = 1000;
    engine.incompletetimeout = 3000;
  }
};
class ScriptTest : public TranscriptTest, public testing::WithParamInterface<Script> {};

TEST_P(ScriptTest, GivesOneTextAndOneScore) {
  const Script &script = GetParam();
  for (const bool sentences : {false, true}) {
    engine.endpointing = sentences;
    plugin.loops = 0;
    create_and_start();
    for (const Said &said : script.said) EXPECT_EQ(send(said.text, said.score), 0);
    EXPECT_EQ(get(), sentences ? script.sentences : script.text);
    EXPECT_EQ(score, script.score);
    destroy();
  }
}

const Script scripts[] = {
    {"nothing", {{nullptr, -1}}, "error", "error", 0},
    {"interim only", {{"a", -1}, {"a b", -1}}, "a b", "a b.", 50},
    {"an interim returns", {{"a", -1}, {"b", -1}, {"a", -1}}, "a", "a.", 50},
    {"one final", {{"a", 90}}, "a", "a.", 90},
    {"average rounds down", {{"a", 90}, {"b", 85}}, "a b", "a.\nb.", 87},
    {"a final replaces the interim", {{"wrong", -1}, {"a", 70}}, "a", "a.", 70},
    {"an interim behind a final", {{"a", 70}, {"b", -1}}, "a b", "a.\nb.", 70},
    {"a tick keeps the interim", {{"a", -1}, {nullptr, -1}, {"", 80}}, "a", "a.", 50},
    {"no match", {{"?", 0}}, "?", "?.", 0},
    {"no match behind a final", {{"a", 70}, {"-", 0}}, "-", "-.", 70},
    {"words without confidence", {{"ab", 0}}, "error", "error", 0},
    {"confidences beyond counting", {{"a", INT_MAX}, {"b", INT_MAX}}, "a b", "a.\nb.", INT_MAX / 2},
};
INSTANTIATE_TEST_SUITE_P(Each, ScriptTest, testing::ValuesIn(scripts));

TEST_F(TranscriptTest, EqualTimeoutsMakeEachFinalAResult) {
  engine.continuous = 1;
  for (const int timeout : {0, 1500}) {
    engine.completetimeout = engine.incompletetimeout = timeout;
    engine.timeouts = 0;  // not under this switch
    plugin.loops = 0;
    create_and_start();
    send("one", 80);
    send("two", 80);
    EXPECT_EQ(get(), "one");
    EXPECT_EQ(get(), "two");
    destroy();
  }
}

TEST_F(TranscriptTest, AHungUpCallMakesEachFinalAResultEvenWhileHeld) {
  engine.waitclose = 1;
  create_and_start();
  context()->finalize = 1;
  send("one", 80);
  EXPECT_EQ(queued(), 0U);
  context()->hangup = 1;
  send("two", 80);
  EXPECT_EQ(get(), "one two");
}

TEST_F(TranscriptTest, ExtrasBelongToTheLastMessageThatHadThem) {
  create_and_start();
  std::string json = "{\"n\":1}", meaning = "first";
  context()->extra_pointer = json.c_str();
  context()->api_pointer = meaning.c_str();
  send("one", QUILLBROOK_SCORE_INTERIM);
  json = "{\"n\":2}";
  meaning = "second";
  tick();
  EXPECT_STREQ(session()->json, "{\"n\":1}");
  send("one", QUILLBROOK_SCORE_INTERIM);
  EXPECT_STREQ(session()->json, "{\"n\":2}");
  EXPECT_STREQ(session()->interpretation, "second");
  context()->extra_pointer = context()->api_pointer = nullptr;
  send("two", QUILLBROOK_SCORE_INTERIM);
  EXPECT_STREQ(session()->json, "{\"n\":2}");
  EXPECT_STREQ(session()->interpretation, "second");
}

// The message is lost then, and nothing of what came before.
TEST_F(TranscriptTest, EveryAllocationMayFail) {
  engine.endpointing = 1;
  for (int nth = 1;; ++nth) {
    plugin.loops = 0;
    create_and_start();
    send("one", 80);
    send("two", QUILLBROOK_SCORE_INTERIM);
    stand_in::fail(stand_in::Fault::Allocation, nth);
    send("three", 80);
    const int failed_early = stand_in::stop_failing();
    EXPECT_STREQ(session()->text, failed_early ? "one" : "one.\nthree");
    EXPECT_EQ(session()->text_interim == nullptr, !failed_early);
    stand_in::fail(stand_in::Fault::Allocation, nth);
    finish();
    const int failed_late = stand_in::stop_failing();
    const std::string text = get();
    EXPECT_TRUE(text == "error" || text.rfind("one", 0) == 0) << text;
    destroy();
    if (!failed_early && !failed_late) break;
  }
}

}  // namespace
