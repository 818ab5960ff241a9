#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "chart.h"
#include "meter.h"
#include "program.h"
#include "walk.h"

namespace quillbrook::jsgf {

// One text against the public rules of a program. The limits are for all that is done with it. Throws MatchGaveUp.
class Match {
public:
  // The program must outlive the match.
  Match(const Program &program, std::string_view text, const MatchLimits &limits = {});

  // The first derivation of the text by a public rule; nothing when the rule is private or the text doesn't fit. It
  // must not outlive the match.
  std::optional<Steps> derive(uint32_t rule);

  // Counts what is made out of a derivation, too.
  void take(size_t bytes) { meter_.take(bytes); }

private:
  const Program &program_;
  Meter meter_;
  CountedVector<uint32_t> words_;
  std::optional<Chart> chart_;  // none when a word is unknown or there are no words
};

}  // namespace quillbrook::jsgf
