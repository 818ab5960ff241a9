// Texts from outside, fit for one line of a log or a console.
#pragma once

#include "../host.h"

// A copy of a text of a provider, a caller or a plugin in which each byte of a control character is a '?', so that it
// begins no line and moves no cursor. At most kPrintableMax bytes, cut on a UTF-8 boundary; a null text is "(null)".
constexpr size_t kPrintableMax = 1000;

class Printable {
public:
  explicit Printable(const char *text);
  explicit Printable(const std::string &text) : Printable(text.c_str()) {}
  const char *text() const { return text_; }

private:
  char text_[kPrintableMax + 1];
};
