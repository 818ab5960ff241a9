#include "event_reader.h"

#include <nlohmann/json.hpp>

#include "json_text.h"
#include "transcript.h"

namespace quillbrook::transcription {

bool EventReader::read(const std::string &answer) {
  bool news = false;
  for (size_t end = answer.find('\n', taken_); end != std::string::npos; end = answer.find('\n', taken_)) {
    news |= take_line(answer.substr(taken_, end - taken_));
    taken_ = end + 1;
  }
  return news;
}

bool EventReader::take_line(const std::string &line) {
  const std::string name = "data:";
  if (line.compare(0, name.size(), name) != 0) return false;
  const std::string data = common::cleaned(line.substr(name.size()));
  if (data.empty() || data == "[DONE]") return false;
  const std::string json = common::repaired(data);
  const StreamEvent event = parse_event(json);
  if (event.is_done) {
    text_ = event.text;
    done_ = json;
  } else {
    text_ += event.text;
  }
  return !event.text.empty();
}

std::string EventReader::whole() const {
  return done_.empty() ? nlohmann::json{{"text", text_}}.dump() : done_;
}

}  // namespace quillbrook::transcription
