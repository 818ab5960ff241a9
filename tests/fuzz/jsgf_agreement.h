#pragma once

#include <algorithm>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "fuzzed.h"
#include "match.h"
#include "program.h"
#include "viability.h"

namespace jsgf_fuzz {

using fuzzed::require;

// A null pointer for a grammar that is refused, with a reason that names its line.
inline std::shared_ptr<const quillbrook::jsgf::Program> load(const std::string &source,
                                                             quillbrook::jsgf::RuleSharing sharing) {
  std::istringstream in(source);
  try {
    return quillbrook::jsgf::Program::load(in, sharing);
  } catch (const std::runtime_error &error) {
    require(std::string(error.what()).compare(0, 5, "line ") == 0, "a reason without its line");
    return nullptr;
  }
}

// Matches the text (or, without one, the first words of the grammar) with rules shared in two ways, which must agree.
inline void check(const std::string &source, std::string text) {
  const auto usual = load(source, quillbrook::jsgf::RuleSharing::kWhereItPays);
  const auto called = load(source, quillbrook::jsgf::RuleSharing::kEverywhere);
  require((usual == nullptr) == (called == nullptr), "sharing decides whether a grammar loads");
  if (usual == nullptr) {
    return;
  }
  for (uint32_t token = 0; text.empty() && token < usual->tokens.size() && token < 8; ++token) {
    text += std::string(usual->tokens[token]) + " ";
  }
  const auto viability = [&](const quillbrook::jsgf::Program &program) {
    return quillbrook::jsgf::viability_of(program, text, quillbrook::jsgf::LastWord::kMayGrow);
  };
  require(viability(*usual) == viability(*called), "sharing decides what can follow a text");
  quillbrook::jsgf::Match usualMatch(*usual, text);
  quillbrook::jsgf::Match calledMatch(*called, text);
  for (uint32_t rule = 0; rule < usual->rules.size(); ++rule) {
    auto expected = usualMatch.derive(rule);
    auto got = calledMatch.derive(rule);
    require(expected.has_value() == got.has_value(), "sharing decides whether a text matches");
    if (expected) {
      // Where a word stands among the tags depends on the sharing; the order of the tags doesn't.
      for (auto *steps : {&*expected, &*got}) {
        steps->erase(std::remove(steps->begin(), steps->end(), quillbrook::jsgf::kWordStep), steps->end());
      }
      require(*expected == *got, "sharing decides the tags");
    }
  }
}

}  // namespace jsgf_fuzz
