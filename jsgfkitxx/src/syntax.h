#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "vocabulary.h"

namespace quillbrook::jsgf {

// A grammar as it is written, flat: the symbols of all rules in the order of the file. No symbol owns another; a pass
// runs over them with an index and, where groups matter, a stack of its own.
enum class SymbolKind : uint32_t {
  kWord,       // value: number in Syntax::words
  kReference,  // value: index in Syntax::references
  kNull,
  kVoid,
  kTag,     // value: index in Syntax::tags; belongs to the item before it
  kStar,    // belongs to the item before it
  kPlus,    // belongs to the item before it
  kBar,     // between two alternatives
  kWeight,  // value: index in Syntax::weights; first in its alternative
  kGroupOpen,
  kGroupClose,
  kOptionalOpen,
  kOptionalClose,
  kRuleOpen,  // value: index in Syntax::rules
};

struct Symbol {
  SymbolKind kind;
  uint32_t value;
};

struct Import {
  static constexpr uint32_t kNotFollowed = UINT32_MAX;

  std::string_view name;  // of a rule, or of a grammar and ".*"; in the source
  uint32_t offset;
  uint32_t file = kNotFollowed;  // set by follow_imports
};

// The file that a grammar is loaded from, or one that it imports.
struct GrammarFile {
  std::string_view source;
  std::string_view grammar_name;  // full, in the source
  std::vector<Import> imports;
  uint32_t first_rule = 0;
  uint32_t rules_end = 0;
  std::string path = {};       // of an imported file
  uint32_t importer = 0;       // the file that imports it first, and where
  uint32_t import_offset = 0;  // in that
};

struct RuleDefinition {
  std::string_view name;  // simple, in the source
  uint32_t offset;        // of the name in the source
  uint32_t file;
  bool is_public;
  uint32_t begin;  // of its symbols: the kRuleOpen
  uint32_t end;
  uint32_t first_reference;  // its references are those from here to the next rule's
};

struct Reference {
  std::string_view name;  // as written, in the source
  uint32_t offset;
  uint32_t rule;        // the one that it stands in
  uint32_t target = 0;  // the one that it names; set by resolveReferences
  bool last = false;    // nothing but tags follows it in its rule; set by resolveReferences
  bool tagged = false;  // tags follow it; set by resolveReferences
};

// Texts one behind the other.
class TextList {
public:
  uint32_t add(std::string_view text) {
    text_.append(text);
    ends_.push_back(static_cast<uint32_t>(text_.size()));
    return static_cast<uint32_t>(ends_.size() - 1);
  }
  std::string_view operator[](uint32_t index) const {
    const uint32_t begin = index == 0 ? 0 : ends_[index - 1];
    return std::string_view(text_).substr(begin, ends_[index] - begin);
  }
  uint32_t size() const { return static_cast<uint32_t>(ends_.size()); }

private:
  std::string text_;
  std::vector<uint32_t> ends_;
};

// A token of an imported file. Whether it counts depends on whether its rule is needed.
struct ImportedToken {
  uint32_t rule;
  uint32_t text;          // in Syntax::imported_texts
  uint32_t first_symbol;  // of its words
  uint32_t word_count;
};

struct Syntax {
  std::vector<GrammarFile> files;  // the first one is what is loaded, the others what it imports
  std::vector<Symbol> symbols;
  std::vector<RuleDefinition> rules;
  std::vector<Reference> references;
  std::vector<double> weights;
  TextList tags;
  TextList tokens;  // each once, as written
  std::vector<ImportedToken> imported_tokens;
  TextList imported_texts;
  Vocabulary words;
};

}  // namespace quillbrook::jsgf
