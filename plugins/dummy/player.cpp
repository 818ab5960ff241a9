#include "player.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <thread>

#include "report.h"

namespace quillbrook::dummy {

long SystemClock::now() {
  using std::chrono::milliseconds;
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void SystemClock::sleep(long milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void Player::play() {
  if (!script_.error.empty()) return write_extra("ERROR: " + script_.error);
  while (next_ < script_.steps.size() && !returned_ && !stopped()) {
    const Step &step = script_.steps[next_++];
    run(step);
  }
  if (!returned_) wait(LONG_MAX, [] { return false; });
}

void Player::run(const Step &step) {
  const int number = static_cast<int>(step.number);
  switch (step.word) {
    case Word::kInterim:
      return report(step.text.c_str(), QUILLBROOK_SCORE_INTERIM);
    case Word::kFinal:
      return report(step.text.c_str(), number);
    case Word::kTick:
      return ticks(step.number, step.interval);
    case Word::kFinish:
      return report("", QUILLBROOK_SCORE_FINISH);
    case Word::kEnd:
      return report("", QUILLBROOK_SCORE_END);
    case Word::kNoMatch:
      return report(step.has_text ? step.text.c_str() : "?", QUILLBROOK_SCORE_NO_CONFIDENCE);
    case Word::kRaw:
      return report(step.has_text ? step.text.c_str() : nullptr, number);
    case Word::kSleep:
      return wait(step.number, [] { return false; });
    case Word::kBytes:
      return wait(LONG_MAX, [this, &step] { return stream_holds(step.number); });
    case Word::kQuantum:
      return __atomic_store_n(&context_.quantum, number, __ATOMIC_RELEASE);
    case Word::kHangup:
      return write_hangup(number);
    case Word::kApi:
      context_.api_pointer = step.has_text ? step.text.c_str() : nullptr;
      return;
    case Word::kJson:
      context_.extra_pointer = step.has_text ? step.text.c_str() : nullptr;
      return;
    case Word::kExtra:
      return write_extra(step.text);
    case Word::kWaitFinalize:
      return wait(step.number, [this] { return finalizing(); });
    case Word::kUntilStop:
      return wait(LONG_MAX, [] { return false; });
    case Word::kReturn:
      returned_ = true;
      return;
    case Word::kRepeat:
      return repeat(step);
    case Word::kDone:
      return done(step);
    case Word::kDeaf:
      clock_.sleep(step.number);
      break;
    case Word::kQuiet:
      quiet_ = true;
      return;
    case Word::kLog:
      return write_log(step.text);
    case Word::kShow:
      return show(step.text);
    case Word::kRefuse:
      return;  // has had its effect before the loop
  }
}

void Player::repeat(const Step &step) {
  if (step.number == 0)
    next_ = step.partner + 1;
  else
    rounds_.push_back(step.number);
}

void Player::done(const Step &step) {
  if (--rounds_.back() > 0)
    next_ = step.partner + 1;
  else
    rounds_.pop_back();
}

void Player::report(const char *text, int score) {
  answer_ = context_.callback(&context_, text, score);
}

void Player::tick() {
  (void)context_.callback(&context_, nullptr, QUILLBROOK_SCORE_INTERIM);
}

void Player::ticks(long count, long interval) {
  for (long i = 0; i < count && !stopped(); ++i) {
    tick();
    const long end = clock_.now() + interval;
    for (long left = interval; left > 0 && !stopped(); left = end - clock_.now())
      clock_.sleep(std::min(left, kPollInterval));
  }
}

// Never over the mark of the stop function, which may run at the same moment: the loop would then go on for ever.
void Player::write_hangup(int value) {
  int seen = __atomic_load_n(&context_.hangup, __ATOMIC_ACQUIRE);
  while (seen != QUILLBROOK_HANGUP_STOPPED &&
         !__atomic_compare_exchange_n(&context_.hangup, &seen, value, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
  }
}

void Player::write_extra(std::string_view text) {
  const std::size_t length = std::min(text.size(), sizeof(context_.extra) - 1);
  std::copy_n(text.data(), length, context_.extra);
  context_.extra[length] = '\0';
}

void Player::write_log(const std::string &text) {
  if (context_.filelog != nullptr) {
    (void)std::fprintf(context_.filelog, "%s\n", text.c_str());
    (void)std::fflush(context_.filelog);
  }
  if (!script_.report.empty()) append(script_.report, text + '\n');
}

void Player::show(const std::string &names) {
  if (!script_.report.empty()) append(script_.report, describe(context_, names, answer_));
}

bool Player::stopped() const {
  return __atomic_load_n(&context_.hangup, __ATOMIC_ACQUIRE) == QUILLBROOK_HANGUP_STOPPED;
}

bool Player::finalizing() const {
  return __atomic_load_n(&context_.finalize, __ATOMIC_ACQUIRE) > 0;
}

bool Player::stream_holds(long bytes) const {
  struct stat info {};
  return stat(context_.filename, &info) == 0 && info.st_size >= bytes;
}

template <typename Condition>
void Player::wait(long milliseconds, Condition condition) {
  const long start = clock_.now();
  long last_tick = start;
  while (!stopped() && !condition()) {
    const long now = clock_.now();
    if (!quiet_ && now - last_tick >= kTickInterval) {
      tick();
      last_tick = now;
    }
    const long left = milliseconds - (now - start);
    if (left <= 0) return;
    clock_.sleep(std::min(left, kPollInterval));
  }
}

}  // namespace quillbrook::dummy
