#include "decoder.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "library.h"

namespace quillbrook::pocketsphinx {
namespace {

constexpr const char *kHintsSearch = "hints";
constexpr const char *kLanguageSearch = "language";
constexpr const char *kPhonesSearch = "phones";

constexpr size_t kMostWords = 20000;
// The library's ring of 12 frames also holds the 5 that the language model's search looks ahead: a longer block would
// overwrite frames that are still to be scored.
constexpr size_t kFramesAtATime = 4;

// Probability of one more word. Much less than the library's 0.65: short words are soon heard in the ends of long ones.
// It is part of a word's score, and so of the confidence, where it counts most against words of few frames.
constexpr double kWordInsertion = 0.005;

// Scores are logarithms to this base, shifted right by this many bits.
constexpr double kLogBase = 1.0001;
constexpr int kScoreShift = 10;

// The library ends the process after a fatal message. It must not: the calls of a whole machine are in it. It is
// left by an exception instead, which gives up the memory of the object that was being made.
void on_library_message(void *, err_lvl_t level, const char *, ...) {
  if (level == ERR_FATAL) throw std::runtime_error("the model's files are damaged or there is no memory for them");
}

// The phrases side by side, in the library's format of a finite state grammar: equally likely, each a chain of words,
// from the first state to the second, or in a loop back to the first.
std::string grammar_of(const Hints &hints, bool loop) {
  size_t states = 2;
  for (const Hints::Phrase &phrase : hints.phrases) states += phrase.size() - 1;
  const std::string last = loop ? "0" : "1";
  char each[32];
  snprintf(each, sizeof each, "%.9g", 1.0 / static_cast<double>(hints.phrases.size()));
  std::string text = "FSG_BEGIN hints\nNUM_STATES " + std::to_string(states) + "\nSTART_STATE 0\nFINAL_STATE " + last;
  size_t inner = 2;
  for (const Hints::Phrase &phrase : hints.phrases) {
    std::string from = "0";
    for (size_t i = 0; i < phrase.size(); ++i) {
      const std::string to = i + 1 < phrase.size() ? std::to_string(inner++) : last;
      text.append("\nTRANSITION ").append(from).append(" ").append(to);
      text.append(" ").append(i == 0 ? each : "1").append(" ").append(phrase[i]);
      from = to;
    }
  }
  return text + "\nFSG_END\n";
}

}  // namespace

Library::Library() {
  err_set_logfp(nullptr);
  err_set_callback(on_library_message, nullptr);
}

Library::~Library() {
  err_set_callback(err_logfp_cb, nullptr);
}

const Cepstrum &Decoder::usual_means() {
  static constexpr Cepstrum kMeans{58.00F, 5.07F, 9.84F, 7.72F,  -0.88F, -6.92F, -0.39F,
                                   1.20F,  1.67F, 7.10F, -8.12F, 3.54F,  1.04F};
  return kMeans;
}

Decoder::Decoder(ModelFiles files) : files_(std::move(files)) {
  cmd_ln_s *config = ps_config_init(nullptr);
  if (config == nullptr) throw std::runtime_error("the library refuses its settings");
  ps_config_set_str(config, "hmm", files_.acoustic.c_str());
  ps_config_set_bool(config, "bestpath", 0);
  ps_config_set_bool(config, "fwdflat", 0);
  ps_config_set_bool(config, "allphone_ci", 1);
  if (files_.language_model.empty()) {
    // Scores are relative to the best state among those that are computed. All of them are, or a score would depend on
    // the size of the list, and could not be compared with that of the phones.
    ps_config_set_bool(config, "compallsen", 1);
    ps_config_set_int(config, "pl_window", 0);
    ps_config_set_float(config, "wip", kWordInsertion);
  } else {
    ps_config_set_str(config, "dict", files_.dictionary.c_str());
  }
  decoder_ = ps_init(config);
  ps_config_free(config);
  if (decoder_ == nullptr) {
    throw std::runtime_error("the acoustic model " + files_.acoustic + " cannot be loaded");
  }
  bool ready = ps_add_allphone(decoder_, kPhonesSearch, nullptr) == 0 &&
               (files_.language_model.empty() ||
                (ps_add_lm_file(decoder_, kLanguageSearch, files_.language_model.c_str()) == 0 &&
                 ps_activate_search(decoder_, kLanguageSearch) == 0));
  if (!ready) {
    ps_free(decoder_);
    throw std::runtime_error("the language model " + files_.language_model + " cannot be loaded");
  }
}

Decoder::~Decoder() {
  // The phone search keeps its last result until the next utterance, and forgets it when it is freed.
  search_phones();
  if (ps_start_utt(decoder_) == 0) ps_end_utt(decoder_);
  ps_free(decoder_);
}

cmd_ln_s *Decoder::config() const {
  return ps_get_config(decoder_);
}

void Decoder::add_words(const Hints &hints, const Dictionary &dictionary) {
  for (const Hints::Phrase &phrase : hints.phrases) {
    for (const std::string &word : phrase) {
      if (!words_.insert(word).second) continue;
      int variant = 1;
      for (const std::string &phones : dictionary.pronunciations(word)) {
        std::string name = variant == 1 ? word : word + "(" + std::to_string(variant) + ")";
        if (ps_add_word(decoder_, name.c_str(), phones.c_str(), FALSE) < 0) {
          throw std::runtime_error("the dictionary gives '" + name + "' phones that the acoustic model lacks");
        }
        ++variant;
      }
    }
  }
}

void Decoder::set_hints(const Hints &hints, const Dictionary &dictionary, bool loop) {
  add_words(hints, dictionary);

  std::string text = grammar_of(hints, loop);
  FILE *file = fmemopen(text.data(), text.size(), "r");
  if (file == nullptr) throw std::runtime_error("there is no memory for the grammar made of the hints");
  fsg_model_t *grammar =
      fsg_model_read(file, ps_get_logmath(decoder_), static_cast<float>(ps_config_float(config(), "lw")));
  fclose(file);
  bool ready = grammar != nullptr && ps_add_fsg(decoder_, kHintsSearch, grammar) == 0 &&
               ps_activate_search(decoder_, kHintsSearch) == 0;
  fsg_model_free(grammar);
  if (!ready) throw std::runtime_error("the library refuses the grammar made of the hints");
}

void Decoder::begin() {
  if (ps_start_utt(decoder_) < 0) throw std::runtime_error("the library cannot begin an utterance");
}

void Decoder::process(const Cepstrum *frames, size_t count) {
  // The library normalises frames in place, and wants a pointer to each.
  Cepstrum block[kFramesAtATime];
  float *rows[kFramesAtATime];
  while (count > 0) {
    size_t now = std::min(count, kFramesAtATime);
    std::copy(frames, frames + now, block);
    for (size_t i = 0; i < now; ++i) rows[i] = block[i].data();
    if (ps_process_cep(decoder_, rows, static_cast<int>(now), FALSE, FALSE) < 0) {
      throw std::runtime_error("the library cannot process audio");
    }
    frames += now;
    count -= now;
  }
}

std::string Decoder::hypothesis() const {
  const char *text = ps_get_hyp(decoder_, nullptr);
  return text == nullptr ? std::string() : std::string(text);
}

void Decoder::end() {
  ps_end_utt(decoder_);
}

std::vector<Segment> Decoder::segments() const {
  const double nat = std::log(kLogBase) * (1 << kScoreShift);
  std::vector<Segment> found;
  for (ps_seg_t *segment = ps_seg_iter(decoder_); segment != nullptr; segment = ps_seg_next(segment)) {
    const char *word = ps_seg_word(segment);
    if (word == nullptr || strcmp(word, "(NULL)") == 0) continue;
    int first = 0;
    int last = 0;
    int32 score = 0;
    ps_seg_frames(segment, &first, &last);
    ps_seg_prob(segment, &score, nullptr, nullptr);
    bool filler = word[0] == '<' || word[0] == '[' || (word[0] == '+' && word[1] != 0);
    found.push_back({word, filler, first, last, score * nat});
  }
  return found;
}

void Decoder::search_phones() {
  ps_activate_search(decoder_, kPhonesSearch);
}

void Decoder::search_words() {
  ps_activate_search(decoder_, files_.language_model.empty() ? kHintsSearch : kLanguageSearch);
}

void Decoder::set_means(const Cepstrum &means) {
  set_decoder_means(decoder_, means);
}

bool Decoder::is_reusable() const {
  return words_.size() < kMostWords;
}

}  // namespace quillbrook::pocketsphinx
