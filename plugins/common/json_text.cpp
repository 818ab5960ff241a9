#include "json_text.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace quillbrook::common {

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

// Length of the UTF-8 sequence (RFC 3629) that the text begins with, 0 when it begins with none.
size_t sequence_length(std::string_view text) {
  const auto byte = [&](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const auto continues = [&](size_t i) { return (byte(i) & 0xc0) == 0x80; };
  const unsigned lead = byte(0);
  if (lead >= 0xc2 && lead <= 0xdf) return continues(1) ? 2 : 0;
  if (lead >= 0xe0 && lead <= 0xef) {
    const bool overlong = lead == 0xe0 && byte(1) < 0xa0;
    const bool surrogate = lead == 0xed && byte(1) > 0x9f;
    return continues(1) && continues(2) && !overlong && !surrogate ? 3 : 0;
  }
  if (lead >= 0xf0 && lead <= 0xf4) {
    const bool overlong = lead == 0xf0 && byte(1) < 0x90;
    const bool beyond = lead == 0xf4 && byte(1) > 0x8f;
    return continues(1) && continues(2) && continues(3) && !overlong && !beyond ? 4 : 0;
  }
  return 0;
}

// The value of the escape \uXXXX that the text begins with, -1 when it begins with none.
int unicode_escape(std::string_view text) {
  if (text.size() < 6 || text[0] != '\\' || text[1] != 'u') return -1;
  int value = 0;
  for (const char digit : text.substr(2, 4)) {
    if (isxdigit(static_cast<unsigned char>(digit)) == 0) return -1;
    value = value * 16 + (digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10);
  }
  return value;
}

// Copies the escape that the text begins with; half of a surrogate pair is replaced. Returns its length.
size_t copy_escape(std::string_view text, std::string &out) {
  const int value = unicode_escape(text);
  if (value < 0) {
    const size_t length = text.size() > 1 && (text[1] == '"' || text[1] == '\\') ? 2 : 1;
    out += text.substr(0, length);
    return length;
  }
  const bool high = value >= 0xd800 && value <= 0xdbff;
  const int next = high ? unicode_escape(text.substr(6)) : -1;
  if (next >= 0xdc00 && next <= 0xdfff) {
    out += text.substr(0, 12);
    return 12;
  }
  if (high || (value >= 0xdc00 && value <= 0xdfff)) {
    out += "\\ufffd";
  } else {
    out += text.substr(0, 6);
  }
  return 6;
}

bool in_word(char c) {
  return isalnum(static_cast<unsigned char>(c)) != 0 || c == '+' || c == '-' || c == '.';
}

// Copies the number or word outside of strings that the text begins with. Returns its length.
size_t copy_word(std::string_view text, std::string &out) {
  size_t length = 1;
  while (length < text.size() && in_word(text[length])) ++length;
  const std::string word(text.substr(0, length));
  char *end = nullptr;
  const double value = strtod(word.c_str(), &end);
  const bool no_number_of_json = *end == '\0' && !std::isfinite(value);
  out += no_number_of_json ? "null" : word;
  return length;
}

}  // namespace

std::string repaired(std::string_view message) {
  std::string out;
  out.reserve(message.size() + 16);
  bool in_string = false;
  size_t at = 0;
  while (at < message.size()) {
    const char c = message[at];
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      out += ' ';
      ++at;
    } else if (byte >= 0x80) {
      const size_t length = sequence_length(message.substr(at));
      out += length > 0 ? message.substr(at, length) : kReplacement;
      at += std::max<size_t>(length, 1);
    } else if (in_string && c == '\\') {
      at += copy_escape(message.substr(at), out);
    } else if (!in_string && in_word(c)) {
      at += copy_word(message.substr(at), out);
    } else {
      if (c == '"') in_string = !in_string;
      out += c;
      ++at;
    }
  }
  return out;
}

std::string cleaned(const std::string &text) {
  std::string clean = text;
  std::replace_if(
      clean.begin(), clean.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, ' ');
  const size_t first = clean.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return clean.substr(first, clean.find_last_not_of(' ') - first + 1);
}

std::string without_key(std::string text, const std::string &key) {
  constexpr std::string_view kMask = "***";
  if (key.empty()) return text;
  for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + kMask.size())) {
    text.replace(at, key.size(), kMask);
  }
  return text;
}

}  // namespace quillbrook::common
