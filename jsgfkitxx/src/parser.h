#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "syntax.h"

namespace quillbrook::jsgf {

// Reads what follows the header of one file after another: one pass over the bytes, with a stack of the open groups.
// References stay unresolved.
class Parser {
public:
  // Adds a file. The source must outlive the syntax, whose names point into it. Throws std::runtime_error at the first
  // fault.
  void parse(std::string_view source, size_t body);

  Syntax &syntax() { return syntax_; }

  // Adds a token of an imported file to the tokens, unless an equal one is there.
  void list_imported(const ImportedToken &token);

private:
  struct OpenGroup {
    char closer;         // ')', ']' or, for the rule itself, ';'
    size_t offset;       // where it was opened
    bool has_item;       // the current alternative has one
    bool first;          // the current alternative is the first
    bool is_weighted;    // the first alternative had a weight
    bool can_be_spoken;  // a weight was above 0
  };

  void parse_grammar_declaration();
  void parse_imports();
  void parse_rule_definition();
  void parse_expansion();
  void parse_alternative_sets();
  void parse_rule_references();
  void parse_required_groupings();
  void parse_optional_groupings();
  void parse_unary_operators();
  void parse_tag();
  void parse_token();
  void parse_quoted_token();
  void parse_weight();

  void open_group(char closer, SymbolKind symbol);
  void close_group(SymbolKind symbol);
  void end_alternative();
  void add_token(std::string_view text);
  void list_token(std::string_view text, size_t first_symbol, size_t word_count);
  void add_symbol(SymbolKind kind, size_t value = 0) {
    syntax_.symbols.push_back({kind, static_cast<uint32_t>(value)});
  }

  void skip_blanks();
  bool take_keyword(std::string_view keyword);
  std::string_view take_name(bool is_import);
  bool at_end() const { return position_ >= source_.size(); }
  char peek(size_t ahead = 0) const { return position_ + ahead < source_.size() ? source_[position_ + ahead] : '\0'; }
  bool starts_comment(size_t at) const {
    return source_[at] == '/' && at + 1 < source_.size() && (source_[at + 1] == '/' || source_[at + 1] == '*');
  }
  void expect(char wanted, const char *purpose);
  [[noreturn]] void fail_expected(const std::string &wanted) const;

  std::string_view source_;
  size_t position_ = 0;
  Syntax syntax_;
  std::vector<OpenGroup> groups_;
  std::vector<bool> listed_;   // by word: it stands in Syntax::tokens
  Vocabulary listed_phrases_;  // tokens of several words that stand there
  std::string scratch_;
};

}  // namespace quillbrook::jsgf
