// What the files of the stand-in share.
#ifndef QUILLBROOK_TESTS_HOST_STATE_H
#define QUILLBROOK_TESTS_HOST_STATE_H

#include "stand_in.h"

namespace stand_in {

// Whether this use fails, by the test's plan.
bool fails(Fault fault);
// Guards everything that the stand-in remembers. Function-local, because the module registers itself before main.
std::recursive_mutex &state_lock();
using Guard = std::lock_guard<std::recursive_mutex>;

// Each file's part of reset().
void reset_log();
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

#endif
