#include "match.h"

#include "text_words.h"

namespace quillbrook::jsgf {

Match::Match(const Program &program, std::string_view text, const MatchLimits &limits)
    : program_(program), meter_(limits), words_(counted<uint32_t>(meter_)) {
  words_.reserve(text.size() / 4 + 1);
  TextWords words(program.words, text);
  while (words.next()) {
    if (words.number() == Vocabulary::kUnknown) {
      return;
    }
    words_.push_back(words.number());
  }
  if (!words_.empty()) {
    chart_.emplace(program, words_, meter_);
  }
}

std::optional<Steps> Match::derive(uint32_t rule) {
  const Link entry = program_.rules[rule].entry;
  const uint32_t item = chart_ && entry.place != kNowhere ? chart_->item_at_start(entry.place) : 0;
  if (item == 0) {
    return std::nullopt;
  }
  return Walk(program_, *chart_, meter_).derive(entry, item);
}

}  // namespace quillbrook::jsgf
