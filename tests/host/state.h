// What the files of the stand-in share.
#pragma once

#include "stand_in.h"

#if defined(__SANITIZE_THREAD__)
extern "C" {
void AnnotateIgnoreSyncBegin(const char *file, int line);
void AnnotateIgnoreSyncEnd(const char *file, int line);
void AnnotateIgnoreReadsBegin(const char *file, int line);
void AnnotateIgnoreReadsEnd(const char *file, int line);
void AnnotateIgnoreWritesBegin(const char *file, int line);
void AnnotateIgnoreWritesEnd(const char *file, int line);
}
#define STAND_IN_ANNOTATE(what) Annotate##what(__FILE__, __LINE__)
#else
#define STAND_IN_ANNOTATE(what)
#endif

namespace stand_in {

// Whether this use fails, by the test's plan.
bool fails(Fault fault);
// What a test planned for this call happens.
void reached(const std::string &call);
// Guards everything that the stand-in remembers. Function-local, because the module registers itself before main.
std::recursive_mutex &state_lock();

// Holds it. The thread sanitizer is not told: a log line of the module would else order its threads, and hide the races
// that the tests look for.
class Guard {
public:
  explicit Guard(std::recursive_mutex &lock) : lock_(lock) {
    STAND_IN_ANNOTATE(IgnoreSyncBegin);
    STAND_IN_ANNOTATE(IgnoreReadsBegin);
    STAND_IN_ANNOTATE(IgnoreWritesBegin);
    lock_.lock();
  }
  ~Guard() {
    lock_.unlock();
    STAND_IN_ANNOTATE(IgnoreWritesEnd);
    STAND_IN_ANNOTATE(IgnoreReadsEnd);
    STAND_IN_ANNOTATE(IgnoreSyncEnd);
  }
  Guard(const Guard &) = delete;
  Guard &operator=(const Guard &) = delete;

private:
  std::recursive_mutex &lock_;
};

// Each file's part of reset().
void reset_files();
void reset_services();

// The folder of this process: made at the first use, removed by remove_sandbox.
const std::string &sandbox();
void remove_sandbox();

// What ao2_ref counts references on.
struct Object {
  std::atomic<int> references{1};
  virtual ~Object() = default;
};

}  // namespace stand_in
