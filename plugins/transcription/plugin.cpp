// The plugin's entries.
#include "network_loop.h"
#include "recognition.h"

using namespace quillbrook;

QUILLBROOK_PLUGIN_ENTRY int quillbrook_init(quillbrook_context *context) {
  // What is being said can be asked about at once.
  __atomic_store_n(&context->quantum, 1, __ATOMIC_RELEASE);
  return 0;
}

QUILLBROOK_PLUGIN_ENTRY void *quillbrook_loop(quillbrook_context *context) {
  return common::run_network_loop(context, "transcription", transcription::kDefaultUrl, [](common::Link &link) {
    static transcription::Shared shared;  // by all calls; goes when the plugin is unloaded
    transcription::Recognition(link, shared).run();
  });
}

QUILLBROOK_PLUGIN_ENTRY void quillbrook_stop(quillbrook_context *context) {
  common::Link::stop(context);
}

QUILLBROOK_PLUGIN_ENTRY int quillbrook_check(quillbrook_context *context) {
  return common::run_check(context, [&] { return transcription::complaints_about(*context); });
}
