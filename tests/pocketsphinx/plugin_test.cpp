// The plugin as a call sees it, on recorded speech. Run as: pocketsphinx_test PLUGIN.so
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

#include "plugin_driver.h"
#include "recordings.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 60s;  // for sanitizers on a busy machine
const std::string kSounds = "/usr/share/asterisk/sounds/en/";
const std::string kDigitNames = "zero,one,two,three,four,five,six,seven,eight,nine";

Samples digit(int which) {
  return read_wav(kSounds + "digits/" + std::to_string(which) + ".wav");
}

// A recognition that goes on after a result.
struct Call : Recognition {
  explicit Call(const std::string &hints, const std::string &configuration = "", const std::string &format = "wav")
      : Recognition(format) {
    (void)snprintf(record.phrases, sizeof record.phrases, "%s", hints.c_str());
    (void)snprintf(record.configuration, sizeof record.configuration, "%s", configuration.c_str());
    continuous = true;
  }

  void hear(const Samples &samples) const {
    append({reinterpret_cast<const char *>(samples.data()), samples.size() * sizeof(int16_t)});
  }
  // Tests have no caller whose patience counts: the audio comes at once.
  void say(const std::vector<Samples> &words, int pause_ms = 800) const { hear(in_a_row(words, pause_ms)); }
  // 20 ms at a time, with 20 ms between two.
  void play(const Samples &samples) const {
    constexpr size_t kFrame = 160;
    auto due = std::chrono::steady_clock::now();
    for (size_t begin = 0; begin < samples.size(); begin += kFrame) {
      const auto *first = samples.data() + begin;
      hear({first, first + std::min(kFrame, samples.size() - begin)});
      std::this_thread::sleep_until(due += 20ms);
    }
  }

  // Those with a score, in this range; waits until there are so many of them or the loop has returned.
  std::vector<Report> scored(size_t count, int lowest = 0, int highest = 100) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (true) {
      std::vector<Report> found = reports();
      found.erase(std::remove_if(found.begin(), found.end(),
                                 [=](const Report &each) { return each.score < lowest || each.score > highest; }),
                  found.end());
      if (found.size() >= count || std::chrono::steady_clock::now() > end) return found;
      std::this_thread::sleep_for(5ms);
    }
  }
  // The only result. A text that says what went wrong when there is none.
  Report result() {
    const std::vector<Report> found = scored(1);
    return found.empty() ? Report{"nothing", 0} : found.front();
  }
};

TEST(Pocketsphinx, RecognisesOneUtteranceAfterTheOther) {
  Call call("Zero,one,two,THREE,four,five,six,seven,eight,nine,blorptastic");
  call.start();
  call.say({digit(1), digit(3), digit(9)});
  const std::vector<Report> results = call.scored(3);
  ASSERT_EQ(results.size(), 3U);
  EXPECT_EQ(results[0].text, "one");
  EXPECT_EQ(results[1].text, "THREE") << "the spelling of the hint";
  EXPECT_EQ(results[2].text, "nine");
  for (const Report &each : results) EXPECT_GE(each.score, 40);
  EXPECT_EQ(call.reports().front().score, QUILLBROOK_SCORE_INTERIM);
  call.stop();
  EXPECT_EQ(call.record.quantum, 1);
  EXPECT_EQ(call.reports().back().score, QUILLBROOK_SCORE_END);
  EXPECT_STREQ(call.record.extra, "");
}

// With few hints the library used to compute scores on another scale than with many.
TEST(Pocketsphinx, IsAsSureAmongManyHintsAsAmongFew) {
  const std::string many =
      "um,uh,well,oh,yes,yeah,yep,yup,sure,okay,correct,exactly,of,course,right,it,is,do,would,am,no,nope,not,really,"
      "wrong,incorrect,never,please,thanks,thank,you";
  for (const std::string &hints : {std::string("yes,no"), many}) {
    Call call(hints);
    call.start();
    call.say({read_wav(kSounds + "vm-no.wav")}, 1000);
    const Report result = call.result();
    EXPECT_EQ(result.text, "no") << hints;
    EXPECT_GE(result.score, 80) << hints;
  }
}

TEST(Pocketsphinx, SaysThatItUnderstoodNothing) {
  Call call("yes,no");
  call.start();
  call.say({read_wav(kSounds + "digits/mon-8.wav")});
  EXPECT_EQ(call.result(), (Report{"?", QUILLBROOK_SCORE_NO_CONFIDENCE}));
}

