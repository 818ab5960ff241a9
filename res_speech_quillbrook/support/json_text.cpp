#include "json_text.h"

#include <nlohmann/json.hpp>

#include "json_escape.h"

namespace {

// Each byte of a text takes six at most, in `\u00XX`.
constexpr size_t kEscapedByte = 6;

// Half of a pair of UTF-16, written as if it were UTF-8. Escaped it would have the form of JSON, and parsers refuse it.
bool has_surrogate(const char *text) {
  constexpr unsigned char kFirstBehindLead = 0xA0;
  for (; (text = strchr(text, '\xED')) != nullptr; ++text) {
    if (static_cast<unsigned char>(text[1]) >= kFirstBehindLead) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string json_text(const char *text) {
  std::string inside(strlen(text) * kEscapedByte + 1, '\0');
  if (has_surrogate(text) || !json_escape_unicode_copy(inside.data(), text, inside.size())) {
    return "null";
  }
  inside.resize(strlen(inside.c_str()));
  return "\"" + inside + "\"";
}

bool is_json(const char *text) {
  constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";  // which the library passes over
  return strncmp(text, kByteOrderMark, strlen(kByteOrderMark)) != 0 && nlohmann::json::accept(text);
}
