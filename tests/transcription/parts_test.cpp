// The parts that need no server: hearing utterances, reading answers, settings.
#include <algorithm>
#include <cstring>
#include <fstream>

#include "ear.h"
#include "event_reader.h"
#include "failure.h"
#include "json_text.h"
#include "plugin_driver.h"
#include "recordings.h"
#include "settings.h"
#include "transcript.h"
#include "wav.h"

namespace quillbrook::transcription {
namespace {

using common::Failure;

const std::string kSounds = "/usr/share/asterisk/sounds/en/";

Samples word(const std::string &name) {
  return read_wav(kSounds + name + ".wav");
}

// What leaves the ear, with the audio in pieces that fit no frame.
std::vector<Utterance> heard(Ear &ear, const Samples &samples) {
  std::vector<Utterance> utterances;
  constexpr size_t kPiece = 777;
  for (size_t from = 0; from < samples.size(); from += kPiece) {
    Samples piece(samples.begin() + static_cast<std::ptrdiff_t>(from),
                  samples.begin() + static_cast<std::ptrdiff_t>(std::min(from + kPiece, samples.size())));
    while (ear.feed(piece)) {
      utterances.push_back(ear.take());
      piece.clear();
    }
  }
  return utterances;
}

TEST(Ear, CutsUtterancesWithTheirBeginnings) {
  Ear ear(8000, 2, 40, {500, 30000});
  const Samples seven = word("digits/7");
  const auto utterances = heard(ear, in_a_row({seven, seven, word("vm-goodbye")}, 1000));
  ASSERT_EQ(utterances.size(), 3U);
  for (const Utterance &each : utterances) EXPECT_GE(each.speech_ms, 200);
  // All of the word, and quiet around it.
  const Samples &first = utterances[0].samples;
  const auto at = std::search(first.begin(), first.end(), seven.begin(), seven.begin() + 2000);
  EXPECT_NE(at, first.end());
  EXPECT_LE(first.size(), seven.size() + 8000);
  EXPECT_FALSE(ear.in_utterance());

  EXPECT_EQ(heard(ear, in_a_row({seven, seven}, 200)).size(), 0U) << "a pause that is shorter than the limit";
  EXPECT_TRUE(ear.in_utterance());
  EXPECT_GT(ear.length_ms(), 1000);
  const Utterance rest = ear.cut_off();
  EXPECT_GT(rest.speech_ms, 400);
  EXPECT_FALSE(ear.in_utterance());
}

TEST(Ear, LetsNothingPassThatIsNoSpeech) {
  Ear ear(8000, 2, 40, {500, 30000});
  Samples clicks = quiet(3000);
  for (size_t at = 4000; at + 80 < clicks.size(); at += 8000) std::fill_n(clicks.begin() + at, 80, int16_t{20000});
  EXPECT_TRUE(heard(ear, clicks).empty());
  EXPECT_TRUE(heard(ear, Samples(80000, 0)).empty());
  Samples faint = in_a_row({word("digits/7")}, 800);
  for (int16_t &sample : faint) sample = static_cast<int16_t>(sample / 300);
  EXPECT_TRUE(heard(ear, faint).empty());
  EXPECT_FALSE(ear.in_utterance());
  Samples noise = quiet(2000);
  for (int16_t &sample : noise) sample = static_cast<int16_t>(sample * 80);
  Ear fresh(8000, 2, 40, {500, 30000});  // which does not know the line yet
  EXPECT_TRUE(heard(fresh, noise).empty());
  Ear cutting(8000, 2, 40, {500, 1000});
  EXPECT_EQ(heard(cutting, in_a_row({word("digits/7")}, 1000)).size(), 1U)
      << "nothing but quiet is left behind the cut";
}

TEST(Ear, CutsSpeechThatDoesNotEndAndSpeaksAllRates) {
  Samples speech = word("vm-goodbye");
  while (speech.size() < 40000) speech.insert(speech.end(), speech.begin(), speech.end());
  Ear ear(8000, 2, 40, {500, 1000});
  const auto pieces = heard(ear, speech);
  EXPECT_GE(pieces.size(), 3U);
  for (const Utterance &each : pieces) EXPECT_LE(each.samples.size(), 8000U);
  for (const int rate : {12000, 16000, 24000, 44100, 48000}) {
    Samples wide;
    const Samples narrow = in_a_row({word("digits/7")}, 800);
    for (size_t i = 0; i < narrow.size() * static_cast<size_t>(rate) / 8000; ++i) {
      wide.push_back(narrow[i * 8000 / static_cast<size_t>(rate)]);
    }
    Ear other(rate, 2, 40, {500, 30000});
    EXPECT_EQ(heard(other, wide).size(), 1U) << rate;
  }
}

TEST(Wav, HoldsTheSamplesAtEitherRate) {
  const std::string wav = to_wav({0, 100, -100}, 8000);
  EXPECT_EQ(wav, std::string("RIFF\x2a\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x80\x3e\0\0\2\0\x10\0data\6\0\0\0"
                             "\0\0\x64\0\x9c\xff",
                             50));
  const std::string wide = to_wav({0, 100, -100}, 8000, 16000);
  Samples samples(6);
  memcpy(samples.data(), wide.data() + 44, 12);
  EXPECT_EQ(samples, (Samples{0, 50, 100, 0, -100, -100}));
  EXPECT_EQ(to_wav({1, 2}, 48000, 16000), to_wav({1, 2}, 48000)) << "it never goes down";
}

TEST(Transcripts, AreReadAndTheirInventionsDropped) {
  const auto read = [](const std::string &answer) {
    const Transcript transcript = parse_transcript(common::repaired(answer), {});
    return transcript.text + "/" + (transcript.text.empty() ? "" : std::to_string(transcript.confidence)) +
           (transcript.silent ? "/silent" : "");
  };
  EXPECT_EQ(read(R"({"text": " Two tickets,\u0000 please. "})"), "Two tickets,  please./75");
  // Confidence: segments by their length, else words, else tokens. What is no figure counts for nothing.
  EXPECT_EQ(read(R"({"text": "a b", "words": [{"probability": 0.1}], "segments": [
                     {"start": 0, "end": 3, "text": " a", "avg_logprob": 0}, {"start": 3, "end": 4, "text": " b",
                      "avg_logprob": -1}, {"avg_logprob": 1}, {"avg_logprob": nan}, {"avg_logprob": "0"}, 7]})"),
            "a b/78");
  EXPECT_EQ(read(R"({"text": "a", "words": [{"probability": 0.5}, {"probability": 0.7}, {"probability": 7}, {}]})"),
            "a/60");
  EXPECT_EQ(read(R"({"text": "a", "segments": [], "logprobs": [{"logprob": -0.2}, {"logprob": -0.4}, {}]})"), "a/74");
  EXPECT_EQ(read(R"({"text": "a", "segments": [{"avg_logprob": -1e300}]})"), "a/1");
  // Silence: both limits have to be passed, and only those words are left out.
  EXPECT_EQ(read(R"({"text": "Thank you.", "segments": [{"text": " Thank you.", "no_speech_prob": 0.8,
                     "avg_logprob": -1.2}]})"),
            "//silent");
  EXPECT_EQ(read(R"({"text": "Yes. Thank you.", "segments": [{"text": " Yes.", "no_speech_prob": 0.1, "start": 0,
                     "end": 1, "avg_logprob": -0.1}, {"text": " Thank you.", "no_speech_prob": 0.7,
                     "avg_logprob": -1.1}]})"),
            "Yes./90/silent");
  EXPECT_EQ(read(R"({"text": "Yes", "segments": [{"text": "Yes", "no_speech_prob": 0.9, "avg_logprob": -0.1}]})"),
            "Yes/90");
  EXPECT_EQ(read(R"({"text": "Yes", "segments": [{"text": "Yes", "no_speech_prob": 0.1, "avg_logprob": -3}]})"),
            "Yes/5");
  for (const std::string &bad : {std::string("<html>"), std::string("[]"), std::string("{}"),
                                 std::string(R"({"text": 1})"), "{\"x\":" + std::string(500000, '[')}) {
    EXPECT_THROW(read(bad), Failure) << bad.substr(0, 20);
  }
  EXPECT_EQ(error_message(R"({"error": {"message": "no key", "type": "x"}})"), "no key");
  EXPECT_EQ(error_message(R"({"error": "bad\nmodel"})"), "bad model");
  EXPECT_EQ(error_message(R"({"detail": "too large"})"), "too large");
  EXPECT_EQ(error_message("<html>"), "");
}

