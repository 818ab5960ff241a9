#include "viability.h"

#include <algorithm>
#include <optional>
#include <string>

#include "chart.h"
#include "word_splitter.h"

namespace quillbrook::jsgf {

namespace {

class OpenText {
public:
  OpenText(const Program &program, std::string_view text, const MatchLimits &limits)
      : program_(program),
        meter_(limits),
        words_(counted<uint32_t>(meter_)),
        ends_in_blank_(!text.empty() && static_cast<unsigned char>(text.back()) <= ' ') {
    read(text);
  }

  Viability look(LastWord last_word) {
    if (!begins_with_known_words_) {
      return Viability::kImpossible;
    }
    const bool is_complete =
        !words_.empty() && words_.back() != Vocabulary::kUnknown && fits(Chart(program_, words_, meter_));
    if (can_go_on(last_word == LastWord::kMayGrow && !ends_in_blank_)) {
      return is_complete ? Viability::kCompleteSoFar : Viability::kBeginning;
    }
    return is_complete ? Viability::kComplete : Viability::kImpossible;
  }

private:
  void read(std::string_view text) {
    words_.reserve(text.size() / 4 + 1);
    WordSplitter splitter(text);
    while (splitter.next()) {
      const uint32_t word = program_.words.find(splitter.word());
      if (word == Vocabulary::kUnknown && splitter.marks_only()) {
        continue;
      }
      if (!words_.empty() && words_.back() == Vocabulary::kUnknown) {
        begins_with_known_words_ = false;
        return;
      }
      words_.push_back(word);
      last_.assign(splitter.word());
    }
  }

  bool can_go_on(bool may_grow) {
    const PrefixIndex &index = program_.prefix_index();
    if (words_.empty()) {
      return any_entry([&](uint32_t entry) { return index.can_speak(entry); });
    }
    OpenEnd end{index, index.places_of(last_), {}};
    if (may_grow) {
      end.longer = index.places_of_longer(last_);
    }
    return fits(Chart(program_, words_, end, meter_));
  }

  bool fits(const Chart &chart) const {
    return any_entry([&](uint32_t entry) { return chart.item_at_start(entry) != 0; });
  }

  template <typename Test>
  bool any_entry(const Test &test) const {
    return std::any_of(program_.rules.begin(), program_.rules.end(),
                       [&](const ProgramRule &rule) { return rule.entry.place != kNowhere && test(rule.entry.place); });
  }

  const Program &program_;
  Meter meter_;
  CountedVector<uint32_t> words_;  // the last one may be unknown
  std::string last_;
  const bool ends_in_blank_;
  bool begins_with_known_words_ = true;
};

}  // namespace

Viability viability_of(const Program &program, std::string_view text, LastWord last_word, const MatchLimits &limits) {
  return OpenText(program, text, limits).look(last_word);
}

}  // namespace quillbrook::jsgf
