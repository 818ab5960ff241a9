#include "printable.h"

#include "bounded_text.h"
#include "log.h"

namespace {

// The first byte of the control characters above 0x7F in UTF-8, and the last one of the second bytes.
constexpr unsigned char kUpperControlLead = 0xC2;
constexpr unsigned char kUpperControlLast = 0x9F;

bool is_control(unsigned char byte) {
  return byte < 0x20 || byte == 0x7F;
}

bool begins_upper_control(const char *text) {
  const auto second = static_cast<unsigned char>(text[1]);
  return static_cast<unsigned char>(text[0]) == kUpperControlLead && second >= 0x80 && second <= kUpperControlLast;
}

}  // namespace

Printable::Printable(const char *text) {
  copy_text(text_, shown(text));
  for (char *at = text_; *at; ++at) {
    if (begins_upper_control(at)) {
      *at++ = '?';
      *at = '?';
    } else if (is_control(static_cast<unsigned char>(*at))) {
      *at = '?';
    }
  }
}