Samples sound(int milliseconds, double amplitude, const std::function<double(int)> &at) {
  Samples samples(static_cast<size_t>(milliseconds) * 8);
  for (size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<int16_t>(amplitude * at(static_cast<int>(i)));
  }
  return samples;
}

// A short word gets an answer, also one that fits no phrase; a noise gets none, and is no answer.
TEST(Pocketsphinx, TellsShortWordsFromNoises) {
  const std::string days = "sunday,monday,tuesday,wednesday,thursday,friday,saturday";
  for (const char *word : {"digits/6", "digits/8", "digits/oh", "letters/s"}) {
    Call call(days);
    call.start();
    call.say({read_wav(kSounds + word + ".wav")}, 1500);
    EXPECT_EQ(call.result(), (Report{"?", QUILLBROOK_SCORE_NO_CONFIDENCE})) << word;
  }
  unsigned state = 1;
  const auto hiss = [&state](int) { return (state = state * 1103515245U + 12345U) / 2147483648.0 - 1; };
  const auto tone = [](int at) { return (std::sin(at * 0.6047) + std::sin(at * 1.0493)) / 2; };
  Call call(days);
  call.start();
  call.say({sound(60, 8000, hiss), sound(400, 2000, hiss), sound(200, 20000, hiss), sound(350, 8000, tone),
            read_wav(kSounds + "digits/day-1.wav")},
           1500);
  EXPECT_EQ(call.result().text, "monday");
}

TEST(Pocketsphinx, HearsSpeechThatBeginsWithTheStream) {
  Call call("monday,tuesday,wednesday,thursday,friday");
  const Samples word = read_wav(kSounds + "digits/day-3.wav");
  call.hear({std::find_if(word.begin(), word.end(), [](int16_t sample) { return sample > 1500; }), word.end()});
  call.hear(quiet(1000));
  call.start();
  EXPECT_EQ(call.result().text, "wednesday");
}

TEST(Pocketsphinx, TicksAndStopsAlsoWhileTheLanguageModelIsLoading) {
  Call call("");
  call.start();
  ASSERT_TRUE(call.wait_calls(3));
  const auto before = std::chrono::steady_clock::now();
  call.stop();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 500ms) << "loading takes longer";
  EXPECT_EQ(call.reports(), (std::vector<Report>{{"", QUILLBROOK_SCORE_END}}));
}

TEST(Pocketsphinx, UsesTheLanguageModelWithoutHints) {
  Call call(" , ");
  call.start();
  call.say({read_wav(kSounds + "vm-goodbye.wav")});
  const Report result = call.result();
  EXPECT_GT(result.text.size(), 1U) << result.text;  // which words, is up to the library's version
  EXPECT_EQ(result.score, 40);
}

TEST(Pocketsphinx, WindsUpEachTimeItIsAskedTo) {
  Call call(kDigitNames, "silence=10000");
  call.start();
  for (size_t utterance = 1; utterance <= 2; ++utterance) {
    call.say({digit(1)}, 500);
    EXPECT_GE(call.scored(utterance, QUILLBROOK_SCORE_INTERIM, QUILLBROOK_SCORE_INTERIM).size(), utterance);
    ASSERT_TRUE(call.wait_calls(10));
    EXPECT_EQ(call.scored(0).size(), utterance - 1) << "it is still waiting for silence";
    call.finalize();
    const std::vector<Report> results = call.scored(utterance);
    ASSERT_EQ(results.size(), utterance);
    EXPECT_EQ(results.back().text, "one");
    EXPECT_EQ(call.scored(utterance, QUILLBROOK_SCORE_FINISH, QUILLBROOK_SCORE_FINISH).size(), utterance);
    call.finalize(false);
    ASSERT_TRUE(call.wait_calls(2));
  }
}

