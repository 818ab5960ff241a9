// The plugin's entries.
#include "network_loop.h"
#include "recognition.h"

using namespace quillbrook;

QUILLBROOK_PLUGIN_ENTRY int quillbrook_init(quillbrook_context *context) {
  // The server can be told that the audio ends, and then gives its last words.
  __atomic_store_n(&context->quantum, 1, __ATOMIC_RELEASE);
  return 0;
}

QUILLBROOK_PLUGIN_ENTRY void *quillbrook_loop(quillbrook_context *context) {
  return common::run_network_loop(context, "websocket", websocket::kDefaultUrl, [](common::Link &link) {
    static common::Servers servers;  // of all calls
    websocket::Recognition(link, servers).run();
  });
}

QUILLBROOK_PLUGIN_ENTRY void quillbrook_stop(quillbrook_context *context) {
  common::Link::stop(context);
}

QUILLBROOK_PLUGIN_ENTRY int quillbrook_check(quillbrook_context *context) {
  return common::run_check(context, [&] { return websocket::complaints_about(*context); });
}
