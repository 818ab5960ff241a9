#include "parser.h"

#include <charconv>
#include <system_error>
#include <utility>

#include "refusal.h"
#include "word_splitter.h"

namespace jsgf {

namespace {

bool isWhiteSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

bool isOneOf(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

// All that ends a plain token, but for the start of a comment.
bool endsToken(char c) {
  return isWhiteSpace(c) || isOneOf(c, "\";=|*+<>()[]{}");
}

// The characters of a simple rule name. Bytes above ASCII are letters and digits of other scripts.
bool isNameCharacter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  const unsigned lower = byte | 0x20U;
  return byte >= 0x80 || (lower >= 'a' && lower <= 'z') || (byte >= '0' && byte <= '9') ||
         (byte != 0 && isOneOf(c, "_$+-:;,=|/\\()[]@#%!^&~"));
}

}  // namespace

Syntax Parser::parse() {
  parseGrammarDeclaration();
  parseImports();
  for (skipBlanks(); !atEnd(); skipBlanks()) {
    parseRuleDefinition();
  }
  return std::move(syntax_);
}

void Parser::failExpected(const std::string &wanted) const {
  refuse(source_, position_, "expected " + wanted + ", found " + describeCharacter(source_, position_));
}

void Parser::expect(char wanted, const char *purpose) {
  skipBlanks();
  if (atEnd() || peek() != wanted) {
    failExpected(std::string("'") + wanted + "' " + purpose);
  }
  ++position_;
}

void Parser::skipBlanks() {
  for (;;) {
    while (!atEnd() && isWhiteSpace(peek())) {
      ++position_;
    }
    if (atEnd() || !startsComment(position_)) {
      return;
    }
    const bool toLineEnd = peek(1) == '/';
    const size_t end = toLineEnd ? source_.find_first_of("\r\n", position_) : source_.find("*/", position_ + 2);
    if (end == std::string_view::npos && !toLineEnd) {
      refuse(source_, position_, "expected '*/' to close the comment, found the end of the file");
    }
    position_ = end == std::string_view::npos ? source_.size() : end + (toLineEnd ? 0 : 2);
  }
}

bool Parser::takeKeyword(std::string_view keyword) {
  skipBlanks();
  const size_t end = position_ + keyword.size();
  if (source_.compare(position_, keyword.size(), keyword) != 0 ||
      (end < source_.size() && !endsToken(source_[end]) && !startsComment(end))) {
    return false;
  }
  position_ = end;
  return true;
}

void Parser::parseGrammarDeclaration() {
  if (!takeKeyword("grammar")) {
    failExpected("'grammar' and the grammar's name");
  }
  skipBlanks();
  const size_t begin = position_;
  size_t simple = begin;
  while (!atEnd() && peek() != ';' && !startsComment(position_) && (peek() == '.' || isNameCharacter(peek()))) {
    if (peek() == '.') {
      if (position_ == simple) {
        break;
      }
      simple = position_ + 1;
    }
    ++position_;
  }
  if (position_ == simple) {
    failExpected("the grammar's name");
  }
  syntax_.grammarName = source_.substr(begin, position_ - begin);
  expect(';', "behind the grammar's name");
}

// A name in angle brackets, at '<'. Only an import may end in ".*".
std::string_view Parser::takeName(bool isImport) {
  expect('<', "and a rule name");
  const size_t begin = position_;
  size_t simple = begin;
  for (; !atEnd() && peek() != '>'; ++position_) {
    if (isImport && peek() == '*' && position_ == simple && peek(1) == '>') {
      continue;
    }
    const bool isDot = peek() == '.' && position_ > simple;
    if (!isDot && !isNameCharacter(peek())) {
      failExpected("a character of a rule name or '>'");
    }
    if (isDot) {
      simple = position_ + 1;
    }
  }
  if (atEnd() || position_ == simple) {
    failExpected(atEnd() ? "'>' behind the rule name" : "a rule name");
  }
  return source_.substr(begin, position_++ - begin);
}

void Parser::parseImports() {
  while (takeKeyword("import")) {
    skipBlanks();
    const size_t offset = position_;
    const std::string_view name = takeName(true);
    if (name.find('.') == std::string_view::npos) {
      refuse(source_, offset, "expected the grammar's name and a dot in the import <" + std::string(name) + ">");
    }
    syntax_.imports.push_back(name);
    expect(';', "behind the import");
  }
}

void Parser::parseRuleDefinition() {
  const bool isPublic = takeKeyword("public");
  skipBlanks();
  if (atEnd() || peek() != '<') {
    failExpected(isPublic ? "'<' and a rule name" : "'public' or '<' and a rule name");
  }
  const size_t offset = position_ + 1;
  const std::string_view name = takeName(false);
  if (name == "NULL" || name == "VOID" || name.find('.') != std::string_view::npos) {
    refuse(source_, offset, "expected a simple rule name to define, found <" + std::string(name) + ">");
  }
  expect('=', "behind the rule's name");
  syntax_.rules.push_back({name, static_cast<uint32_t>(offset), isPublic, static_cast<uint32_t>(syntax_.symbols.size()),
                           0, static_cast<uint32_t>(syntax_.references.size())});
  parseExpansion();
  syntax_.rules.back().end = static_cast<uint32_t>(syntax_.symbols.size());
}

void Parser::parseExpansion() {
  addSymbol(SymbolKind::kRuleOpen, syntax_.rules.size() - 1);
  groups_.push_back({';', position_, false, true, false, false});
  parseWeight();
  for (;;) {
    skipBlanks();
    if (atEnd()) {
      failExpected(std::string("'") + groups_.back().closer + "'");
    }
    switch (peek()) {
      case ';':
        if (groups_.size() > 1) {
          failExpected(std::string("'") + groups_.back().closer + "' to close the group");
        }
        endAlternative();
        groups_.pop_back();
        ++position_;
        return;
      case '|':
        parseAlternativeSets();
        break;
      case '<':
        parseRuleReferences();
        break;
      case '(':
      case ')':
        parseRequiredGroupings();
        break;
      case '[':
      case ']':
        parseOptionalGroupings();
        break;
      case '*':
      case '+':
      case '{':
        parseUnaryOperators();
        break;
      case '"':
        parseQuotedToken();
        break;
      case '=':
      case '>':
      case '}':
        failExpected("';' to end the rule or an item of it");
      default:
        parseToken();
        break;
    }
  }
}

// An alternative's end: at '|' or at what closes the set.
void Parser::endAlternative() {
  OpenGroup &group = groups_.back();
  if (!group.hasItem) {
    failExpected("a token, a rule name or a group");
  }
  if (peek() != '|' && group.isWeighted && !group.canBeSpoken) {
    refuse(source_, position_, "expected a weight above 0 on one of the alternatives");
  }
}

void Parser::parseAlternativeSets() {
  endAlternative();
  ++position_;
  groups_.back().hasItem = false;
  groups_.back().first = false;
  addSymbol(SymbolKind::kBar);
  parseWeight();
}

// At the start of an alternative.
void Parser::parseWeight() {
  skipBlanks();
  OpenGroup &group = groups_.back();
  const bool isWeighted = peek() == '/';
  if (!group.first && isWeighted != group.isWeighted) {
    failExpected(isWeighted ? "no weight, since the first alternative has none"
                            : "a weight, since the first alternative has one");
  }
  group.isWeighted = isWeighted;
  if (!isWeighted) {
    return;
  }
  const size_t close = source_.find('/', position_ + 1);
  if (close == std::string_view::npos) {
    refuse(source_, position_, "expected '/' to close the weight, found the end of the file");
  }
  std::string_view text = source_.substr(position_ + 1, close - position_ - 1);
  while (!text.empty() && isWhiteSpace(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && isWhiteSpace(text.back())) {
    text.remove_suffix(1);
  }
  if (!text.empty() && isOneOf(text.back(), "fFdD")) {
    text.remove_suffix(1);
  }
  double weight = 0;
  const bool isNumber = !text.empty() && (isOneOf(text.front(), "0123456789."));
  const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), weight);
  if (!isNumber || fault != std::errc() || end != text.data() + text.size()) {
    refuse(source_, position_, "expected a weight of 0 or more between the slashes");
  }
  group.canBeSpoken = group.canBeSpoken || weight > 0;
  addSymbol(SymbolKind::kWeight, syntax_.weights.size());
  syntax_.weights.push_back(weight);
  position_ = close + 1;
}

