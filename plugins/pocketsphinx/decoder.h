// One decoder of the library: an acoustic model with a grammar made of hints or with the language model.
//
// Used by one thread at a time. A decoder for hints is made without a dictionary and is given the words that it
// needs: that saves a third of the memory, and the same decoder can serve any list of hints.
#pragma once

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "front_end.h"
#include "hints.h"
#include "model.h"

struct ps_decoder_s;

namespace quillbrook::pocketsphinx {

// Keeps the library quiet, and keeps it from ending the process. One object, before any decoder and until after the
// last.
class Library {
public:
  Library();
  ~Library();
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;
};

// A stretch of frames that the search explains by one word (or phone), with its acoustic log-likelihood in nats,
// relative to the best-fitting state of the model in each frame.
struct Segment {
  std::string word;
  bool is_filler;  // silence or noise
  int first_frame;
  int last_frame;
  double score;
};

class Decoder {
public:
  // Takes 0.1 to 2 seconds. Throws std::runtime_error with a sentence for the operator.
  explicit Decoder(ModelFiles files);
  ~Decoder();
  Decoder(const Decoder &) = delete;
  Decoder &operator=(const Decoder &) = delete;

  const ModelFiles &files() const { return files_; }

  // For building a front end with the model's settings.
  cmd_ln_s *config() const;

  // Restricts it to these phrases; in a loop they may follow each other. Not to be called with no phrases.
  void set_hints(const Hints &hints, const Dictionary &dictionary, bool loop);

  // One utterance: begin, any number of process and hypothesis, end, and then segments.
  void begin();
  void process(const Cepstrum *frames, size_t count);
  std::string hypothesis() const;
  void end();
  std::vector<Segment> segments() const;

  // From the next begin() on, searches for any sequence of phones instead; and back.
  void search_phones();
  void search_words();

  // Cepstral means of the channel, which the decoder follows while it listens.
  void set_means(const Cepstrum &means);
  // Means to begin a call with: those of the recorded prompts, as the front end makes them.
  static const Cepstrum &usual_means();

  // False when it has been given so many words that a fresh one is better.
  bool is_reusable() const;

private:
  void add_words(const Hints &hints, const Dictionary &dictionary);

  ModelFiles files_;
  ps_decoder_s *decoder_ = nullptr;
  std::unordered_set<std::string> words_;  // given by add_words
};

}  // namespace quillbrook::pocketsphinx
