#include "link.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "failure.h"

namespace quillbrook::common {

void Link::stop(quillbrook_context *context) {
  // In this order: who sees finalize raised by a stop also sees that it is a stop.
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
}

void Link::lower_finalize() {
  if (!stopped()) __atomic_store_n(&context_->finalize, 0, __ATOMIC_RELEASE);
}

void Link::call(const char *text, int score) {
  listening_ = context_->callback(context_, text, score) == 0;
  next_turn_ = Clock::now() + kTurn;
}

void Link::tick_if_due() {
  if (Clock::now() >= next_turn_) tick();
}

void Link::piece(const std::string &text, int confidence, const std::string &json) {
  context_->extra_pointer = json.empty() ? nullptr : json.c_str();
  call(text.c_str(), confidence);
  context_->extra_pointer = nullptr;
}

void Link::end() {
  if (ended_) return;
  ended_ = true;
  call("", QUILLBROOK_SCORE_END);
}

void Link::fail(const std::string &reason) {
  snprintf(context_->extra, sizeof context_->extra, "ERROR: %s", reason.c_str());
  debug("", context_->extra);
}

void Link::debug(const char *event, const std::string &detail) const {
  if (context_->debug != 0 && context_->filelog != nullptr) log(event + detail);
}

void Link::log(const std::string &sentence) const {
  constexpr size_t kLongestTag = 150;
  constexpr size_t kLongestSentence = 400;
  std::string line = std::string(context_->param, strnlen(context_->param, kLongestTag)) +
                     "): " + sentence.substr(0, kLongestSentence);
  std::replace_if(
      line.begin(), line.end(), [](unsigned char byte) { return byte < ' ' || byte == 0x7f; }, '?');
  FILE *file = context_->filelog != nullptr ? context_->filelog : stderr;
  // One call a line: other calls write to the same file.
  fprintf(file, "%s (%s\n", plugin_, line.c_str());
  fflush(file);
}

Link::Wait Link::wait(int descriptor, short events, Moment until, Heed heed) {
  pollfd watched{descriptor, events, 0};
  return wait(&watched, 1, until, heed);
}

Link::Wait Link::wait(pollfd *watched, nfds_t count, Moment until, Heed heed) {
  for (;;) {
    tick_if_due();
    if (heed == Heed::kStop && stopped()) return Wait::kStopped;
    const auto left = std::chrono::ceil<Milliseconds>(std::min(until, next_turn_) - Clock::now()).count();
    const int ready = poll(watched, count, static_cast<int>(std::max<Milliseconds::rep>(left, 0)));
    if (ready > 0) return Wait::kReady;
    if (ready < 0 && errno != EINTR) throw Failure("cannot wait for the network");
    if (Clock::now() >= until) return Wait::kElapsed;
  }
}

Link::Wait Link::wait_a_turn(int descriptor, short events, Heed heed) {
  tick_if_due();
  return wait(descriptor, events, next_turn_, heed);
}

void Link::wait_or_fail(int descriptor, short events, Moment until, const char *reason) {
  switch (wait(descriptor, events, until)) {
    case Wait::kReady:
      return;
    case Wait::kElapsed:
      throw Failure(reason);
    case Wait::kStopped:
      throw Stopped{};
  }
}

}  // namespace quillbrook::common
