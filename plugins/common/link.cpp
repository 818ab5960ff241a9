#include "link.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

#include "failure.h"

namespace quillbrook::common {

namespace {

// Set when the module opens the plugin, before its first recognition.
std::atomic<const quillbrook_services *> services{nullptr};

// The recognitions whose loop runs, with what wakes them. A stop may come before and behind the loop, and the record
// has no room for more than its number: so it looks here. The lock is a leaf and held for some instructions.
class Loops {
public:
  void enter(const quillbrook_context *context, int wake) {
    const std::lock_guard<std::mutex> held(lock_);
    wakes_[context] = wake;
  }
  void leave(const quillbrook_context *context) {
    const std::lock_guard<std::mutex> held(lock_);
    wakes_.erase(context);
  }
  void wake(const quillbrook_context *context) {
    const std::lock_guard<std::mutex> held(lock_);
    const auto found = wakes_.find(context);
    if (found == wakes_.end()) return;
    constexpr uint64_t kOnce = 1;
    (void)!write(found->second, &kOnce, sizeof kOnce);
  }

private:
  std::mutex lock_;
  std::map<const quillbrook_context *, int> wakes_;
};

Loops &loops() {
  static Loops all;
  return all;
}

}  // namespace

Link::Link(quillbrook_context *context, const char *plugin)
    : context_(context),
      plugin_(plugin),
      wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      last_call_(Clock::now()),
      earliest_turn_(last_call_),
      next_turn_(last_call_) {
  if (wake_.get() >= 0) loops().enter(context, wake_.get());
}

Link::~Link() {
  if (wake_.get() >= 0) loops().leave(context_);
}

void Link::stop(quillbrook_context *context) {
  // In this order: who sees finalize raised by a stop also sees that it is a stop.
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
  loops().wake(context);
}

bool Link::take_wake_up() const {
  uint64_t count = 0;
  return wake_.get() >= 0 && read(wake_.get(), &count, sizeof count) > 0;
}

void Link::lower_finalize() {
  if (!stopped()) __atomic_store_n(&context_->finalize, 0, __ATOMIC_RELEASE);
}

void Link::call(const char *text, int score) {
  listening_ = context_->callback(context_, text, score) == 0;
  last_call_ = Clock::now();
  plan_turns();
}

void Link::plan_turns() {
  const quillbrook_services *offered = services;
  if (offered == nullptr || wake_.get() < 0) {
    earliest_turn_ = next_turn_ = last_call_ + kTurn;
    return;
  }
  const Milliseconds timer{offered->next_timer(context_)};
  const bool expires = timer < kLongestTurn;
  next_turn_ = last_call_ + std::clamp(timer, kShortestTurn, kLongestTurn);
  earliest_turn_ = expires ? next_turn_ : last_call_ + kSharedTurn;
}

void Link::tick_if_due() {
  if (Clock::now() >= earliest_turn_) tick();
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

void Link::complain(const std::string &sentence) const {
  const quillbrook_services *offered = services;
  if (offered != nullptr && offered->size >= offsetof(quillbrook_services, complain) + sizeof offered->complain) {
    offered->complain(context_, sentence.c_str());
  } else {
    log(sentence);
  }
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
  watched_.assign(watched, watched + count);
  watched_.push_back({wake_.get(), POLLIN, 0});
  for (;;) {
    tick_if_due();
    if (heed == Heed::kStop && stopped()) return Wait::kStopped;
    const auto left = std::chrono::ceil<Milliseconds>(std::min(until, next_turn_) - Clock::now()).count();
    const int ready = poll(watched_.data(), watched_.size(), static_cast<int>(std::max<Milliseconds::rep>(left, 0)));
    if (ready < 0 && errno != EINTR) throw Failure("cannot wait for the network");
    const bool woken = ready > 0 && watched_.back().revents != 0 && take_wake_up();
    if (ready > (woken ? 1 : 0)) {
      std::copy_n(watched_.begin(), count, watched);
      return Wait::kReady;
    }
    if ((woken && heed == Heed::kNothing) || Clock::now() >= until) return Wait::kElapsed;
  }
}

Link::Wait Link::wait_a_turn(int descriptor, short events, Moment until, Heed heed) {
  tick_if_due();
  return wait(descriptor, events, std::min(until, next_turn_), heed);
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

void quillbrook_attach(const quillbrook_services *offered) {
  const size_t needed = offsetof(quillbrook_services, next_timer) + sizeof offered->next_timer;
  quillbrook::common::services = offered != nullptr && offered->size >= needed ? offered : nullptr;
}
