#include "module_use.h"

#include "../host.h"

namespace {

// What the host does between finding an engine and calling it, and what a function of ours does behind its last counted
// instruction, takes microseconds on a thread that runs.
constexpr useconds_t kGrace = 200000;

std::atomic<int> inside{0};
std::atomic<unsigned> left{0};  // how many have left since the module was loaded into memory
std::atomic<bool> open_for_sessions{true};

}  // namespace

void quillbrook_module_enter() {
  ++inside;
  ast_module_ref(host_module_self());
}

void quillbrook_module_leave() {
  ast_module_unref(host_module_self());
  ++left;
  --inside;
}

void quillbrook_module_set_open(bool open) {
  open_for_sessions = open;
}

bool quillbrook_module_is_open() {
  return open_for_sessions;
}

bool quillbrook_module_at_rest() {
  unsigned seen;
  do {
    seen = left;
    usleep(kGrace);
    if (inside > 0) {
      return false;
    }
  } while (left != seen);
  return true;
}
