#include "prefix_index.h"

#include <algorithm>
#include <numeric>

#include "program.h"

namespace quillbrook::jsgf {

PrefixIndex::PrefixIndex(const Program &program) : program_(program) {
  sort_words();
  sort_places();
  find_outlooks();
}

void PrefixIndex::sort_words() {
  words_.resize(program_.words.size());
  std::iota(words_.begin(), words_.end(), 0);
  std::sort(words_.begin(), words_.end(),
            [&](uint32_t a, uint32_t b) { return program_.words[a] < program_.words[b]; });
}

void PrefixIndex::sort_places() {
  std::vector<uint32_t> ranks(words_.size());
  for (uint32_t rank = 0; rank < words_.size(); ++rank) {
    ranks[words_[rank]] = rank;
  }
  words_begin_.assign(words_.size() + 2, 0);
  calls_begin_.assign(program_.callees.size() + 2, 0);
  behind_begin_.assign(program_.places.size() + 2, 0);
  const auto for_each_place = [&](const auto &visit_word, const auto &visit_call) {
    for (uint32_t place = 0; place < program_.places.size(); ++place) {
      const Place &at = program_.places[place];
      if (static_cast<PlaceKind>(at.kind) == PlaceKind::kWord) {
        visit_word(place, ranks[at.value], at.next);
      } else if (static_cast<PlaceKind>(at.kind) == PlaceKind::kCall) {
        visit_call(place, program_.calls[at.value].callee);
      }
    }
  };
  for_each_place(
      [&](uint32_t, uint32_t rank, uint32_t next) {
        ++words_begin_[rank + 2];
        ++behind_begin_[next + 2];
      },
      [&](uint32_t, uint32_t callee) { ++calls_begin_[callee + 2]; });
  for (std::vector<uint32_t> *begin : {&words_begin_, &calls_begin_, &behind_begin_}) {
    std::partial_sum(begin->begin(), begin->end(), begin->begin());
  }
  word_places_.resize(words_begin_.back());
  behind_.resize(behind_begin_.back());
  call_places_.resize(calls_begin_.back());
  for_each_place(
      [&](uint32_t place, uint32_t rank, uint32_t next) {
        word_places_[words_begin_[rank + 1]++] = place;
        behind_[behind_begin_[next + 1]++] = place;
      },
      [&](uint32_t place, uint32_t callee) { call_places_[calls_begin_[callee + 1]++] = place; });
}

// A component's callees come before those that call them, and what isn't within a callee comes last.
void PrefixIndex::find_outlooks() {
  outlook_.assign(program_.places.size(), 0);
  for (uint32_t component = 1; component < program_.ends.size(); ++component) {
    const bool is_last = component + 1 == program_.ends.size();
    find_outlooks_of(component, program_.ends[component],
                     is_last ? program_.callees_end : program_.ends[component + 1]);
  }
  find_outlooks_of(0, program_.callees_end, static_cast<uint32_t>(program_.places.size()));
  behind_begin_ = {};
  behind_ = {};
  open_ = {};
}

void PrefixIndex::find_outlooks_of(uint32_t component, uint32_t begin, uint32_t end) {
  for (const uint8_t outlook : {kCanEnd, kCanBeSilent}) {
    mark(program_.ends[component], outlook);
    spread(outlook);
  }
  for (uint32_t place = begin; place < end; ++place) {
    const Place &at = program_.places[place];
    const auto kind = static_cast<PlaceKind>(at.kind);
    const Call *call = kind == PlaceKind::kCall ? &program_.calls[at.value] : nullptr;
    if ((kind == PlaceKind::kWord && can_end(at.next)) ||
        (call != nullptr && can_speak(program_.callees[call->callee].entry) && can_end(call->back.place))) {
      mark(place, kCanSpeak);
    }
  }
  spread(kCanSpeak);
}

void PrefixIndex::mark(uint32_t place, uint8_t outlook) {
  if ((outlook_[place] & outlook) == 0) {
    outlook_[place] |= outlook;
    open_.push_back(place);
  }
}

// Gives an outlook to all that leads to the places that were marked with it.
void PrefixIndex::spread(uint8_t outlook) {
  while (!open_.empty()) {
    const uint32_t target = open_.back();
    open_.pop_back();
    for (uint32_t i = program_.edges_begin[target]; i < program_.edges_begin[target + 1]; ++i) {
      const uint32_t source = program_.edges[i].source;
      const Place &place = program_.places[source];
      if (static_cast<PlaceKind>(place.kind) == PlaceKind::kCall) {
        const Callee &callee = program_.callees[program_.calls[place.value].callee];
        if (outlook == kCanBeSilent ? !callee.can_be_empty : !can_end(callee.entry)) {
          continue;
        }
      }
      mark(source, outlook);
    }
    for (uint32_t i = behind_begin_[target]; outlook == kCanEnd && i < behind_begin_[target + 1]; ++i) {
      mark(behind_[i], outlook);
    }
  }
}

uint32_t PrefixIndex::rank_of(std::string_view word) const {
  const auto found = std::lower_bound(words_.begin(), words_.end(), word, [&](uint32_t known, std::string_view wanted) {
    return program_.words[known] < wanted;
  });
  return static_cast<uint32_t>(found - words_.begin());
}

// Words that begin alike stand together, the shortest first.
PlaceRange PrefixIndex::places_of_longer(std::string_view word) const {
  const auto first = words_.begin() + rank_of(word);
  const auto end = std::partition_point(
      first, words_.end(), [&](uint32_t known) { return program_.words[known].substr(0, word.size()) == word; });
  const bool has_itself = first != end && program_.words[*first] == word;
  return places_of_ranks(static_cast<uint32_t>(first - words_.begin()) + (has_itself ? 1 : 0),
                         static_cast<uint32_t>(end - words_.begin()));
}

PlaceRange PrefixIndex::places_of(std::string_view word) const {
  const uint32_t rank = rank_of(word);
  const bool is_known = rank < words_.size() && program_.words[words_[rank]] == word;
  return places_of_ranks(rank, rank + (is_known ? 1 : 0));
}

PlaceRange PrefixIndex::places_of_ranks(uint32_t begin, uint32_t end) const {
  return {word_places_.data() + words_begin_[begin], word_places_.data() + words_begin_[end]};
}

}  // namespace quillbrook::jsgf
