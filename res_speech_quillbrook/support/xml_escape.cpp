#include "xml_escape.h"

namespace {

// What stands for a byte that cannot stand for itself; null when it can.
const char *entity(unsigned char byte) {
  switch (byte) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&apos;";
    case '\t':
    case '\n':
    case '\r':
      return nullptr;
    default:
      return byte < 0x20 ? " " : nullptr;
  }
}

}  // namespace

void xml_fputs_escaped(FILE *out, const char *s) {
  if (!out || !s) {
    return;
  }
  const char *plain = s;  // start of the bytes that are not yet written and stand for themselves
  for (; *s; ++s) {
    if (const char *replacement = entity(static_cast<unsigned char>(*s))) {
      fwrite(plain, 1, static_cast<size_t>(s - plain), out);
      fputs(replacement, out);
      plain = s + 1;
    }
  }
  fwrite(plain, 1, static_cast<size_t>(s - plain), out);
}
