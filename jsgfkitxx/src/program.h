#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "jsgfkitxx.h"
#include "prefix_index.h"
#include "references.h"
#include "syntax.h"
#include "vocabulary.h"

namespace quillbrook::jsgf {

constexpr uint32_t kNowhere = UINT32_MAX;

// Where a derivation goes on, and the tags that it gives on the way. Tags stand left of the words that they could also
// stand behind: a phrase's tag is given where the phrase begins, so that equal ends of phrases share their places.
struct Link {
  uint32_t place = kNowhere;  // kNowhere: nothing can be spoken this way
  uint32_t tags = 0;          // first cell in Program::tagCells, 0 for none
};

inline bool operator==(Link a, Link b) {
  return a.place == b.place && a.tags == b.tags;
}

enum class PlaceKind : uint32_t {
  kWord,          // consumes the word `value`, goes to `next`
  kAlternatives,  // goes to one of `next` branches from `value` on, the first possible one
  kCall,          // goes to the callee of calls[value], and behind its end to the call's `back`
  kEntry,         // of callees[next]; goes to the branch `value`
  kJump,  // right recursion with tags behind it: goes to `next`, and gives the tags from cell `value` at the end
  kEnd,   // of the component `value`, or of the whole text
};

struct Place {
  uint32_t kind : 3;
  uint32_t behind_word : 1;  // some word's `next` is here
  uint32_t value : 28;
  uint32_t next;
};

struct TagCell {
  uint32_t tag;
  uint32_t next;  // 0 at the end
};

// A rule that several places share.
struct Callee {
  uint32_t entry;
  uint32_t component;   // index in Program::ends
  bool can_be_empty;    // can be spoken by saying nothing
  bool empty_has_tags;  // ... and may give tags then
};

struct Call {
  uint32_t callee;
  Link back;
  uint32_t back_number = 0;  // of the place behind it among all such places
};

// A way to a place that takes no word: from the branch of an alternative, an entry, a jump, or back from a call.
struct Edge {
  uint32_t source;
  uint32_t branch;  // within the source, 0 when it has one way only
};

struct ProgramRule {
  bool is_public = false;
  Link entry;  // of a public rule
};

// How rules that are referred to get into a program. All give the same matches.
enum class RuleSharing {
  kWhereItPays,  // copied while the program stays small, else called
  kNowhere,      // always copied, where the language allows it
  kEverywhere,   // always called
};

// A grammar made ready to match: an automaton over words with calls. Nobody sees it change once it's built.
class Program {
public:
  // Throws std::runtime_error for what isn't a legal grammar.
  // Imports are followed when folders are given.
  static std::shared_ptr<const Program> load(std::istream &in, RuleSharing sharing = RuleSharing::kWhereItPays,
                                             const ImportFolders *imports = nullptr);

  // The one place that consumes `word` and goes on at `next`; kNowhere when there is none.
  uint32_t word_before(uint32_t next, uint32_t word) const;

  std::string source;
  std::vector<std::string> imported_files;
  std::string_view grammar_name;
  RuleIndex rule_index;
  std::vector<ProgramRule> rules;  // in the order of the file
  Vocabulary words;
  TextList tokens;
  TextList tags;

  std::vector<Place> places;
  std::vector<Link> branches;
  std::vector<TagCell> tag_cells;
  std::vector<Callee> callees;
  std::vector<Call> calls;
  uint32_t back_count = 0;        // places behind calls
  uint32_t callees_end = 1;       // the places from 1 on that come before this one are within callees
  std::vector<uint32_t> ends;     // by component: its kEnd; 0 is the end of the text
  std::vector<uint32_t> ranks;    // by place, when there are calls: above those that it goes to without a word, and a
                                  // call above its callee; arbitrary within cycles
  bool has_empty_cycles = false;  // a derivation could come back to a place without a word

  // Backwards: ways into a place, edges[edgesBegin[place]] to edges[edgesBegin[place + 1]].
  std::vector<uint32_t> edges_begin;
  std::vector<Edge> edges;
  std::vector<uint32_t> word_slots;  // open addressing by `next` and `word`, a power of two: place + 1, or 0

  // Built when it's first asked for: most programs only ever meet whole texts.
  const PrefixIndex &prefix_index() const;

  bool is_within_callee(uint32_t place) const { return place != 0 && place < callees_end; }

  size_t word_slot(uint32_t next, uint32_t word) const {
    const uint64_t key = (static_cast<uint64_t>(next) << 32U | word) * 0x9E3779B97F4A7C15U;
    return static_cast<size_t>(key >> 32U);
  }

private:
  mutable std::once_flag prefix_index_built_;
  mutable std::optional<PrefixIndex> prefix_index_;
};

inline uint32_t Program::word_before(uint32_t next, uint32_t word) const {
  const size_t mask = word_slots.size() - 1;
  for (size_t slot = word_slot(next, word) & mask;; slot = (slot + 1) & mask) {
    if (word_slots[slot] == 0) {
      return kNowhere;
    }
    const Place &place = places[word_slots[slot] - 1];
    if (place.value == word && place.next == next) {
      return word_slots[slot] - 1;
    }
  }
}

}  // namespace quillbrook::jsgf
