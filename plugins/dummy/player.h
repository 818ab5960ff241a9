// Plays a script to the module.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "quillbrook.h"
#include "script.h"

namespace quillbrook::dummy {

// How often a waiting player calls back, and how often it looks at what it waits for, in milliseconds.
constexpr long kTickInterval = 50;
constexpr long kPollInterval = 10;

// Time as the player sees it; tests bring their own.
class Clock {
public:
  virtual ~Clock() = default;
  // Milliseconds since some fixed moment.
  virtual long now() = 0;
  virtual void sleep(long milliseconds) = 0;
};

// The machine's monotonic clock.
class SystemClock final : public Clock {
public:
  long now() override;
  void sleep(long milliseconds) override;
};

// One recognition. It lives on the streaming thread and uses the record until play returns.
class Player {
public:
  Player(quillbrook_context &context, const Script &script, Clock &clock)
      : context_(context), script_(script), clock_(clock) {}

  // Runs the steps, then ticks; returns when the record is stopped or the script says so. A script with a mistake
  // only leaves the mistake in extra.
  void play();

private:
  void run(const Step &step);
  void repeat(const Step &step);
  void done(const Step &step);
  void report(const char *text, int score);
  void tick();
  void ticks(long count, long interval);
  void write_hangup(int value);
  void write_extra(std::string_view text);
  void write_log(const std::string &text);
  void show(const std::string &names);
  [[nodiscard]] bool stopped() const;
  [[nodiscard]] bool finalizing() const;
  [[nodiscard]] bool stream_holds(long bytes) const;
  // Waits until the condition holds, the time is over or the record is stopped, and ticks meanwhile.
  template <typename Condition>
  void wait(long milliseconds, Condition condition);

  quillbrook_context &context_;
  const Script &script_;
  Clock &clock_;
  std::size_t next_ = 0;      // index of the step to run
  std::vector<long> rounds_;  // rounds left of each repeat that is running, innermost last
  bool quiet_ = false;        // do not tick while waiting
  bool returned_ = false;     // the script asked to return
  int answer_ = 0;            // what the callback said last
};

}  // namespace quillbrook::dummy