void Parser::parseRuleReferences() {
  const size_t offset = position_;
  const std::string_view name = takeName(false);
  groups_.back().hasItem = true;
  if (name == "NULL" || name == "VOID") {
    addSymbol(name == "NULL" ? SymbolKind::kNull : SymbolKind::kVoid);
    return;
  }
  addSymbol(SymbolKind::kReference, syntax_.references.size());
  Reference reference{};
  reference.name = name;
  reference.offset = static_cast<uint32_t>(offset);
  reference.rule = static_cast<uint32_t>(syntax_.rules.size() - 1);
  syntax_.references.push_back(reference);
}

void Parser::openGroup(char closer, SymbolKind symbol) {
  groups_.back().hasItem = true;
  groups_.push_back({closer, position_, false, true, false, false});
  ++position_;
  addSymbol(symbol);
  parseWeight();
}

void Parser::closeGroup(SymbolKind symbol) {
  if (groups_.back().closer != peek()) {
    failExpected(std::string("'") + groups_.back().closer + "'");
  }
  endAlternative();
  groups_.pop_back();
  ++position_;
  addSymbol(symbol);
}

void Parser::parseRequiredGroupings() {
  if (peek() == '(') {
    openGroup(')', SymbolKind::kGroupOpen);
  } else {
    closeGroup(SymbolKind::kGroupClose);
  }
}

