// The server's messages: what they say, and making them safe to read.
#pragma once

#include <string>
#include <string_view>

namespace quillbrook::websocket {

// Confidence in percent of a final piece that comes without usable figures: above the module's 50 for words that were
// never confirmed, and below what the server gives words that it is sure of.
constexpr int kConfidenceWithoutFigures = 75;

// One message of the server, a JSON object of one of these forms:
//   {"partial": "words so far"}
//   {"text": "one two", "result": [{"conf": 0.98, "word": "one", ...}, ...]}
//   {"alternatives": [{"confidence": 0.9, "text": "one two"}, ...]}
struct Answer {
  bool final = false;  // the server's endpointer has closed the piece
  std::string text;    // UTF-8 without control characters; often empty
  int confidence = 0;  // of a final: 1 to 100, the mean of its figures
};

// The message as a valid JSON text wherever a server's known slips are all that is wrong: bytes that are no UTF-8 and
// escapes that are half of a surrogate pair become U+FFFD, control characters become blanks, and numbers that JSON
// does not have (nan, inf, 1e999) become null. Takes one pass.
std::string repaired(std::string_view message);

// Reads a repaired message. Throws Failure when it is no JSON object or is nested too deeply.
Answer parse_answer(const std::string &json);

}  // namespace quillbrook::websocket
