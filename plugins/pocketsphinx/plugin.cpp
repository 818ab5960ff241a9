// The three functions of the plugin. No exception leaves them.
#include <quillbrook.h>

#include <cstdio>
#include <exception>

#include "recognition.h"

namespace {

using namespace quillbrook::pocketsphinx;

// Shared by all calls. Freed when the plugin is unloaded.
DecoderPool pool;
ChannelMemory channels;

void fail(quillbrook_context *context, const char *reason) {
  snprintf(context->extra, sizeof context->extra, "ERROR: pocketsphinx: %s", reason);
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int quillbrook_init(quillbrook_context *context) {
  return context == nullptr ? -1 : 0;
}

__attribute__((visibility("default"))) void *quillbrook_loop(quillbrook_context *context) {
  try {
    Recognition(context, pool, channels).run();
  } catch (const std::exception &exception) {
    fail(context, exception.what());
  } catch (...) {
    fail(context, "unknown failure");
  }
  return nullptr;
}

__attribute__((visibility("default"))) void quillbrook_stop(quillbrook_context *context) {
  if (context == nullptr) return;
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
}
}
