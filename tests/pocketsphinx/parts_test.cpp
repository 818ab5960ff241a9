// The parts that take text and bytes from elsewhere: parameters, hints, the stream file.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "confidence.h"
#include "hints.h"
#include "model.h"
#include "parameters.h"
#include "stream_reader.h"

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

std::string number(unsigned value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i) & 0xFF);
  return text;
}

std::string chunk(const std::string &name, unsigned size, const std::string &content) {
  return name + number(size, 4) + content;
}

std::string format_chunk(unsigned tag, unsigned channels, unsigned rate, unsigned bits) {
  return chunk("fmt ", 16,
               number(tag, 2) + number(channels, 2) + number(rate, 4) + number(rate * bits / 8, 4) +
                   number(bits / 8, 2) + number(bits, 2));
}

const std::string kRiff = "RIFF" + number(0, 4) + "WAVE";

using Samples = std::vector<int16_t>;

TEST(StreamReader, TakesSamplesAsTheyComeByteByByte) {
  // A chunk before the format, one of odd size behind it, and sizes unset: as long as the host writes, they are.
  std::string bytes = kRiff + chunk("LIST", 4, "abcd") + format_chunk(1, 1, 8000, 16) + chunk("note", 3, "xyz\0") +
                      std::string(1, '\0') + chunk("data", 0, "") + number(1, 2) + number(0xFFFF, 2) +
                      number(0x8000, 2);
  File file;
  StreamReader reader(file.path(), "wav");
  Samples samples;
  for (char byte : bytes) {
    file.append(std::string(1, byte));
    reader.read(samples, 100);
  }
  EXPECT_EQ(samples, (Samples{1, -1, -32768}));
  EXPECT_EQ(reader.sample_rate(), 8000);
  EXPECT_EQ(reader.read(samples, 100), 0U);
}

TEST(StreamReader, GivesAtMostWhatWasAskedForAndLosesNothing) {
  std::string bytes;
  Samples all;
  for (int i = 0; i < 20000; ++i) {
    all.push_back(static_cast<int16_t>(i));
    bytes += number(static_cast<unsigned>(i), 2);
  }
  File file(bytes);
  StreamReader reader(file.path(), "sln");
  Samples samples;
  EXPECT_EQ(reader.read(samples, 7), 7U);
  while (reader.read(samples, 9000) > 0) {
  }
  EXPECT_EQ(samples, all);
}

TEST(StreamReader, DecodesCompandedSamples) {
  // Extremes, smallest steps and one value from the middle, from the tables of G.711.
  Samples ulaw;
  StreamReader(File(std::string("\x00\x80\x7F\xFF\x55", 5)).path(), "ulaw").read(ulaw, 5);
  EXPECT_EQ(ulaw, (Samples{-32124, 32124, 0, 0, -716}));
  Samples alaw;
  StreamReader(File(std::string("\x2A\xAA\x55\xD5\x80", 5)).path(), "alaw").read(alaw, 5);
  EXPECT_EQ(alaw, (Samples{-32256, 32256, -8, 8, 5504}));
  File tagged(kRiff + format_chunk(7, 1, 8000, 8) + chunk("data", 0, "\x80"));
  Samples wav;
  StreamReader(tagged.path(), "wav").read(wav, 5);
  EXPECT_EQ(wav, (Samples{32124}));
}

TEST(StreamReader, RefusesWhatItCannotRead) {
  EXPECT_THROW(StreamReader("/nonexistent/stream.wav", "wav"), std::runtime_error);
  for (const char *format : {"gsm", "", "WAV", "g722"}) {
    EXPECT_THROW(StreamReader(File().path(), format), std::runtime_error) << format;
  }
  const std::string bad[] = {
      "OggS" + std::string(40, 'x'),        kRiff + format_chunk(1, 2, 8000, 16),
      kRiff + format_chunk(1, 1, 8000, 24), kRiff + format_chunk(85, 1, 8000, 16),
      kRiff + format_chunk(1, 1, 0, 16),    kRiff + format_chunk(1, 1, 4000000000U, 16),
      kRiff + chunk("fmt ", 2, "ab"),       kRiff + chunk("fmt ", 0xFFFFFFFFU, "ab"),
      kRiff + chunk("data", 0, "abcd"),     kRiff + chunk("junk", 0xFFFFFFFFU, std::string(100000, 'x')),
  };
  for (const std::string &bytes : bad) {
    File file(bytes);
    StreamReader reader(file.path(), "wav");
    Samples samples;
    EXPECT_THROW(reader.read(samples, 100), std::runtime_error) << bytes.substr(0, 50);
    EXPECT_TRUE(samples.empty());
  }
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