TEST(Events, AreReadAsTheyCome) {
  EventReader reader;
  std::string answer =
      ": hello\r\nevent: x\r\ndata: {\"type\": \"transcript.text.delta\", \"delta\": \"Two \"}\r\n\r\nda";
  EXPECT_TRUE(reader.read(answer));
  EXPECT_EQ(reader.text(), "Two ");
  EXPECT_FALSE(reader.read(answer));
  answer += "ta: {\"type\": \"transcript.text.delta\", \"delta\": \"tickets\"}\n\ndata: {\"type\": \"other\"}\n";
  EXPECT_TRUE(reader.read(answer));
  EXPECT_EQ(parse_transcript(reader.whole(), {}).text, "Two tickets");
  answer += "data: {\"type\": \"transcript.text.done\", \"text\": \"2 tickets\", \"logprobs\": [{\"logprob\": 0}]}\n";
  EXPECT_TRUE(reader.read(answer));
  EXPECT_EQ(parse_transcript(reader.whole(), {}).text, "2 tickets");
  EXPECT_EQ(parse_transcript(reader.whole(), {}).confidence, 100);
  answer += "data: [DONE]\n\n";
  EXPECT_FALSE(reader.read(answer));
  EXPECT_THROW(reader.finish(answer + "data: <html>"), Failure) << "the last line";
}