void Parser::parseOptionalGroupings() {
  if (peek() == '[') {
    openGroup(']', SymbolKind::kOptionalOpen);
  } else {
    closeGroup(SymbolKind::kOptionalClose);
  }
}

void Parser::parseUnaryOperators() {
  if (!groups_.back().hasItem) {
    failExpected("a token, a rule name or a group");
  }
  if (peek() == '{') {
    parseTag();
    return;
  }
  addSymbol(peek() == '*' ? SymbolKind::kStar : SymbolKind::kPlus);
  ++position_;
}

void Parser::parseTag() {
  const size_t open = position_;
  scratch_.clear();
  for (++position_; !atEnd() && peek() != '}'; ++position_) {
    if (peek() == '\\' && (peek(1) == '}' || peek(1) == '\\')) {
      ++position_;
    }
    scratch_.push_back(peek());
  }
  if (atEnd()) {
    refuse(source_, open, "expected '}' to close the tag, found the end of the file");
  }
  ++position_;
  addSymbol(SymbolKind::kTag, syntax_.tags.add(scratch_));
}

void Parser::parseToken() {
  const size_t begin = position_;
  while (!atEnd() && !endsToken(peek()) && !startsComment(position_)) {
    ++position_;
  }
  addToken(source_.substr(begin, position_ - begin));
}

void Parser::parseQuotedToken() {
  const size_t open = position_;
  scratch_.clear();
  for (++position_; !atEnd() && peek() != '"'; ++position_) {
    if (peek() == '\\' && (peek(1) == '"' || peek(1) == '\\')) {
      ++position_;
    }
    if (!isWhiteSpace(peek())) {
      scratch_.push_back(peek());
    } else if (!scratch_.empty() && scratch_.back() != ' ') {
      scratch_.push_back(' ');
    }
  }
  if (atEnd()) {
    refuse(source_, open, "expected '\"' to close the token, found the end of the file");
  }
  ++position_;
  if (!scratch_.empty() && scratch_.back() == ' ') {
    scratch_.pop_back();
  }
  const size_t before = syntax_.symbols.size();
  addToken(scratch_);
  if (syntax_.symbols[before].kind == SymbolKind::kNull) {
    refuse(source_, open, "expected a word between the quotation marks");
  }
}

// One item for the words of a token. Marks that stand alone are dropped, as in a text, unless they are all that there
// is. A token of characters that vanish is said by saying nothing.
void Parser::addToken(std::string_view text) {
  groups_.back().hasItem = true;
  const size_t first = syntax_.symbols.size();
  addSymbol(SymbolKind::kGroupOpen);
  const auto addWords = [&](bool marksOnly) {
    WordSplitter splitter(text);
    while (splitter.next()) {
      if (splitter.marksOnly() == marksOnly) {
        addSymbol(SymbolKind::kWord, syntax_.words.add(splitter.word()));
      }
    }
    return syntax_.symbols.size() - first - 1;
  };
  size_t words = addWords(false);
  if (words == 0) {
    words = addWords(true);
  }
  if (words == 0) {
    syntax_.symbols[first].kind = SymbolKind::kNull;
    return;
  }
  listToken(text, first + 1, words);
  if (words == 1) {
    syntax_.symbols[first] = syntax_.symbols[first + 1];
    syntax_.symbols.pop_back();
  } else {
    addSymbol(SymbolKind::kGroupClose);
  }
}

// Notes the token for the list of words unless an equal one is there.
void Parser::listToken(std::string_view text, size_t firstSymbol, size_t wordCount) {
  listed_.resize(syntax_.words.size());
  if (wordCount == 1) {
    const uint32_t word = syntax_.symbols[firstSymbol].value;
    if (!listed_[word]) {
      listed_[word] = true;
      syntax_.tokens.add(text);
    }
    return;
  }
  std::string key;
  for (size_t i = 0; i < wordCount; ++i) {
    key += std::to_string(syntax_.symbols[firstSymbol + i].value);
    key += ' ';
  }
  const uint32_t known = listedPhrases_.size();
  if (listedPhrases_.add(key) == known) {
    syntax_.tokens.add(text);
  }
}

}  // namespace jsgf
