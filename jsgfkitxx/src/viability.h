#pragma once

#include <string_view>

#include "jsgfkitxx.h"
#include "meter.h"
#include "program.h"

namespace quillbrook::jsgf {

// What a text is to all public rules of a program together. Throws MatchGaveUp.
Viability viability_of(const Program &program, std::string_view text, LastWord last_word,
                       const MatchLimits &limits = {});

}  // namespace quillbrook::jsgf
