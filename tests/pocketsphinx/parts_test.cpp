// The parts that take text from elsewhere: parameters, hints.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "confidence.h"
#include "hints.h"
#include "mel_cepstrum.h"
#include "model.h"
#include "parameters.h"

namespace quillbrook::pocketsphinx {
namespace {

class File {
public:
  explicit File(const std::string &content = "") {
    char name[] = "/tmp/pocketsphinx-parts.XXXXXX";
    close(mkstemp(name));
    path_ = name;
    append(content);
  }
  ~File() { unlink(path_.c_str()); }
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  void append(const std::string &bytes) const { std::ofstream(path_, std::ios::app | std::ios::binary) << bytes; }
  const std::string &path() const { return path_; }

private:
  std::string path_;
};

using Samples = std::vector<int16_t>;

TEST(MelCepstrum, IsWhatTheLibraryComputesForItself) {
  Samples chirp;
  for (int i = 0; i < 1000; ++i) chirp.push_back(static_cast<int16_t>(i * i / 7 % 4001 - 2000));
  MelCepstrum cepstrum({130, 6800, 25, 0.97, 0.025625, 22});
  ASSERT_EQ(cepstrum.window(), 410U);
  // From version 0.8 without its treatment of noise.
  const Cepstrum expected{70.935F,  -12.682F, -18.008F, -21.276F, -23.677F, -25.668F, -26.736F,
                          -24.768F, -17.566F, -4.478F,  9.338F,   15.044F,  9.629F};
  const Cepstrum found = cepstrum.compute(&chirp[320], chirp[319]);
  for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(found[i], expected[i], 0.002) << i;
  EXPECT_THROW(MelCepstrum({130, 9000, 25, 0.97, 0.025625, 22}), std::runtime_error);
}

TEST(Parameters, TakesPairsInAnyLayoutAndComplainsOfTheRest) {
  Parameters parameters =
      Parameters::parse(" endpointing=no;silence=800, ,loop=off\tmodel=/some/where threshold=0;;lm=/a=b");
  EXPECT_FALSE(parameters.endpointing);
  EXPECT_FALSE(parameters.loop);
  EXPECT_EQ(parameters.silence_ms, 800);
  EXPECT_EQ(parameters.threshold, 0);
  EXPECT_EQ(parameters.model, "/some/where");
  EXPECT_EQ(parameters.language_model, "/a=b");
  EXPECT_TRUE(parameters.complaints.empty());

  parameters = Parameters::parse("silence=-1,silence=99999999999,silence=5x,loop=maybe,color=red,word,=,model=");
  EXPECT_EQ(parameters.silence_ms, Parameters().silence_ms);
  EXPECT_TRUE(parameters.loop);
  EXPECT_EQ(parameters.complaints.size(), 8U);

  std::string noise(2000, '=');
  for (size_t i = 0; i < noise.size(); i += 2) noise[i] = ',';
  EXPECT_LE(Parameters::parse(noise).complaints.size(), 8U);
}

TEST(Hints, KeepPhrasesAndTheirSpellingAndLeaveOutPhrasesWithUnknownWords) {
  File file(
      "## a comment\nnew N UW\nyork Y AO R K\nyes Y EH S\n\nyes(2) Y EH\r\ntwenty T W EH N T IY\none W AH N\n"
      "o'clock AH K L AA K\nzulu Z UW L UW");
  Dictionary dictionary(file.path());
  EXPECT_EQ(dictionary.pronunciations("yes"), (std::vector<std::string>{"Y EH S", "Y EH"}));

  Hints hints = Hints::parse(" New  York,yes!, YES ,Twenty-One,,o'clock,Zulu", dictionary);
  EXPECT_EQ(hints.phrases,
            (std::vector<Hints::Phrase>{{"new", "york"}, {"yes"}, {"twenty", "one"}, {"o'clock"}, {"zulu"}}));
  EXPECT_TRUE(hints.left_out.empty());
  EXPECT_EQ(hints.spell("new york yes twenty one"), "New York yes Twenty One");

  std::string long_word(1500, 'a');
  hints = Hints::parse("new amsterdam,york,twenty-fun,\xC3\xA9t\xC3\xA9,-,yes(2)," + long_word, dictionary);
  EXPECT_EQ(hints.phrases, (std::vector<Hints::Phrase>{{"york"}})) << "the name of a variant is no word";
  EXPECT_GE(hints.left_out.size(), 4U);
  for (const std::string &word : hints.left_out) EXPECT_LE(word.size(), 64U);
  EXPECT_TRUE(Hints::is_empty(" , ,\t"));
  EXPECT_FALSE(Hints::is_empty(",,-"));
}

TEST(Confidence, FallsWithTheWorstWordAndWithSpeechThatNoWordExplains) {
  std::vector<Segment> phones{{"SIL", true, 0, 9, -10}, {"W", false, 10, 29, -40}, {"AH", false, 30, 49, -40}};
  std::vector<Segment> good{{"<sil>", true, 0, 9, -10}, {"one", false, 10, 29, -44}, {"two", false, 30, 49, -44}};
  std::vector<Segment> one_bad = good;
  one_bad[2].score = -130;
  std::vector<Segment> unexplained = good;
  unexplained[0].score = -150;
  EXPECT_GT(confidence(shortfall(good, phones)), 90);
  EXPECT_LT(confidence(shortfall(one_bad, phones)), 50);
  EXPECT_LT(confidence(shortfall(unexplained, phones)), 50);
  EXPECT_EQ(confidence(shortfall({good[0]}, phones)), 1) << "no word at all";
  EXPECT_EQ(confidence(shortfall({}, {})), 1);
}

}  // namespace
}  // namespace quillbrook::pocketsphinx