TEST(Settings, AreReadOrRefused) {
  const auto settings = parse_settings(
      "model=large, language=de;prompt=\"Names: Smith, Jones\" field.vad_filter=true temperature=0.2 interim=0 "
      "hotwords=yes format=json answer_timeout=20000");
  EXPECT_EQ(settings.prompt, "Names: Smith, Jones");
  EXPECT_EQ(parse_settings("proxy=http://p").proxy, "http://p:80");
  EXPECT_EQ(settings.interim_ms, 0);
  EXPECT_EQ(settings.answer_timeout, std::chrono::seconds(20));
  EXPECT_EQ(parse_settings("").answer_timeout, std::chrono::seconds(10));
  for (const char *bad : {"colour=red", "model=", "model", "format=srt", "interim=10", "temperature=hot", "vad=4",
                          "no_speech=nan", "logprob=1", "field.=x", "answer_limit=1", "pick=best", "proxy=p:1"}) {
    EXPECT_THROW(parse_settings(bad), Failure) << bad;
  }

  quillbrook_context record = {};
  strcpy(record.model, "small");
  strcpy(record.language, "en-US");
  strcpy(record.context, "A pizza order.");
  strcpy(record.phrases, "yes , no,");
  EXPECT_EQ(request_fields(settings, record), (Fields{{"model", "large"},
                                                      {"language", "de"},
                                                      {"prompt", "Names: Smith, Jones A pizza order. yes, no"},
                                                      {"hotwords", "yes, no"},
                                                      {"temperature", "0.2"},
                                                      {"response_format", "json"},
                                                      {"vad_filter", "true"}}));
  const Fields plain = {
      {"model", "small"}, {"language", "en"}, {"prompt", "A pizza order."}, {"response_format", "verbose_json"}};
  EXPECT_EQ(request_fields(parse_settings("hints=no"), record), plain);
}

TEST(Key, IsTheFirstLineOfAFileAndNeverShown) {
  const auto read = [](const std::string &content) {
    const std::string path = scratch_folder() + "/key";
    std::ofstream(path) << content;
    return parse_settings("key_file=" + path).read_key();
  };
  EXPECT_EQ(read("sk-123\n"), "sk-123");
  EXPECT_EQ(read("sk-123 \r\nsecond"), "sk-123");
  EXPECT_EQ(parse_settings("").read_key(), "");
  for (const std::string &bad :
       {std::string(), std::string("\nsk"), std::string("s k"), std::string("sk\x01"), std::string(5000, 'k')}) {
    try {
      read(bad);
      ADD_FAILURE() << bad;
    } catch (const Failure &failure) {
      EXPECT_EQ(std::string(failure.what()).find("sk"), std::string::npos);
    }
  }
  EXPECT_THROW(parse_settings("key_file=/nonexistent").read_key(), Failure);
}

}  // namespace
}  // namespace quillbrook::transcription
