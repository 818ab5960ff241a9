#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "chart.h"
#include "program.h"
#include "walk.h"

namespace quillbrook::jsgf {

// One text against the public rules of a program.
class Match {
public:
  // The program must outlive the match.
  Match(const Program &program, std::string_view text);

  // The first derivation of the text by a public rule; nothing when the rule is private or the text doesn't fit.
  std::optional<std::vector<Step>> derive(uint32_t rule) const;

private:
  const Program &program_;
  std::vector<uint32_t> words_;
  std::optional<Chart> chart_;  // none when a word is unknown or there are no words
};

}  // namespace quillbrook::jsgf
