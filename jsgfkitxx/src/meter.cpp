#include "meter.h"

#include <string>

namespace quillbrook::jsgf {

MatchGaveUp::MatchGaveUp(const std::string &reason) : std::runtime_error(reason) {}
MatchGaveUp::~MatchGaveUp() = default;

void Meter::give_up_on_memory() const {
  throw MatchGaveUp("the match takes more than " + std::to_string(limits_.bytes >> 20U) + " MiB of memory");
}

void Meter::look_at_clock() {
  rounds_left_ = kRoundsBetweenLooks;
  const auto now = limits_.now();
  if (started_ == std::chrono::steady_clock::time_point{}) {
    started_ = now;
  } else if (now - started_ > limits_.time) {
    throw MatchGaveUp("the match takes longer than " + std::to_string(limits_.time.count()) + " ms");
  }
}

}  // namespace quillbrook::jsgf
