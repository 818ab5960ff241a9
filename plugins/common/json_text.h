// Texts of servers, made safe to read and to pass on.
#pragma once

#include <string>
#include <string_view>

namespace quillbrook::common {

// The message as a valid JSON text wherever a server's known slips are all that is wrong: bytes that are no UTF-8 and
// escapes that are half of a surrogate pair become U+FFFD, control characters become blanks, and numbers that JSON
// does not have (nan, inf, 1e999) become null. Takes one pass.
std::string repaired(std::string_view message);

// A text out of it, without control characters and without blanks around it.
std::string cleaned(const std::string &text);

// A text of the server without the key that it was given, which some servers repeat: three asterisks stand there.
std::string without_key(std::string text, const std::string &key);

}  // namespace quillbrook::common
