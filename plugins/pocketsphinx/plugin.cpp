// The plugin's three entries.
#include <string>

#include "entries.h"
#include "failure.h"
#include "recognition.h"

namespace quillbrook::pocketsphinx {
namespace {

// Shared by all calls. Freed when the plugin is unloaded.
DecoderPool pool;
ChannelMemory channels;

void recognise(common::Link &link) {
  try {
    Recognition(link, pool, channels).run();
  } catch (const std::exception &error) {
    throw common::Failure(std::string("pocketsphinx: ") + error.what());
  }
}

}  // namespace
}  // namespace quillbrook::pocketsphinx

QUILLBROOK_PLUGIN_ENTRY int quillbrook_init(quillbrook_context *) {
  return 0;
}

QUILLBROOK_PLUGIN_ENTRY void *quillbrook_loop(quillbrook_context *context) {
  return quillbrook::common::run_loop(context, "pocketsphinx", quillbrook::pocketsphinx::recognise);
}

QUILLBROOK_PLUGIN_ENTRY void quillbrook_stop(quillbrook_context *context) {
  quillbrook::common::Link::stop(context);
}
