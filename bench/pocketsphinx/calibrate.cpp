// How well recorded words are recognised, and how well the confidence tells right answers from wrong ones. Prints the
// figures that plugins/pocketsphinx/README.md quotes, and the curve that plugins/pocketsphinx/confidence.cpp holds.
//
//   pocketsphinx-calibrate [FOLDER [SAYTIME]]
//
// FOLDER holds the prompts of the package asterisk-core-sounds-en-wav, /usr/share/asterisk/sounds/en when not given;
// SAYTIME another speaker's numbers, of the package saytime, /usr/share/saytime when not given. Nothing was tuned on
// those; without them their table is left out.
// Takes five minutes of processor time.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "recordings.h"
#include "confidence.h"
#include "decoder.h"
#include "hints.h"
#include "model.h"
#include "parameters.h"
#include "utterance.h"

namespace {

using namespace quillbrook::pocketsphinx;

struct Recording {
  std::string file;
  std::string word;
};

struct List {
  const char *name;
  std::vector<Recording> recordings;

  std::string hints() const {
    std::string text;
    for (const Recording &each : recordings) text += each.word + ",";
    return text;
  }
  bool has(const std::string &word) const {
    return std::any_of(recordings.begin(), recordings.end(), [&](const Recording &each) { return each.word == word; });
  }
};

std::vector<Recording> numbered(const std::string &prefix, const std::vector<const char *> &words, int first = 0) {
  std::vector<Recording> recordings;
  for (const char *word : words) recordings.push_back({prefix + std::to_string(first++), word});
  return recordings;
}

std::vector<List> lists() {
  List digits{"digits",
              numbered("digits/", {"zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine"})};
  List numbers{"numbers", digits.recordings};
  digits.recordings.push_back({"digits/oh", "oh"});
  for (const Recording &each : numbered("digits/",
                                        {"ten", "eleven", "twelve", "thirteen", "fourteen", "fifteen", "sixteen",
                                         "seventeen", "eighteen", "nineteen"},
                                        10)) {
    numbers.recordings.push_back(each);
  }
  int tens = 20;
  for (const char *word : {"twenty", "thirty", "forty", "fifty", "sixty", "seventy", "eighty", "ninety"}) {
    numbers.recordings.push_back({"digits/" + std::to_string(tens), word});
    tens += 10;
  }
  for (const char *word : {"hundred", "thousand", "million", "billion", "minus", "pound", "star", "dollars"}) {
    numbers.recordings.push_back({std::string("digits/") + word, word});
  }

  List ordinals{"ordinals", numbered("digits/h-", {"first",     "second",      "third",      "fourth",     "fifth",
                                                   "sixth",     "seventh",     "eighth",     "ninth",      "tenth",
                                                   "eleventh",  "twelfth",     "thirteenth", "fourteenth", "fifteenth",
                                                   "sixteenth", "seventeenth", "eighteenth", "nineteenth", "twentieth"},
                                     1)};
  tens = 30;
  for (const char *word : {"thirtieth", "fortieth", "fiftieth", "sixtieth", "seventieth", "eightieth", "ninetieth"}) {
    ordinals.recordings.push_back({"digits/h-" + std::to_string(tens), word});
    tens += 10;
  }
  for (const char *word : {"hundred", "thousand", "million"}) {
    ordinals.recordings.push_back({std::string("digits/h-") + word, std::string(word) + "th"});
  }

  List calendar{"calendar", numbered("digits/day-",
                                     {"sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"})};
  for (const Recording &each : numbered("digits/mon-", {"january", "february", "march", "april", "may", "june", "july",
                                                        "august", "september", "october", "november", "december"})) {
    calendar.recordings.push_back(each);
  }
  for (const char *word : {"today", "tomorrow", "yesterday"}) {
    calendar.recordings.push_back({std::string("digits/") + word, word});
  }

  List alphabet{"spelling alphabet", {}};
  for (const char *word : {"alpha",  "bravo", "charlie", "delta",  "echo",     "foxtrot", "golf", "hotel",  "india",
                           "juliet", "kilo",  "lima",    "mike",   "november", "oscar",   "papa", "quebec", "romeo",
                           "sierra", "tango", "uniform", "victor", "whiskey",  "yankee",  "zulu"}) {
    alphabet.recordings.push_back({std::string("phonetic/") + word[0] + "_p", word});
  }
  return {digits, numbers, ordinals, calendar, alphabet};
}

double processor_seconds() {
  timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

// What the search and the confidence cost, and for how much audio.
struct Cost {
  double audio = 0;
  double listening = 0;
  double finishing = 0;
};

// One word, or string of words, in a call whose channel is known so well.
Result hear(Decoder &decoder, const Hints &hints, const Samples &speech, Channel &channel, Cost &cost) {
  constexpr int kQuietMs = 500;
  UtteranceDecoder utterance(decoder, &hints, kQuietMs, channel, [] { return true; });
  Samples all = in_a_row({speech}, kQuietMs);
  double start = processor_seconds();
  for (size_t begin = 0; begin < all.size(); begin += 160) {
    utterance.feed(all.data() + begin, std::min<size_t>(160, all.size() - begin));
  }
  double heard = processor_seconds();
  Result result = utterance.finish();
  cost.audio += static_cast<double>(speech.size()) / 8000;
  cost.listening += heard - start;
  cost.finishing += processor_seconds() - heard;
  return result;
}

struct Outcome {
  bool right;
  double shortfall;
};

// An answer without a word is as wrong as can be, and cannot be accepted.
Outcome outcome(const Result &result, const std::string &said) {
  constexpr double kNoWord = 100;
  return {result.text == said && !said.empty(), result.text.empty() ? kNoWord : result.shortfall};
}

// The logistic curve through the outcomes, right and wrong ones weighing the same, by gradient descent.
void print_curve(const std::vector<Outcome> &right, const std::vector<Outcome> &wrong) {
  double even = 1;
  double steep = 1;
  for (int round = 0; round < 20000; ++round) {
    double even_slope = 0;
    double steep_slope = 0;
    for (const auto *group : {&right, &wrong}) {
      for (const Outcome &each : *group) {
        double likely = 1 / (1 + std::exp(steep * (each.shortfall - even)));
        double error = (likely - (each.right ? 1 : 0)) / (2.0 * static_cast<double>(group->size()));
        even_slope += error * steep;
        steep_slope -= error * (each.shortfall - even);
      }
    }
    even -= even_slope;
    steep -= steep_slope;
  }
  printf("\ncurve: even_chance %.2f, steepness %.2f\n", even, steep);
}

void print_errors(const std::vector<Outcome> &right, const std::vector<Outcome> &wrong) {
  printf("\n%zu right answers, %zu wrong ones (words outside of the list, and mistakes within it)\n", right.size(),
         wrong.size());
  printf("%9s  %14s  %14s\n", "threshold", "right refused", "wrong accepted");
  for (int threshold : {1, 5, 10, 20, 30, 40, 50, 60, 70, 80, 90}) {
    auto percent_below = [threshold](const std::vector<Outcome> &group) {
      auto below = std::count_if(group.begin(), group.end(),
                                 [threshold](const Outcome &each) { return confidence(each.shortfall) < threshold; });
      return 100.0 * static_cast<double>(below) / static_cast<double>(group.size());
    };
    printf("%9d  %13.1f%%  %13.1f%%\n", threshold, percent_below(right), 100 - percent_below(wrong));
  }
}

std::vector<std::string> words_of(const std::string &text) {
  std::vector<std::string> words;
  for (size_t begin = 0; begin < text.size();) {
    size_t end = std::min(text.find(' ', begin), text.size());
    words.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return words;
}

// Insertions, deletions and substitutions that lead from one to the other.
size_t word_errors(const std::vector<std::string> &said, const std::vector<std::string> &heard) {
  std::vector<size_t> row(heard.size() + 1);
  for (size_t j = 0; j < row.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= said.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j < row.size(); ++j) {
      size_t above = row[j];
      row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (said[i - 1] == heard[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row.back();
}

// Four digits in a row, each digit in each place, with so much quiet between two.
void print_strings(Decoder &decoder, const Hints &hints, const std::vector<Samples> &digits, const List &list,
                   int pause_ms) {
  size_t said = 0;
  size_t errors = 0;
  Cost cost;
  for (size_t first = 0; first < 10; ++first) {
    for (size_t step : {3, 7}) {
      std::vector<Samples> parts;
      std::vector<std::string> words;
      for (size_t place = 0; place < 4; ++place) {
        parts.push_back(digits[(first + place * step) % 10]);
        words.push_back(list.recordings[(first + place * step) % 10].word);
      }
      said += words.size();
      Channel unknown;
      errors += word_errors(words, words_of(hear(decoder, hints, in_a_row(parts, pause_ms), unknown, cost).text));
    }
  }
  printf("  pauses of %3d ms: %5.1f %% word errors\n", pause_ms,
         100.0 * static_cast<double>(errors) / static_cast<double>(said));
}

// A sound of so many milliseconds: noise that swells and fades, or two tones.
Samples noise(int milliseconds, double loudness, double softness) {
  Samples samples(static_cast<size_t>(milliseconds) * 8);
  unsigned state = 7;
  double last = 0;
  for (size_t i = 0; i < samples.size(); ++i) {
    state = state * 1103515245U + 12345U;
    last = softness * last + (1 - softness) * (state / 2147483648.0 - 1) * 3;
    const double edge = static_cast<double>(std::min(i, samples.size() - i)) * 3 / static_cast<double>(samples.size());
    samples[i] = static_cast<int16_t>(std::clamp(loudness * std::min(edge, 1.0) * last, -32000.0, 32000.0));
  }
  return samples;
}
Samples tones(int milliseconds, double one, double other) {
  Samples samples(static_cast<size_t>(milliseconds) * 8);
  for (size_t i = 0; i < samples.size(); ++i) {
    const double at = 2 * M_PI * static_cast<double>(i) / 8000;
    samples[i] = static_cast<int16_t>(4000 * (std::sin(one * at) + std::sin(other * at)));
  }
  return samples;
}

// What is made of a sound that is no word of the list.
struct Ignorance {
  int accepted = 0;  // at the default threshold
  int told = 0;      // that nothing was understood
  int ignored = 0;

  void add(Decoder &decoder, const Hints &hints, const Samples &sound) {
    constexpr int kQuietMs = 500;
    Channel channel;
    UtteranceDecoder utterance(decoder, &hints, kQuietMs, channel, [] { return true; });
    const Samples all = in_a_row({sound}, 2000);  // the detector takes the beginning of a stream for speech
    Result result;
    for (size_t begin = 0; begin < all.size(); begin += 160) {
      utterance.feed(all.data() + begin, std::min<size_t>(160, all.size() - begin));
      if (utterance.has_speech() && !utterance.in_speech()) {
        const Result each = utterance.finish();
        if (each.is_attempt) result = each;
      }
    }
    ++(!result.is_attempt                                                    ? ignored
       : !result.text.empty() && result.confidence >= Parameters().threshold ? accepted
                                                                             : told);
  }
  void print(const char *name) const {
    printf("  %-18s %3d accepted as a word, %3d told that nothing was understood, %3d ignored\n", name, accepted, told,
           ignored);
  }
};

void print_ignorance(Decoder &decoder, const Dictionary &dictionary, const List &list, const std::string &folder) {
  const Hints hints = Hints::parse(list.hints(), dictionary);
  decoder.set_hints(hints, dictionary, true);
  Ignorance words;
  for (char digit = '0'; digit <= '9'; ++digit) {
    words.add(decoder, hints, read_wav(folder + "/digits/" + digit + ".wav"));
  }
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    words.add(decoder, hints, read_wav(folder + "/letters/" + letter + ".wav"));
  }
  Ignorance noises;
  Ignorance beeps;
  for (const int milliseconds : {50, 100, 150, 200, 300, 400, 600, 1000}) {
    for (const double loudness : {300, 1500, 8000}) {
      for (const double softness : {0.0, 0.5, 0.95})
        noises.add(decoder, hints, noise(milliseconds, loudness, softness));
    }
    for (const double tone : {120, 440, 770}) beeps.add(decoder, hints, tones(milliseconds, tone, tone * 1.735));
  }
  printf("\nsounds that are no words of the list '%s'\n", list.name);
  words.print("digits, letters");
  noises.print("noises");
  beeps.print("tones");
}

// Files of mu-law bytes (ITU-T G.711) without a header.
Samples read_mu_law(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  Samples samples;
  for (char byte = 0; file.get(byte);) {
    const unsigned code = ~static_cast<unsigned>(byte) & 0xFFU;
    const int magnitude = static_cast<int>((((code & 0xFU) << 3U) + 132U) << ((code >> 4U) & 7U)) - 132;
    samples.push_back(static_cast<int16_t>((code & 0x80U) != 0 ? -magnitude : magnitude));
  }
  return samples;
}

// A man's digits and numbers, each as the first utterance of a call.
void print_other_speaker(Decoder &decoder, const Dictionary &dictionary, const std::string &folder) {
  List digits{"digits, saytime",
              numbered("", {"zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine"})};
  List numbers{"numbers, saytime", digits.recordings};
  digits.recordings.push_back({"oh", "oh"});
  for (const Recording &each : numbered("",
                                        {"ten", "eleven", "twelve", "thirteen", "fourteen", "fifteen", "sixteen",
                                         "seventeen", "eighteen", "nineteen", "twenty"},
                                        10)) {
    numbers.recordings.push_back(each);
  }
  for (const auto &[file, word] : {std::pair("30", "thirty"), std::pair("40", "forty"), std::pair("50", "fifty")}) {
    numbers.recordings.push_back({file, word});
  }
  printf("\nanother speaker, held back\n");
  for (const List &list : {digits, numbers}) {
    const Hints hints = Hints::parse(list.hints(), dictionary);
    for (const bool loop : {false, true}) {
      decoder.set_hints(hints, dictionary, loop);
      int right = 0;
      int refused = 0;
      Cost cost;
      std::string wrong;
      for (const Recording &each : list.recordings) {
        Channel unknown;
        const Result result = hear(decoder, hints, read_mu_law(folder + "/" + each.file + ".au"), unknown, cost);
        const bool hit = result.text == each.word;
        right += hit ? 1 : 0;
        refused += hit && result.confidence < Parameters().threshold ? 1 : 0;
        if (!hit) wrong += "  " + each.word + ": '" + result.text + "' " + std::to_string(result.confidence);
      }
      printf("%-18s loop=%-3s  %2d of %2zu right, %d of them refused;%s\n", list.name, loop ? "yes" : "no", right,
             list.recordings.size(), refused, wrong.c_str());
    }
  }
}

void calibrate(const std::string &folder, const std::string &saytime) {
  Library library;
  double start = processor_seconds();
  ModelFiles files = ModelFiles::find(Parameters(), "", false);
  Dictionary dictionary(files.dictionary);
  double dictionary_done = processor_seconds();
  Decoder decoder(files);
  printf("dictionary %.0f ms, decoder %.0f ms of processor time\n", (dictionary_done - start) * 1000,
         (processor_seconds() - dictionary_done) * 1000);

  std::vector<List> all = lists();
  std::vector<Outcome> right;
  std::vector<Outcome> wrong;
  Cost cost;
  for (const List &list : all) {
    Hints hints = Hints::parse(list.hints(), dictionary);
    for (bool loop : {false, true}) {
      decoder.set_hints(hints, dictionary, loop);
      size_t first_hits = 0;
      size_t later_hits = 0;
      Channel call;
      for (const Recording &each : list.recordings) {
        Samples speech = read_wav(folder + "/" + each.file + ".wav");
        Channel unknown;
        Result first = hear(decoder, hints, speech, unknown, cost);
        first_hits += first.text == each.word ? 1 : 0;
        later_hits += hear(decoder, hints, speech, call, cost).text == each.word ? 1 : 0;
        if (loop) (first.text == each.word ? right : wrong).push_back(outcome(first, each.word));
      }
      printf("%-18s loop=%-3s  %2zu of %2zu right as the first of a call, %2zu as one of many\n", list.name,
             loop ? "yes" : "no", first_hits, list.recordings.size(), later_hits);
    }
    int number = 0;
    for (const List &other : all) {
      for (const Recording &each : other.recordings) {
        if (list.has(each.word) || number++ % 2 != 0) continue;
        Channel unknown;
        Result result = hear(decoder, hints, read_wav(folder + "/" + each.file + ".wav"), unknown, cost);
        wrong.push_back(outcome(result, ""));
      }
    }
  }
  print_errors(right, wrong);
  print_curve(right, wrong);
  printf("processor time for a second of audio: %.3f s while listening, %.3f s at its end\n",
         cost.listening / cost.audio, cost.finishing / cost.audio);

  const List &digits = all.front();
  std::vector<Samples> recorded;
  for (const Recording &each : digits.recordings) recorded.push_back(read_wav(folder + "/" + each.file + ".wav"));
  Hints hints = Hints::parse(digits.hints(), dictionary);
  printf("\nfour digits in a row, loop=yes\n");
  decoder.set_hints(hints, dictionary, true);
  for (int pause_ms : {50, 150, 300}) print_strings(decoder, hints, recorded, digits, pause_ms);
  print_ignorance(decoder, dictionary, all[3], folder);
  if (std::ifstream(saytime + "/1.au")) print_other_speaker(decoder, dictionary, saytime);
}

}  // namespace

int main(int count, char **arguments) {
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  try {
    calibrate(count > 1 ? arguments[1] : "/usr/share/asterisk/sounds/en",
              count > 2 ? arguments[2] : "/usr/share/saytime");
    return 0;
  } catch (const std::exception &exception) {
    fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
