#include "viability.h"

#include <algorithm>
#include <string>

#include "chart.h"
#include "text_words.h"
#include "utf8.h"

namespace quillbrook::jsgf {

namespace {

class OpenText {
public:
  OpenText(const Program &program, std::string_view text, LastWord last_word, const MatchLimits &limits)
      : program_(program),
        meter_(limits),
        words_(counted<uint32_t>(meter_)),
        may_grow_(last_word == LastWord::kMayGrow && (text.empty() || static_cast<unsigned char>(text.back()) > ' ')) {
    words_.reserve(text.size() / 4 + 1);
    read(text, TextWords::Figures::kWholeIfKnown);
  }

  Viability look() {
    const bool is_complete = is_known_ && !words_.empty() && fits(Chart(program_, words_, meter_));
    if (can_go_on()) {
      return is_complete ? Viability::kCompleteSoFar : Viability::kBeginning;
    }
    return is_complete ? Viability::kComplete : Viability::kImpossible;
  }

private:
  // Adds words as far as the grammar has them; the last one is added anyway.
  void read(std::string_view text, TextWords::Figures figures) {
    TextWords words(program_.words, text, figures);
    while (words.next()) {
      if (!is_known_) {
        is_hopeless_ = words.is_first_of_written();
        has_gap_ = true;
      }
      if (is_hopeless_) {
        return;
      }
      if (words.is_first_of_written()) {
        written_begin_ = words_.size();
        written_.assign(words.written());
      }
      words_.push_back(words.number());
      last_.assign(words.word());
      last_is_one_figure_ = words.is_one_figure_of_many();
      is_known_ = is_known_ && words.number() != Vocabulary::kUnknown;
    }
  }

  bool can_go_on() {
    if (!has_gap_ && can_go_on_behind(last_, may_grow_ && !last_is_one_figure_)) {
      return true;
    }
    return may_grow_ && !is_hopeless_ && !words_.empty() && can_written_word_grow();
  }

  // What the last word as it's written can grow to: with what is still to come it may be read in another way.
  bool can_written_word_grow() {
    const bool was_taken_apart = words_.size() - written_begin_ != 1 || last_ != written_;
    const std::string written = written_;
    const size_t begin = written_begin_;
    words_.resize(begin);
    if (was_taken_apart) {
      words_.push_back(Vocabulary::kUnknown);
      if (can_go_on_behind(written, true)) {
        return true;
      }
      words_.pop_back();
    }
    const size_t figures = last_figures(written);
    if (figures == written.size()) {
      return false;
    }
    is_known_ = true;
    has_gap_ = false;
    read(written.substr(0, figures), TextWords::Figures::kAlwaysApart);
    return is_known_ && can_figures_grow(written.substr(figures));
  }

  // "12" may grow to "12" and more behind it, to a longer word, and to "123", of which each figure counts for itself.
  bool can_figures_grow(const std::string &figures) {
    words_.push_back(Vocabulary::kUnknown);
    if (can_go_on_behind(figures, true)) {
      return true;
    }
    words_.pop_back();
    return read_singly(figures) && can_go_on_behind(last_, false);
  }

  // Whether the grammar has all of the figures.
  bool read_singly(const std::string &figures) {
    size_t length = 0;
    for (size_t at = 0; at < figures.size(); at += length) {
      decode_utf8(figures, at, length);
      last_ = figures.substr(at, length);
      words_.push_back(program_.words.find(last_));
      if (words_.back() == Vocabulary::kUnknown) {
        return false;
      }
    }
    return true;
  }

  // The last one of the words is looked at as `last`.
  bool can_go_on_behind(std::string_view last, bool may_grow) {
    const PrefixIndex &index = program_.prefix_index();
    if (words_.empty()) {
      return any_entry([&](uint32_t entry) { return index.can_speak(entry); });
    }
    OpenEnd end{index, index.places_of(last), {}};
    if (may_grow) {
      end.longer = index.places_of_longer(last);
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
  std::string written_;       // what the last word was taken out of, or itself
  size_t written_begin_ = 0;  // its first word
  const bool may_grow_;
  bool is_known_ = true;      // all words so far
  bool has_gap_ = false;      // a word that isn't the last one is unknown ...
  bool is_hopeless_ = false;  // ... and isn't a part of the last one as it's written
  bool last_is_one_figure_ = false;
};

}  // namespace

Viability viability_of(const Program &program, std::string_view text, LastWord last_word, const MatchLimits &limits) {
  return OpenText(program, text, last_word, limits).look();
}

}  // namespace quillbrook::jsgf
