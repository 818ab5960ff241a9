// The plugin's three entries.
#include <string>

#include "broken_pipe.h"
#include "entries.h"
#include "recognition.h"

namespace quillbrook::websocket {
namespace {

void recognise(Link &link) {
  static Servers servers;  // of all calls
  const WithoutBrokenPipe quiet;
  try {
    Recognition(link, servers).run();
  } catch (const ServerFailure &) {
    throw;
  } catch (const std::exception &error) {
    const char *url = link.record().profile[0] != '\0' ? link.record().profile : kDefaultUrl;
    throw Failure(std::string(url) + ": " + error.what());
  }
}

}  // namespace
}  // namespace quillbrook::websocket

QUILLBROOK_PLUGIN_ENTRY int quillbrook_init(quillbrook_context *context) {
  // The server can be told that the audio ends, and then gives its last words.
  __atomic_store_n(&context->quantum, 1, __ATOMIC_RELEASE);
  return 0;
}

QUILLBROOK_PLUGIN_ENTRY void *quillbrook_loop(quillbrook_context *context) {
  return quillbrook::common::run_loop(context, "websocket", quillbrook::websocket::recognise);
}

QUILLBROOK_PLUGIN_ENTRY void quillbrook_stop(quillbrook_context *context) {
  quillbrook::common::Link::stop(context);
}
