// The plugin's entries. It recognises nothing: it ticks until it is stopped, or follows a script (README.md).
#include <exception>

#include "player.h"
#include "quillbrook.h"
#include "script.h"

#define QUILLBROOK_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

void leave_error(quillbrook_context *context, const char *reason) noexcept {
  (void)snprintf(context->extra, sizeof(context->extra), "ERROR: %s", reason);
}

// No exception may reach the module, which is entered from C.
template <typename Body>
int guarded(quillbrook_context *context, Body body) noexcept {
  try {
    return body();
  } catch (const std::exception &error) {
    leave_error(context, error.what());
  } catch (...) {
    leave_error(context, "unknown exception");
  }
  return -1;
}

}  // namespace

QUILLBROOK_EXPORT int quillbrook_init(quillbrook_context *context) {
  return guarded(context, [context] {
    const quillbrook::dummy::Script script = quillbrook::dummy::load(*context);
    const bool refuses =
        script.error.empty() && !script.steps.empty() && script.steps.front().word == quillbrook::dummy::Word::kRefuse;
    return refuses ? -1 : 0;
  });
}

QUILLBROOK_EXPORT void *quillbrook_loop(quillbrook_context *context) {
  (void)guarded(context, [context] {
    const quillbrook::dummy::Script script = quillbrook::dummy::load(*context);
    quillbrook::dummy::SystemClock clock;
    quillbrook::dummy::Player(*context, script, clock).play();
    return 0;
  });
  return nullptr;
}

QUILLBROOK_EXPORT void quillbrook_stop(quillbrook_context *context) {
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
}

QUILLBROOK_EXPORT int quillbrook_check(quillbrook_context *context) {
  return guarded(context, [context] {
    const quillbrook::dummy::Script script = quillbrook::dummy::load(*context);
    (void)snprintf(context->errors, sizeof(context->errors), "%s", script.error.c_str());
    return script.error.empty() ? 0 : -1;
  });
}
