// The dummy plugin's scripts, played to a recording callback on a clock that the test moves.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "player.h"
#include "quillbrook.h"
#include "script.h"

namespace {

using quillbrook::dummy::parse;
using quillbrook::dummy::Script;
using quillbrook::dummy::Separator;

// Sleeping moves the clock. At stop_at the record is stopped, as the module does it from another thread.
class TestClock final : public quillbrook::dummy::Clock {
public:
  explicit TestClock(quillbrook_context &context, long stop_at) : context_(context), stop_at_(stop_at) {}
  long now() override { return now_; }
  void sleep(long milliseconds) override {
    now_ += milliseconds;
    if (on_sleep) on_sleep(now_);
    if (now_ >= stop_at_) context_.hangup = QUILLBROOK_HANGUP_STOPPED;
  }
  std::function<void(long)> on_sleep;

private:
  quillbrook_context &context_;
  long stop_at_;
  long now_ = 0;
};

struct Message {
  std::string text;  // "-" for NULL
  int score;
  std::string json = {};
  bool operator==(const Message &other) const { return text == other.text && score == other.score; }
};

void PrintTo(const Message &message, std::ostream *out) {
  *out << message.score << " [" << message.text << "]";
}

std::vector<Message> received;

int receive(quillbrook_context *context, const char *text, int score) {
  const auto *json = static_cast<const char *>(context->extra_pointer);
  received.push_back({text != nullptr ? text : "-", score, json != nullptr ? json : ""});
  return 0;
}

class DummyTest : public testing::Test {
protected:
  DummyTest() {
    received.clear();
    context_->callback = receive;
    context_->filename = filename_.data();
  }

  // Plays the text, stops the record at stop_at, and gives the messages, ticks left out.
  std::vector<Message> play(const std::string &text, long stop_at = 1000) {
    const Script script = parse(text, Separator::kLineEnd);
    TestClock clock(*context_, stop_at);
    clock.on_sleep = on_sleep_;
    quillbrook::dummy::Player(*context_, script, clock).play();
    std::vector<Message> messages;
    for (const Message &message : received) {
      if (message.text != "-" || message.score != QUILLBROOK_SCORE_INTERIM) messages.push_back(message);
    }
    return messages;
  }

  std::unique_ptr<quillbrook_context> context_ = std::make_unique<quillbrook_context>();
  std::string filename_ = testing::TempDir() + "quillbrook_dummy_test.wav";
  std::function<void(long)> on_sleep_;
};

TEST_F(DummyTest, EveryMessageClassReachesTheCallback) {
  const std::vector<Message> expected{{"good", -1}, {"good morning", 87}, {"", -2},      {"", -200},    {"?", 0},
                                      {"x", 0},     {"bad", -3},          {"-", 200000}, {"a\nb \\", 5}};
  EXPECT_EQ(play("interim good\n  final 87 good morning  \r\nfinish\nend\nnomatch\nnomatch x\n# remark\n\n"
                 "raw -3 bad\nraw 200000\nraw 5 a\\nb \\e\\\\"),
            expected);
  received.clear();
  context_->hangup = 0;
  const auto with_json = play("json {\"a\":\"\\u00e9\"}\nfinal 9 one\njson\nfinal 9 two");
  ASSERT_EQ(with_json.size(), 2U);
  EXPECT_EQ(with_json[0].json, "{\"a\":\"\\u00e9\"}");
  EXPECT_EQ(with_json[1].json, "");
}

TEST_F(DummyTest, RepeatsNestAndZeroSkips) {
  const std::vector<Message> expected{{"a", -1}, {"b", -1}, {"b", -1}, {"a", -1}, {"b", -1}, {"b", -1}, {"c", -1}};
  EXPECT_EQ(play("repeat 2\ninterim a\nrepeat 2\ninterim b\ndone\nrepeat 0\ninterim never\nrepeat 3\ndone\ndone\n"
                 "done\ninterim c"),
            expected);
}

TEST_F(DummyTest, StopEndsEveryStep) {
  for (const char *step : {"sleep 60000", "until-stop", "bytes 99999", "wait-finalize 60000", "tick 1000000 1000",
                           "repeat 1000000\nsleep 10\ndone", "return", ""}) {
    context_->hangup = 0;
    received.clear();
    play(step, 300);
    EXPECT_LE(received.size(), 8U) << step;
  }
}

TEST_F(DummyTest, HangupStepNeverOverwritesTheStop) {
  context_->hangup = 0;
  play("hangup 1\nreturn");
  EXPECT_EQ(context_->hangup, 1);
  on_sleep_ = [this](long) { context_->hangup = QUILLBROOK_HANGUP_STOPPED; };
  play("sleep 10\nhangup 1");
  EXPECT_EQ(context_->hangup, QUILLBROOK_HANGUP_STOPPED);
}

TEST_F(DummyTest, MistakesAreNamedWithTheirLine) {
  const std::pair<const char *, const char *> mistakes[] = {
      {"interim a\nfinnal 3 b", "line 2: no such step: finnal"},
      {"final 0 a", "line 1: final: a number from 1"},
      {"final 5", "line 1: final: text missing"},
      {"sleep", "line 1: sleep: a number from 0"},
      {"sleep 99999999999999999999", "line 1: sleep: a number"},
      {"finish now", "line 1: finish: unexpected text"},
      {"repeat 2\ninterim a", "line 2: repeat without done"},
      {"interim a\ndone", "line 2: done without repeat"},
      {"hangup 2", "line 1: hangup 2 is left"},
      {"interim a\nscript=/x", "line 2: script="},
      {"tick 1 2 3", "line 1: tick: unexpected text"},
  };
  for (const auto &[text, error] : mistakes) {
    received.clear();
    context_->extra[0] = '\0';
    play(text);
    EXPECT_EQ(std::string(context_->extra).find(std::string("ERROR: ") + error), 0U) << context_->extra;
    EXPECT_TRUE(received.empty()) << text;
  }
}

TEST_F(DummyTest, HostileScriptsAreBounded) {
  const auto repeated = [](const char *line, std::size_t times) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i) text += line;
    return parse(text, Separator::kLineEnd).error;
  };
  EXPECT_NE(repeated("x", quillbrook::dummy::kMaxScriptBytes + 1).find("longer than"), std::string::npos);
  EXPECT_NE(repeated("repeat 1000000\n", quillbrook::dummy::kMaxNesting + 1).find("nested"), std::string::npos);
  EXPECT_NE(repeated("tick\n", quillbrook::dummy::kMaxSteps + 1).find("steps"), std::string::npos);
  play("extra " + std::string(5000, 'e') + "\nreturn");
  EXPECT_EQ(std::strlen(context_->extra), sizeof(context_->extra) - 1);
}

TEST_F(DummyTest, TheCallsOwnTextWins) {
  std::strcpy(context_->configuration, "interim a; final 3 b");
  EXPECT_EQ(quillbrook::dummy::load(*context_).steps.size(), 2U);
  char own[] = "interim a; b\n";
  context_->config_pointer = own;
  ASSERT_EQ(quillbrook::dummy::load(*context_).steps.size(), 1U);
  EXPECT_EQ(quillbrook::dummy::load(*context_).steps[0].text, "a; b");
  char missing[] = "script=/nonexistent/quillbrook";
  context_->config_pointer = missing;
  EXPECT_EQ(quillbrook::dummy::load(*context_).error, "script /nonexistent/quillbrook: No such file or directory");
}

}  // namespace