TEST(Pocketsphinx, LeavesEndpointingToTheModule) {
  {
    Call before(kDigitNames, "endpointing=no");  // leaves its decoder in the middle of an utterance
    before.start();
    before.hear(digit(7));
    EXPECT_TRUE(before.wait_reports(1));
  }
  Call call(kDigitNames, "endpointing=no");
  call.record.completetimeout = 800;
  call.record.incompletetimeout = 5000;
  call.start();
  call.play(in_a_row({digit(1), digit(3)}, 200));
  call.play(quiet(1200));  // the module delivers in here, when 800 ms have brought no new text
  call.play(in_a_row({digit(9)}, 200));
  call.play(quiet(300));
  call.stop();
  EXPECT_EQ(call.record.quantum, 0);
  std::vector<Report> reports = call.reports();
  EXPECT_EQ(reports.back().score, QUILLBROOK_SCORE_END) << call.record.extra;
  reports.pop_back();
  ASSERT_FALSE(reports.empty());
  // Speech that brings no new word yet is told by blanks, which the module does not store.
  const Report sign_of_life = {" ", QUILLBROOK_SCORE_NO_CONFIDENCE};
  EXPECT_NE(std::find(reports.begin(), reports.end(), sign_of_life), reports.end());
  EXPECT_FALSE(reports.front() == sign_of_life) << "it comes behind words";
  reports.erase(std::remove(reports.begin(), reports.end(), sign_of_life), reports.end());
  for (const Report &each : reports) EXPECT_EQ(each.score, QUILLBROOK_SCORE_INTERIM);
  EXPECT_NE(std::find(reports.begin(), reports.end(), Report{"one three", QUILLBROOK_SCORE_INTERIM}), reports.end());
  EXPECT_EQ(reports.back().text, "nine") << "what was delivered does not come back";
  EXPECT_EQ(std::adjacent_find(reports.begin(), reports.end()), reports.end()) << "each text is new to the module";
}

TEST(Pocketsphinx, KeepsTheHintsOfCallsApart) {
  std::vector<std::unique_ptr<Call>> calls;
  for (int i = 0; i < 2; ++i) {
    calls.push_back(std::make_unique<Call>(i % 2 == 0 ? kDigitNames : "monday,tuesday,sunday"));
    calls.back()->start();
    calls.back()->say({i % 2 == 0 ? digit(7) : read_wav(kSounds + "digits/day-0.wav")});
  }
  for (int i = 0; i < 2; ++i) EXPECT_EQ(calls[i]->result().text, i % 2 == 0 ? "seven" : "sunday");
}

TEST(Pocketsphinx, ReportsWhatKeepsItFromWorking) {
  Call no_model("yes", "model=/nonexistent/model");
  Call no_format("yes", "", "gsm");
  Call no_file("yes");
  no_file.remove_file();
  for (Call *call : {&no_model, &no_format, &no_file}) {
    call->start();
    EXPECT_TRUE(call->wait_return());
    EXPECT_EQ(std::string(call->record.extra).compare(0, 6, "ERROR:"), 0) << call->record.extra;
  }
  EXPECT_NE(strstr(no_model.record.extra, "pocketsphinx-en-us"), nullptr) << no_model.record.extra;
}

TEST(Pocketsphinx, TakesTextsOfAnyKind) {
  Call call("");
  memset(call.record.phrases, 'a', QUILLBROOK_TEXT_SIZE);  // no end, no word
  memset(call.record.configuration, 0xFF, QUILLBROOK_TEXT_SIZE);
  memset(call.record.model, 'm', QUILLBROOK_TEXT_SIZE);
  memset(call.record.param, '%', QUILLBROOK_TEXT_SIZE);
  call.record.uniqueid = nullptr;
  take_complaints();
  call.start();
  call.say({digit(1)});
  ASSERT_TRUE(call.wait_calls(10));
  call.stop();
  EXPECT_TRUE(call.scored(0).empty()) << "no hint could be understood";
  std::string complaints;
  for (const std::string &sentence : take_complaints()) complaints += sentence + '\n';
  EXPECT_NE(complaints.find("not in the dictionary"), std::string::npos) << complaints;
  EXPECT_NE(complaints.find("is no key=value pair"), std::string::npos) << complaints;
  EXPECT_STREQ(call.record.extra, "");
}

// The library would end the process over these files. In a process of its own, whose leaks nobody counts: what the
// library had begun to make is given up.
TEST(PocketsphinxDeathTest, SurvivesADamagedModel) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr int kSurvived = 7;
  auto recognise = [] {
    const std::string model = scratch_folder() + "/model";
    (void)std::system(("mkdir " + model).c_str());
    for (const char *file :
         {"mdef", "means", "variances", "transition_matrices", "feat.params", "cmudict-model.dict"}) {
      std::ofstream(model + "/" + file) << "s3\nversion 0.3\nx";
    }
    Call call("yes", "model=" + model);
    call.start();
    (void)call.wait_return();
    call.stop();
    (void)std::system(("rm -r " + scratch_folder()).c_str());
    _exit(strncmp(call.record.extra, "ERROR:", 6) == 0 ? kSurvived : 2);
  };
  EXPECT_EXIT(recognise(), testing::ExitedWithCode(kSurvived), "");
}

}  // namespace
