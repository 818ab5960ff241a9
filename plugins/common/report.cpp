#include "report.h"

namespace quillbrook::common {

void Report::hear(const std::string &words) {
  link_.debug("heard: ", words);
  heard_ = true;
  begun_ = true;
}

bool Report::interim(const std::string &words) {
  if (words.empty() || words == interim_) return false;
  hear(words);
  interim_ = words;
  link_.interim(words);
  return true;
}

void Report::piece(const std::string &words, int confidence, const std::string &json) {
  hear(words);
  interim_.clear();
  pieces_ = true;
  link_.piece(words, confidence, json);
}

void Report::nothing_understood(const std::string &json) {
  interim_.clear();
  if (pieces_) return;
  begun_ = true;
  link_.no_match(json);
  settle();
}

void Report::deliver() {
  if (!heard_) return;
  link_.finish();
  settle();
}

void Report::settle() {
  link_.tick();  // the answer tells whether the module goes on after its result
  heard_ = false;
  pieces_ = false;
  wound_up_ = true;
}

}  // namespace quillbrook::common
