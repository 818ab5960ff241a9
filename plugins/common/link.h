// One record of the module, seen from the plugin: what the module is told, what it asks for, and the waiting.
//
// All waiting of a recognition goes through wait(), which gives the module its ticks, however long the wait is, and
// ends at once when the plugin is stopped. Ticks come where they can matter: as often as the module may be left alone
// while none of its timers runs, and otherwise with the next one that can expire. Only the streaming thread uses a
// Link; the record's shared fields are read and written atomically, since plugin_stop writes them from another thread.
#pragma once

#include <poll.h>

#include <chrono>
#include <string>
#include <vector>

#include "descriptor.h"
#include "quillbrook.h"

namespace quillbrook::common {

using Clock = std::chrono::steady_clock;
using Moment = Clock::time_point;
using Milliseconds = std::chrono::milliseconds;

// The longest time between two calls of the module, by its contract.
constexpr Milliseconds kLongestTurn{100};
// A tick is at most this much behind a timer of the module that has expired.
constexpr Milliseconds kShortestTurn{20};
// Between two calls of a module that does not say when its timers expire; also the longest wait that no stop can end.
constexpr Milliseconds kTurn{30};
// With nothing to expire, whoever wakes for something else this long behind the latest call gives the tick, too: so it
// costs no wake-up of its own.
constexpr Milliseconds kSharedTurn{50};

class Link {
public:
  // The record must outlive the link. `plugin` is what the plugin's lines in the log begin with.
  Link(quillbrook_context *context, const char *plugin);
  ~Link();
  Link(const Link &) = delete;
  Link &operator=(const Link &) = delete;

  const quillbrook_context &record() const { return *context_; }
  bool stopped() const { return __atomic_load_n(&context_->hangup, __ATOMIC_ACQUIRE) == QUILLBROOK_HANGUP_STOPPED; }
  bool finalize_raised() const { return __atomic_load_n(&context_->finalize, __ATOMIC_ACQUIRE) > 0; }
  // Takes back what the module asked for out of the silence before these words; a stop stays what it is.
  void lower_finalize();
  // Whether raising finalize brings out words that were held back.
  void set_quantum(bool set) { __atomic_store_n(&context_->quantum, set ? 1 : 0, __ATOMIC_RELEASE); }
  // When the module was last called, and when it has to be called again.
  Moment last_call() const { return last_call_; }
  Moment next_turn() const { return next_turn_; }
  // False from the first refusal on: a result is out, or the call is over.
  bool listening() const { return listening_; }

  void tick() { call("", QUILLBROOK_SCORE_INTERIM); }
  // Gives the module its turn if one is due: for work in between two waits.
  void tick_if_due();
  void interim(const std::string &text) { call(text.c_str(), QUILLBROOK_SCORE_INTERIM); }
  // Somebody is speaking and there are no new words yet. The module measures silence from the last text that was new:
  // a blank is new to it, and nothing that it stores. It also counts as the first words, so it comes behind those.
  void sign_of_life() { call(" ", QUILLBROOK_SCORE_NO_CONFIDENCE); }
  // A final piece with its confidence, 1 to 100, and the provider's JSON that it comes from, if there is one.
  void piece(const std::string &text, int confidence, const std::string &json = "");
  // Nothing was understood.
  void no_match(const std::string &json = "") { piece("?", QUILLBROOK_SCORE_NO_CONFIDENCE, json); }
  // Asks for the result of the words up to now.
  void finish() { call("", QUILLBROOK_SCORE_FINISH); }
  // The provider's session is over. Said once.
  void end();

  // Leaves the failure in the record.
  void fail(const std::string &reason);
  // A sentence for the operator, in the PBX's log. By a module that takes none it goes where log() writes.
  void complain(const std::string &sentence) const;
  // One line into the plugins' log file, or to the process's error output where there is none.
  void log(const std::string &sentence) const;
  // The same when there is such a file and debug output is asked for.
  void debug(const char *event, const std::string &detail) const;

  enum class Wait { kReady, kElapsed, kStopped };
  // Whether a stop ends all waits. When the last words are still being fetched it ends only the one it meets.
  enum class Heed { kStop, kNothing };
  // Waits until the descriptor has one of the events of poll(2), or until the moment. -1: for the moment alone.
  Wait wait(int descriptor, short events, Moment until, Heed heed = Heed::kStop);
  // The same for several, which poll(2) then has filled in.
  Wait wait(pollfd *watched, nfds_t count, Moment until, Heed heed = Heed::kStop);
  // As wait(), up to the module's next turn at most.
  Wait wait_a_turn(int descriptor, short events, Moment until, Heed heed = Heed::kStop);
  // The same, with nothing to wait for but that turn.
  Wait wait_a_turn() { return wait_a_turn(-1, 0, Moment::max()); }
  // As wait(), for the way to a server: throws Stopped, and Failure(reason) when the time is up.
  void wait_or_fail(int descriptor, short events, Moment until, const char *reason);

  // What a plugin's stop function does, from another thread: the waiting above ends.
  static void stop(quillbrook_context *context);

private:
  void call(const char *text, int score);
  void plan_turns();
  // True when a stop has come meanwhile.
  bool take_wake_up() const;

  quillbrook_context *context_;
  const char *plugin_;
  Descriptor wake_;  // becomes readable with a stop; none where the process has no descriptors left
  std::vector<pollfd> watched_;
  Moment last_call_;
  Moment earliest_turn_;  // from here on a tick is welcome
  Moment next_turn_;      // here it is due
  bool listening_ = true;
  bool ended_ = false;
};

}  // namespace quillbrook::common

// The entry by which the module offers its services, for each plugin that uses a Link.
extern "C" __attribute__((visibility("default"))) void quillbrook_attach(const quillbrook_services *offered);
