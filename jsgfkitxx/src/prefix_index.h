#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace quillbrook::jsgf {

class Program;

// A part of PrefixIndex::word_places.
struct PlaceRange {
  const uint32_t *begin = nullptr;
  const uint32_t *end = nullptr;
};

// What it takes to look at a text that isn't at its end yet: where each word stands in a program, and what can be
// spoken from each place on. Never changes once it's built.
class PrefixIndex {
public:
  explicit PrefixIndex(const Program &program);

  // The places of one word ...
  PlaceRange places_of(std::string_view word) const;
  // ... and of all longer words that begin with it.
  PlaceRange places_of_longer(std::string_view word) const;

  // The rest of the place's rule, or of the text, can be spoken at all ...
  bool can_end(uint32_t place) const { return (outlook_[place] & kCanEnd) != 0; }
  // ... with a word or more ...
  bool can_speak(uint32_t place) const { return (outlook_[place] & kCanSpeak) != 0; }
  // ... and by saying nothing.
  bool can_be_silent(uint32_t place) const { return (outlook_[place] & kCanBeSilent) != 0; }

  // Calls `visit(place)` for each call of a callee.
  template <typename Visit>
  void for_each_call(uint32_t callee, const Visit &visit) const {
    for (uint32_t i = calls_begin_[callee]; i < calls_begin_[callee + 1]; ++i) {
      visit(call_places_[i]);
    }
  }

private:
  static constexpr uint8_t kCanEnd = 1, kCanSpeak = 2, kCanBeSilent = 4;

  void sort_words();
  void sort_places();
  void find_outlooks();
  void find_outlooks_of(uint32_t component, uint32_t begin, uint32_t end);
  void mark(uint32_t place, uint8_t outlook);
  void spread(uint8_t outlook);
  uint32_t rank_of(std::string_view word) const;
  PlaceRange places_of_ranks(uint32_t begin, uint32_t end) const;

  const Program &program_;
  std::vector<uint32_t> words_;        // by rank in the order of their bytes
  std::vector<uint32_t> words_begin_;  // by rank: in word_places_
  std::vector<uint32_t> word_places_;
  std::vector<uint32_t> calls_begin_;  // by callee: in call_places_
  std::vector<uint32_t> call_places_;
  std::vector<uint8_t> outlook_;                 // by place
  std::vector<uint32_t> behind_begin_, behind_;  // words by the place behind them, while the outlooks are found
  std::vector<uint32_t> open_;
};

}  // namespace quillbrook::jsgf
