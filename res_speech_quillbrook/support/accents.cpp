#include "accents.h"

std::string removeAccentsUTF8(const std::string &s) {
  struct Row {
    unsigned char hi;  // the two bytes of the letter
    unsigned char lo;
    const char *rep;  // what takes their place; null in the row that ends the table
  };
  // clang-format off
  static constexpr Row kTbl[] = {
      // à á â ã ä å
      {0xC3, 0xA0, "a"}, {0xC3, 0xA1, "a"}, {0xC3, 0xA2, "a"}, {0xC3, 0xA3, "a"}, {0xC3, 0xA4, "a"}, {0xC3, 0xA5, "a"},
      // æ
      {0xC3, 0xA6, "ae"},
      // ç
      {0xC3, 0xA7, "c"},
      // è é ê ë
      {0xC3, 0xA8, "e"}, {0xC3, 0xA9, "e"}, {0xC3, 0xAA, "e"}, {0xC3, 0xAB, "e"},
      // ì í î ï
      {0xC3, 0xAC, "i"}, {0xC3, 0xAD, "i"}, {0xC3, 0xAE, "i"}, {0xC3, 0xAF, "i"},
      // ñ
      {0xC3, 0xB1, "n"},
      // ò ó ô õ ö
      {0xC3, 0xB2, "o"}, {0xC3, 0xB3, "o"}, {0xC3, 0xB4, "o"}, {0xC3, 0xB5, "o"}, {0xC3, 0xB6, "o"},
      // ù ú û ü
      {0xC3, 0xB9, "u"}, {0xC3, 0xBA, "u"}, {0xC3, 0xBB, "u"}, {0xC3, 0xBC, "u"},
      // ý
      {0xC3, 0xBD, "y"},
      // ÿ
      {0xC3, 0xBF, "y"},
      // ß
      {0xC3, 0x9F, "ss"},
      // À Á Â Ã Ä Å
      {0xC3, 0x80, "a"}, {0xC3, 0x81, "a"}, {0xC3, 0x82, "a"}, {0xC3, 0x83, "a"}, {0xC3, 0x84, "a"}, {0xC3, 0x85, "a"},
      // Æ
      {0xC3, 0x86, "ae"},
      // Ç
      {0xC3, 0x87, "c"},
      // È É Ê Ë
      {0xC3, 0x88, "e"}, {0xC3, 0x89, "e"}, {0xC3, 0x8A, "e"}, {0xC3, 0x8B, "e"},
      // Ì Í Î Ï
      {0xC3, 0x8C, "i"}, {0xC3, 0x8D, "i"}, {0xC3, 0x8E, "i"}, {0xC3, 0x8F, "i"},
      // Ñ
      {0xC3, 0x91, "n"},
      // Ò Ó Ô Õ Ö
      {0xC3, 0x92, "o"}, {0xC3, 0x93, "o"}, {0xC3, 0x94, "o"}, {0xC3, 0x95, "o"}, {0xC3, 0x96, "o"},
      // Ù Ú Û Ü
      {0xC3, 0x99, "u"}, {0xC3, 0x9A, "u"}, {0xC3, 0x9B, "u"}, {0xC3, 0x9C, "u"},
      // Ý
      {0xC3, 0x9D, "y"},
      // œ
      {0xC5, 0x93, "oe"},
      // Œ
      {0xC5, 0x92, "oe"},
      {0, 0, nullptr},
  };
  // clang-format on

  std::string result;
  result.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    const auto c = static_cast<unsigned char>(s[i]);
    const char *rep = nullptr;
    if (c >= 0xC0 && c <= 0xDF && i + 1 < s.size()) {
      const auto c2 = static_cast<unsigned char>(s[i + 1]);
      const Row *found = kTbl;
      while (found->rep && (found->hi != c || found->lo != c2)) {
        ++found;
      }
      rep = found->rep;
    }
    if (rep) {
      result += rep;
      i += 2;
    } else {
      result += s[i];
      ++i;
    }
  }
  return result;
}
