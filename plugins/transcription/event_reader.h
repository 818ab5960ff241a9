// The events of a streamed answer (server-sent events), as they come in.
#pragma once

#include <string>

namespace quillbrook::transcription {

class EventReader {
public:
  // Reads what is new in the answer up to now. True when there are new words. Throws Failure.
  bool read(const std::string &answer);
  // The same for the complete answer, whose last line may have no end.
  bool finish(const std::string &answer) { return read(answer + '\n'); }
  // The words up to now.
  const std::string &text() const { return text_; }
  // The answer as one JSON text: the last event when it holds the whole, else one made of the words.
  std::string whole() const;

private:
  bool take_line(const std::string &line);

  size_t taken_ = 0;
  std::string text_;
  std::string done_;
};

}  // namespace quillbrook::transcription
