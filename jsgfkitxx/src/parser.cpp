#include "parser.h"

#include <charconv>
#include <system_error>
#include <utility>

#include "refusal.h"
#include "word_splitter.h"

namespace quillbrook::jsgf {

namespace {

bool is_white_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

bool is_one_of(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

// All that ends a plain token, but for the start of a comment.
bool ends_token(char c) {
  return is_white_space(c) || is_one_of(c, "\";=|*+<>()[]{}");
}

// The characters of a simple rule name. Bytes above ASCII are letters and digits of other scripts.
bool is_name_character(char c) {
  const auto byte = static_cast<unsigned char>(c);
  const unsigned lower = byte | 0x20U;
  return byte >= 0x80 || (lower >= 'a' && lower <= 'z') || (byte >= '0' && byte <= '9') ||
         (byte != 0 && is_one_of(c, "_$+-:;,=|/\\()[]@#%!^&~"));
}

}  // namespace

void Parser::parse(std::string_view source, size_t body) {
  source_ = source;
  position_ = body;
  syntax_.files.emplace_back();
  syntax_.files.back().source = source;
  syntax_.files.back().first_rule = static_cast<uint32_t>(syntax_.rules.size());
  parse_grammar_declaration();
  parse_imports();
  for (skip_blanks(); !at_end(); skip_blanks()) {
    parse_rule_definition();
  }
  syntax_.files.back().rules_end = static_cast<uint32_t>(syntax_.rules.size());
}

void Parser::fail_expected(const std::string &wanted) const {
  refuse(source_, position_, "expected " + wanted + ", found " + describe_character(source_, position_));
}

void Parser::expect(char wanted, const char *purpose) {
  skip_blanks();
  if (at_end() || peek() != wanted) {
    fail_expected(std::string("'") + wanted + "' " + purpose);
  }
  ++position_;
}

void Parser::skip_blanks() {
  for (;;) {
    while (!at_end() && is_white_space(peek())) {
      ++position_;
    }
    if (at_end() || !starts_comment(position_)) {
      return;
    }
    const bool to_line_end = peek(1) == '/';
    const size_t end = to_line_end ? source_.find_first_of("\r\n", position_) : source_.find("*/", position_ + 2);
    if (end == std::string_view::npos && !to_line_end) {
      refuse(source_, position_, "expected '*/' to close the comment, found the end of the file");
    }
    position_ = end == std::string_view::npos ? source_.size() : end + (to_line_end ? 0 : 2);
  }
}

bool Parser::take_keyword(std::string_view keyword) {
  skip_blanks();
  const size_t end = position_ + keyword.size();
  if (source_.compare(position_, keyword.size(), keyword) != 0 ||
      (end < source_.size() && !ends_token(source_[end]) && !starts_comment(end))) {
    return false;
  }
  position_ = end;
  return true;
}

void Parser::parse_grammar_declaration() {
  if (!take_keyword("grammar")) {
    fail_expected("'grammar' and the grammar's name");
  }
  skip_blanks();
  const size_t begin = position_;
  size_t simple = begin;
  while (!at_end() && peek() != ';' && !starts_comment(position_) && (peek() == '.' || is_name_character(peek()))) {
    if (peek() == '.') {
      if (position_ == simple) {
        break;
      }
      simple = position_ + 1;
    }
    ++position_;
  }
  if (position_ == simple) {
    fail_expected("the grammar's name");
  }
  syntax_.files.back().grammar_name = source_.substr(begin, position_ - begin);
  expect(';', "behind the grammar's name");
}

// A name in angle brackets, at '<'. Only an import may end in ".*".
std::string_view Parser::take_name(bool is_import) {
  expect('<', "and a rule name");
  const size_t begin = position_;
  size_t simple = begin;
  for (; !at_end() && peek() != '>'; ++position_) {
    if (is_import && peek() == '*' && position_ == simple && peek(1) == '>') {
      continue;
    }
    const bool is_dot = peek() == '.' && position_ > simple;
    if (!is_dot && !is_name_character(peek())) {
      fail_expected("a character of a rule name or '>'");
    }
    if (is_dot) {
      simple = position_ + 1;
    }
  }
  if (at_end() || position_ == simple) {
    fail_expected(at_end() ? "'>' behind the rule name" : "a rule name");
  }
  return source_.substr(begin, position_++ - begin);
}

void Parser::parse_imports() {
  while (take_keyword("import")) {
    skip_blanks();
    const size_t offset = position_;
    const std::string_view name = take_name(true);
    if (name.find('.') == std::string_view::npos) {
      refuse(source_, offset, "expected the grammar's name and a dot in the import <" + std::string(name) + ">");
    }
    syntax_.files.back().imports.push_back({name, static_cast<uint32_t>(offset)});
    expect(';', "behind the import");
  }
}

void Parser::parse_rule_definition() {
  const bool is_public = take_keyword("public");
  skip_blanks();
  if (at_end() || peek() != '<') {
    fail_expected(is_public ? "'<' and a rule name" : "'public' or '<' and a rule name");
  }
  const size_t offset = position_ + 1;
  const std::string_view name = take_name(false);
  if (name == "NULL" || name == "VOID" || name.find('.') != std::string_view::npos) {
    refuse(source_, offset, "expected a simple rule name to define, found <" + std::string(name) + ">");
  }
  expect('=', "behind the rule's name");
  syntax_.rules.push_back({name, static_cast<uint32_t>(offset), static_cast<uint32_t>(syntax_.files.size() - 1),
                           is_public, static_cast<uint32_t>(syntax_.symbols.size()), 0,
                           static_cast<uint32_t>(syntax_.references.size())});
  parse_expansion();
  syntax_.rules.back().end = static_cast<uint32_t>(syntax_.symbols.size());
}

void Parser::parse_expansion() {
  add_symbol(SymbolKind::kRuleOpen, syntax_.rules.size() - 1);
  groups_.push_back({';', position_, false, true, false, false});
  parse_weight();
  for (;;) {
    skip_blanks();
    if (at_end()) {
      fail_expected(std::string("'") + groups_.back().closer + "'");
    }
    switch (peek()) {
      case ';':
        if (groups_.size() > 1) {
          fail_expected(std::string("'") + groups_.back().closer + "' to close the group");
        }
        end_alternative();
        groups_.pop_back();
        ++position_;
        return;
      case '|':
        parse_alternative_sets();
        break;
      case '<':
        parse_rule_references();
        break;
      case '(':
      case ')':
        parse_required_groupings();
        break;
      case '[':
      case ']':
        parse_optional_groupings();
        break;
      case '*':
      case '+':
      case '{':
        parse_unary_operators();
        break;
      case '"':
        parse_quoted_token();
        break;
      case '=':
      case '>':
      case '}':
        fail_expected("';' to end the rule or an item of it");
      default:
        parse_token();
        break;
    }
  }
}

// An alternative's end: at '|' or at what closes the set.
void Parser::end_alternative() {
  OpenGroup &group = groups_.back();
  if (!group.has_item) {
    fail_expected("a token, a rule name or a group");
  }
  if (peek() != '|' && group.is_weighted && !group.can_be_spoken) {
    refuse(source_, position_, "expected a weight above 0 on one of the alternatives");
  }
}

void Parser::parse_alternative_sets() {
  end_alternative();
  ++position_;
  groups_.back().has_item = false;
  groups_.back().first = false;
  add_symbol(SymbolKind::kBar);
  parse_weight();
}

// At the start of an alternative.
void Parser::parse_weight() {
  skip_blanks();
  OpenGroup &group = groups_.back();
  const bool is_weighted = peek() == '/';
  if (!group.first && is_weighted != group.is_weighted) {
    fail_expected(is_weighted ? "no weight, since the first alternative has none"
                              : "a weight, since the first alternative has one");
  }
  group.is_weighted = is_weighted;
  if (!is_weighted) {
    return;
  }
  const size_t close = source_.find('/', position_ + 1);
  if (close == std::string_view::npos) {
    refuse(source_, position_, "expected '/' to close the weight, found the end of the file");
  }
  std::string_view text = source_.substr(position_ + 1, close - position_ - 1);
  while (!text.empty() && is_white_space(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && is_white_space(text.back())) {
    text.remove_suffix(1);
  }
  if (!text.empty() && is_one_of(text.back(), "fFdD")) {
    text.remove_suffix(1);
  }
  double weight = 0;
  const bool is_number = !text.empty() && (is_one_of(text.front(), "0123456789."));
  const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), weight);
  if (!is_number || fault != std::errc() || end != text.data() + text.size()) {
    refuse(source_, position_, "expected a weight of 0 or more between the slashes");
  }
  group.can_be_spoken = group.can_be_spoken || weight > 0;
  add_symbol(SymbolKind::kWeight, syntax_.weights.size());
  syntax_.weights.push_back(weight);
  position_ = close + 1;
}

void Parser::parse_rule_references() {
  const size_t offset = position_;
  const std::string_view name = take_name(false);
  groups_.back().has_item = true;
  if (name == "NULL" || name == "VOID") {
    add_symbol(name == "NULL" ? SymbolKind::kNull : SymbolKind::kVoid);
    return;
  }
  add_symbol(SymbolKind::kReference, syntax_.references.size());
  Reference reference{};
  reference.name = name;
  reference.offset = static_cast<uint32_t>(offset);
  reference.rule = static_cast<uint32_t>(syntax_.rules.size() - 1);
  syntax_.references.push_back(reference);
}

void Parser::open_group(char closer, SymbolKind symbol) {
  groups_.back().has_item = true;
  groups_.push_back({closer, position_, false, true, false, false});
  ++position_;
  add_symbol(symbol);
  parse_weight();
}

void Parser::close_group(SymbolKind symbol) {
  if (groups_.back().closer != peek()) {
    fail_expected(std::string("'") + groups_.back().closer + "'");
  }
  end_alternative();
  groups_.pop_back();
  ++position_;
  add_symbol(symbol);
}

void Parser::parse_required_groupings() {
  if (peek() == '(') {
    open_group(')', SymbolKind::kGroupOpen);
  } else {
    close_group(SymbolKind::kGroupClose);
  }
}

void Parser::parse_optional_groupings() {
  if (peek() == '[') {
    open_group(']', SymbolKind::kOptionalOpen);
  } else {
    close_group(SymbolKind::kOptionalClose);
  }
}

void Parser::parse_unary_operators() {
  if (!groups_.back().has_item) {
    fail_expected("a token, a rule name or a group");
  }
  if (peek() == '{') {
    parse_tag();
    return;
  }
  add_symbol(peek() == '*' ? SymbolKind::kStar : SymbolKind::kPlus);
  ++position_;
}

void Parser::parse_tag() {
  const size_t open = position_;
  scratch_.clear();
  for (++position_; !at_end() && peek() != '}'; ++position_) {
    if (peek() == '\\' && (peek(1) == '}' || peek(1) == '\\')) {
      ++position_;
    }
    scratch_.push_back(peek());
  }
  if (at_end()) {
    refuse(source_, open, "expected '}' to close the tag, found the end of the file");
  }
  ++position_;
  add_symbol(SymbolKind::kTag, syntax_.tags.add(scratch_));
}

void Parser::parse_token() {
  const size_t begin = position_;
  while (!at_end() && !ends_token(peek()) && !starts_comment(position_)) {
    ++position_;
  }
  add_token(source_.substr(begin, position_ - begin));
}

void Parser::parse_quoted_token() {
  const size_t open = position_;
  scratch_.clear();
  for (++position_; !at_end() && peek() != '"'; ++position_) {
    if (peek() == '\\' && (peek(1) == '"' || peek(1) == '\\')) {
      ++position_;
    }
    if (!is_white_space(peek())) {
      scratch_.push_back(peek());
    } else if (!scratch_.empty() && scratch_.back() != ' ') {
      scratch_.push_back(' ');
    }
  }
  if (at_end()) {
    refuse(source_, open, "expected '\"' to close the token, found the end of the file");
  }
  ++position_;
  if (!scratch_.empty() && scratch_.back() == ' ') {
    scratch_.pop_back();
  }
  const size_t before = syntax_.symbols.size();
  add_token(scratch_);
  if (syntax_.symbols[before].kind == SymbolKind::kNull) {
    refuse(source_, open, "expected a word between the quotation marks");
  }
}

// One item for the words of a token. Marks that stand alone are dropped, as in a text, unless they are all that there
// is. A token of characters that vanish is said by saying nothing.
void Parser::add_token(std::string_view text) {
  groups_.back().has_item = true;
  const size_t first = syntax_.symbols.size();
  add_symbol(SymbolKind::kGroupOpen);
  const auto add_words = [&](bool marks_only) {
    WordSplitter splitter(text);
    while (splitter.next()) {
      if (splitter.marks_only() == marks_only) {
        add_symbol(SymbolKind::kWord, syntax_.words.add(splitter.word()));
      }
    }
    return syntax_.symbols.size() - first - 1;
  };
  size_t words = add_words(false);
  if (words == 0) {
    words = add_words(true);
  }
  if (words == 0) {
    syntax_.symbols[first].kind = SymbolKind::kNull;
    return;
  }
  if (words == 1) {
    syntax_.symbols[first] = syntax_.symbols[first + 1];
    syntax_.symbols.pop_back();
  } else {
    add_symbol(SymbolKind::kGroupClose);
  }
  const size_t first_word = words == 1 ? first : first + 1;
  if (syntax_.files.size() == 1) {
    list_token(text, first_word, words);
  } else {
    syntax_.imported_tokens.push_back({static_cast<uint32_t>(syntax_.rules.size() - 1),
                                       syntax_.imported_texts.add(text), static_cast<uint32_t>(first_word),
                                       static_cast<uint32_t>(words)});
  }
}

void Parser::list_imported(const ImportedToken &token) {
  list_token(syntax_.imported_texts[token.text], token.first_symbol, token.word_count);
}

// Notes the token for the list of words unless an equal one is there.
void Parser::list_token(std::string_view text, size_t first_symbol, size_t word_count) {
  listed_.resize(syntax_.words.size());
  if (word_count == 1) {
    const uint32_t word = syntax_.symbols[first_symbol].value;
    if (!listed_[word]) {
      listed_[word] = true;
      syntax_.tokens.add(text);
    }
    return;
  }
  std::string key;
  for (size_t i = 0; i < word_count; ++i) {
    key += std::to_string(syntax_.symbols[first_symbol + i].value);
    key += ' ';
  }
  const uint32_t known = listed_phrases_.size();
  if (listed_phrases_.add(key) == known) {
    syntax_.tokens.add(text);
  }
}

}  // namespace quillbrook::jsgf
