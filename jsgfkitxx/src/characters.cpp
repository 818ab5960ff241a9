#include "characters.h"

#include <cstdlib>
#include <memory>
#include <new>

#include <utf8proc.h>

#include "utf8.h"

namespace quillbrook::jsgf {

namespace {

CharacterClass classify_by_category(char32_t c) {
  switch (utf8proc_category(static_cast<utf8proc_int32_t>(c))) {
    case UTF8PROC_CATEGORY_ND:
      return CharacterClass::kFigure;
    case UTF8PROC_CATEGORY_PS:
    case UTF8PROC_CATEGORY_PE:
    case UTF8PROC_CATEGORY_PI:
    case UTF8PROC_CATEGORY_PF:
    case UTF8PROC_CATEGORY_PO:
      return CharacterClass::kMark;
    case UTF8PROC_CATEGORY_PC:
      return CharacterClass::kSymbol;
    case UTF8PROC_CATEGORY_PD:
      return CharacterClass::kDash;
    case UTF8PROC_CATEGORY_ZS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return CharacterClass::kSpace;
    case UTF8PROC_CATEGORY_CF:
      return CharacterClass::kDropped;
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO:
    case UTF8PROC_CATEGORY_SM:
    case UTF8PROC_CATEGORY_SC:
    case UTF8PROC_CATEGORY_SK:
    case UTF8PROC_CATEGORY_SO:
    case UTF8PROC_CATEGORY_CC:
      return CharacterClass::kOther;
    default:
      return CharacterClass::kLetter;
  }
}

}  // namespace

CharacterClass classify(char32_t c) {
  if (c < kAsciiClasses.size()) {
    return kAsciiClasses[c];
  }
  switch (c) {
    case 0x85:  // a line end
      return CharacterClass::kSpace;
    case 0xA7:    // §
    case 0xB6:    // ¶
    case 0x2020:  // †
    case 0x2021:  // ‡
    case 0x2030:  // ‰
    case 0x2031:  // ‱
    case 0xFF03:  // full-width # % & * / @
    case 0xFF05:
    case 0xFF06:
    case 0xFF0A:
    case 0xFF0F:
    case 0xFF20:
      return CharacterClass::kSymbol;
    case 0x200C:  // joiners tell words of some scripts apart
    case 0x200D:
      return CharacterClass::kLetter;
    default:
      return c < kInvalidByte ? classify_by_category(c) : CharacterClass::kLetter;
  }
}

bool is_wide(char32_t mark) {
  constexpr char32_t kFirstWide = 0x1100;
  return mark >= kFirstWide && mark < kInvalidByte && utf8proc_charwidth(static_cast<utf8proc_int32_t>(mark)) == 2;
}

std::string composed(std::string_view text) {
  utf8proc_uint8_t *result = nullptr;
  const utf8proc_ssize_t length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t *>(text.data()), static_cast<utf8proc_ssize_t>(text.size()),
                   &result, static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  if (length == UTF8PROC_ERROR_NOMEM) {
    throw std::bad_alloc();
  }
  if (length < 0) {
    return std::string(text);
  }
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owned(result, &std::free);
  return {reinterpret_cast<const char *>(result), static_cast<size_t>(length)};
}

}  // namespace quillbrook::jsgf
