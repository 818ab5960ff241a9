// The server's messages: what they say.
#pragma once

#include <string>

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

// Reads a message that repaired() has seen. Throws Failure when it is no JSON object or is nested too deeply.
Answer parse_answer(const std::string &json);

}  // namespace quillbrook::websocket
