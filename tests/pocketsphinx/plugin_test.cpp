/*
 * The plugin as a call sees it, on recorded speech.
 */
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include "call.h"

namespace {

using namespace std::chrono_literals;

constexpr auto patience = 60s; /* for sanitizers on a busy machine */
const std::string sounds = "/usr/share/asterisk/sounds/en/";
const std::string digit_names = "zero,one,two,three,four,five,six,seven,eight,nine";

class PluginTest : public testing::Test {
protected:
  Samples digit(int which) { return read_wav(sounds + "digits/" + std::to_string(which) + ".wav"); }

  /* Tests have no caller whose patience counts: the audio comes at once. */
  void say(Call &call, const std::vector<Samples> &words, int pause_ms = 800) {
    call.append(in_a_row(words, pause_ms));
  }

  std::string failure_of(Call &call) {
    call.start();
    auto end = std::chrono::steady_clock::now() + patience;
    while (!call.has_returned() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(5ms);
    EXPECT_TRUE(call.has_returned());
    call.stop();
    return call.record().extra;
  }

  bool has_finish(const Call &call) {
    std::vector<Message> all = call.messages();
    return std::any_of(all.begin(), all.end(),
                       [](const Message &each) { return each.score == QUILLBROOK_SCORE_FINISH; });
  }

  Plugin plugin_{PLUGIN_FILE};
};

TEST_F(PluginTest, RecognisesOneUtteranceAfterTheOther) {
  Call call(plugin_);
  call.set(call.record().phrases, "Zero,one,two,THREE,four,five,six,seven,eight,nine,blorptastic");
  call.start();
  say(call, {digit(1), digit(3), digit(9)});
  ASSERT_TRUE(call.wait_for_results(3, patience));
  std::vector<Message> results = call.results();
  EXPECT_EQ(results[0].text, "one");
  EXPECT_EQ(results[1].text, "THREE") << "the spelling of the hint";
  EXPECT_EQ(results[2].text, "nine");
  for (const Message &each : results) {
    EXPECT_GE(each.score, 30);
    EXPECT_LE(each.score, 100);
  }
  EXPECT_EQ(call.with_text().front().score, QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(call.record().quantum, 1);
  call.stop();
  EXPECT_EQ(call.messages().back().score, QUILLBROOK_SCORE_END);
  EXPECT_STREQ(call.record().extra, "");
  EXPECT_EQ(call.record().hangup, QUILLBROOK_HANGUP_STOPPED);
}

TEST_F(PluginTest, SaysThatItUnderstoodNothing) {
  Call call(plugin_);
  call.set(call.record().phrases, "yes,no");
  call.start();
  say(call, {read_wav(sounds + "digits/mon-8.wav")});
  ASSERT_TRUE(call.wait_for_results(1, patience));
  EXPECT_EQ(call.results()[0].text, "?");
  EXPECT_EQ(call.results()[0].score, QUILLBROOK_SCORE_NO_CONFIDENCE);
}

TEST_F(PluginTest, HearsSpeechThatBeginsWithTheStream) {
  Call call(plugin_);
  call.set(call.record().phrases, "monday,tuesday,wednesday,thursday,friday");
  Samples word = read_wav(sounds + "digits/day-3.wav");
  auto begin = std::find_if(word.begin(), word.end(), [](int16_t sample) { return sample > 1500; });
  call.append(Samples(begin, word.end()));
  call.append(quiet(1000));
  call.start();
  ASSERT_TRUE(call.wait_for_results(1, patience));
  EXPECT_EQ(call.results()[0].text, "wednesday");
}

TEST_F(PluginTest, FollowsAStreamThatGrowsByOddBytes) {
  Call call(plugin_, "ulaw");
  call.set(call.record().phrases, digit_names);
  call.start();
  Samples speech = in_a_row({digit(1)}, 800);
  std::string bytes;
  for (int16_t sample : speech) { /* to mu-law, by the definition of G.711 */
    int magnitude = std::min(std::abs(static_cast<int>(sample)), 32635) + 0x84;
    int exponent = 7;
    while (exponent > 0 && (magnitude & (0x80 << exponent)) == 0) --exponent;
    int code = (sample < 0 ? 0x80 : 0) | exponent << 4 | (magnitude >> (exponent + 3) & 0x0F);
    bytes += static_cast<char>(~code);
  }
  for (size_t begin = 0; begin < bytes.size(); begin += 77)
    call.append_bytes(&bytes[begin], std::min<size_t>(77, bytes.size() - begin));
  ASSERT_TRUE(call.wait_for_results(1, patience));
  EXPECT_EQ(call.results()[0].text, "one");
}

TEST_F(PluginTest, TicksAndStopsAlsoWhileTheLanguageModelIsLoading) {
  Call call(plugin_);
  call.start();
  while (call.messages().size() < 3) std::this_thread::sleep_for(1ms);
  auto before = std::chrono::steady_clock::now();
  call.stop();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 500ms) << "loading takes longer";
  for (const Message &each : call.messages()) EXPECT_EQ(each.text, "");
}

TEST_F(PluginTest, UsesTheLanguageModelWithoutHints) {
  Call call(plugin_);
  call.set(call.record().configuration, "threshold=0");
  call.start();
  say(call, {read_wav(sounds + "vm-goodbye.wav")});
  ASSERT_TRUE(call.wait_for_results(1, patience));
  EXPECT_NE(call.results()[0].text, "?");
}

TEST_F(PluginTest, WindsUpWhenAskedTo) {
  Call call(plugin_);
  call.set(call.record().phrases, digit_names);
  call.set(call.record().configuration, "silence=10000");
  call.start();
  say(call, {digit(1)}, 500);
  auto end = std::chrono::steady_clock::now() + patience;
  while (call.with_text().empty() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(5ms);
  std::this_thread::sleep_for(300ms);
  EXPECT_TRUE(call.results().empty()) << "it is still waiting for silence";
  __atomic_store_n(&call.record().finalize, 1, __ATOMIC_RELEASE);
  ASSERT_TRUE(call.wait_for_results(1, patience));
  EXPECT_EQ(call.results()[0].text, "one");
  while (!has_finish(call) && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(5ms);
  EXPECT_TRUE(has_finish(call));
  EXPECT_FALSE(call.has_returned());
}

TEST_F(PluginTest, LeavesEndpointingToTheModule) {
  Call call(plugin_);
  call.set(call.record().phrases, digit_names);
  call.set(call.record().configuration, "endpointing=no");
  call.record().completetimeout = 800;
  call.record().incompletetimeout = 5000;
  call.start();
  call.play(in_a_row({digit(1), digit(3)}, 200));
  call.play(quiet(1600)); /* the module delivers in here, when 800 ms have brought no new text */
  call.play(in_a_row({digit(9)}, 200));
  call.play(quiet(600));
  EXPECT_TRUE(call.results().empty());
  EXPECT_FALSE(has_finish(call));
  EXPECT_EQ(call.record().quantum, 0);
  std::vector<std::string> texts;
  for (const Message &each : call.with_text()) texts.push_back(each.text);
  ASSERT_FALSE(texts.empty());
  EXPECT_NE(std::find(texts.begin(), texts.end(), "one three"), texts.end());
  EXPECT_EQ(texts.back(), "nine") << "what was delivered does not come back, and no mark stays behind";
  EXPECT_EQ(std::adjacent_find(texts.begin(), texts.end()), texts.end()) << "each text is new to the module";
}

TEST_F(PluginTest, ServesSeveralCallsAtATime) {
  std::vector<std::unique_ptr<Call>> calls;
  for (int i = 0; i < 6; ++i) {
    calls.push_back(std::make_unique<Call>(plugin_));
    calls.back()->set(calls.back()->record().phrases, i % 2 == 0 ? digit_names : "monday,tuesday,sunday");
    calls.back()->start();
    say(*calls.back(), {i % 2 == 0 ? digit(7) : read_wav(sounds + "digits/day-0.wav")});
  }
  for (int i = 0; i < 6; ++i) {
    ASSERT_TRUE(calls[i]->wait_for_results(1, patience));
    EXPECT_EQ(calls[i]->results()[0].text, i % 2 == 0 ? "seven" : "sunday");
  }
}

TEST_F(PluginTest, ReportsWhatKeepsItFromWorking) {
  Call missing(plugin_);
  missing.set(missing.record().configuration, "model=/nonexistent/model");
  std::string reason = failure_of(missing);
  EXPECT_EQ(reason.compare(0, 6, "ERROR:"), 0) << reason;
  EXPECT_NE(reason.find("pocketsphinx-en-us"), std::string::npos) << reason;

  Call format(plugin_, "gsm");
  EXPECT_EQ(failure_of(format).compare(0, 6, "ERROR:"), 0);

  Call gone(plugin_);
  unlink(gone.path().c_str());
  EXPECT_NE(failure_of(gone).find(gone.path()), std::string::npos);
}

/* The library would end the process over these files. */
TEST_F(PluginTest, SurvivesADamagedModel) {
  char folder[] = "/tmp/pocketsphinx-model.XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  std::string model = folder;
  std::string name = model.substr(model.rfind('/') + 1);
  std::vector<std::string> files{
      "/mdef", "/means", "/variances", "/transition_matrices", "/feat.params", "/cmudict-" + name + ".dict"};
  for (const std::string &file : files) std::ofstream(model + file) << "s3\nversion 0.3\nx";
  Call call(plugin_);
  call.set(call.record().phrases, "yes");
  call.set(call.record().model, model);
  EXPECT_EQ(failure_of(call).compare(0, 6, "ERROR:"), 0) << call.record().extra;
  for (const std::string &file : files) unlink((model + file).c_str());
  rmdir(folder);
}

TEST_F(PluginTest, TakesTextsOfAnyKind) {
  Call call(plugin_);
  memset(call.record().phrases, 'a', QUILLBROOK_TEXT_SIZE); /* no end, no word */
  memset(call.record().configuration, 0xFF, QUILLBROOK_TEXT_SIZE);
  memset(call.record().model, 'm', QUILLBROOK_TEXT_SIZE);
  memset(call.record().param, '%', QUILLBROOK_TEXT_SIZE);
  call.record().uniqueid = nullptr;
  call.start();
  say(call, {digit(1)});
  std::this_thread::sleep_for(200ms);
  call.stop();
  EXPECT_TRUE(call.results().empty()) << "no hint could be understood";
  EXPECT_STREQ(call.record().extra, "");
}

TEST_F(PluginTest, CanBeStoppedAtAnyTime) {
  Call never_run(plugin_);
  plugin_.stop(&never_run.record());
  plugin_.stop(&never_run.record());
  EXPECT_EQ(never_run.record().hangup, QUILLBROOK_HANGUP_STOPPED);
  EXPECT_EQ(never_run.record().finalize, 1);

  for (int moment = 0; moment < 12; ++moment) {
    Call call(plugin_);
    call.set(call.record().phrases, digit_names);
    say(call, {digit(moment % 10), digit(5)});
    call.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(moment * 15));
    call.stop();
    EXPECT_STREQ(call.record().extra, "");
  }
}

TEST(PluginFile, IsGoneAfterUnloading) {
  {
    Plugin plugin(PLUGIN_FILE);
    Call call(plugin);
    call.set(call.record().phrases, "yes");
    call.start();
    while (call.messages().empty()) std::this_thread::sleep_for(1ms);
  }
  EXPECT_EQ(dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
