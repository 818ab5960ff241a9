// What wakes a thread that sleeps until there is something to do.
#pragma once

#include "../host.h"

// Rung by any thread. Ringing takes a lock that is held for an assignment only, and a ring that comes while nobody
// waits is kept.
class Bell {
public:
  void ring() {
    {
      const std::lock_guard<std::mutex> held(lock_);
      rung_ = true;
    }
    changed_.notify_one();
  }

  // Waits for a ring, at most as long as told; -1 is for as long as it takes. Time set on the wall clock does not
  // matter.
  void wait(int milliseconds) {
    std::unique_lock<std::mutex> held(lock_);
    const auto rung = [this] { return rung_; };
    if (milliseconds < 0) {
      changed_.wait(held, rung);
    } else {
      changed_.wait_for(held, std::chrono::milliseconds(milliseconds), rung);
    }
    rung_ = false;
  }

private:
  std::mutex lock_;  // a leaf lock; guards `rung_`
  std::condition_variable changed_;
  bool rung_ = false;
};
