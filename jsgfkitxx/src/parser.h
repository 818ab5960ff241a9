#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "syntax.h"

namespace jsgf {

// Reads what follows the header: one pass over the bytes, with a stack of the open groups. References stay unresolved.
// Throws std::runtime_error at the first fault.
class Parser {
public:
  // The source must outlive the syntax, whose names point into it.
  Parser(std::string_view source, size_t body) : source_(source), position_(body) {}

  Syntax parse();

private:
  struct OpenGroup {
    char closer;       // ')', ']' or, for the rule itself, ';'
    size_t offset;     // where it was opened
    bool hasItem;      // the current alternative has one
    bool first;        // the current alternative is the first
    bool isWeighted;   // the first alternative had a weight
    bool canBeSpoken;  // a weight was above 0
  };

  void parseGrammarDeclaration();
  void parseImports();
  void parseRuleDefinition();
  void parseExpansion();
  void parseAlternativeSets();
  void parseRuleReferences();
  void parseRequiredGroupings();
  void parseOptionalGroupings();
  void parseUnaryOperators();
  void parseTag();
  void parseToken();
  void parseQuotedToken();
  void parseWeight();

  void openGroup(char closer, SymbolKind symbol);
  void closeGroup(SymbolKind symbol);
  void endAlternative();
  void addToken(std::string_view text);
  void listToken(std::string_view text, size_t firstSymbol, size_t wordCount);
  void addSymbol(SymbolKind kind, size_t value = 0) { syntax_.symbols.push_back({kind, static_cast<uint32_t>(value)}); }

  void skipBlanks();
  bool takeKeyword(std::string_view keyword);
  std::string_view takeName(bool isImport);
  bool atEnd() const { return position_ >= source_.size(); }
  char peek(size_t ahead = 0) const { return position_ + ahead < source_.size() ? source_[position_ + ahead] : '\0'; }
  bool startsComment(size_t at) const {
    return source_[at] == '/' && at + 1 < source_.size() && (source_[at + 1] == '/' || source_[at + 1] == '*');
  }
  void expect(char wanted, const char *purpose);
  [[noreturn]] void failExpected(const std::string &wanted) const;

  const std::string_view source_;
  size_t position_;
  Syntax syntax_;
  std::vector<OpenGroup> groups_;
  std::vector<bool> listed_;  // by word: it stands in Syntax::tokens
  Vocabulary listedPhrases_;  // tokens of several words that stand there
  std::string scratch_;
};

}  // namespace jsgf
