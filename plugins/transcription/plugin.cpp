// The plugin's three entries.
#include <string>

#include "broken_pipe.h"
#include "entries.h"
#include "failure.h"
#include "recognition.h"

namespace quillbrook::transcription {
namespace {

void recognise(common::Link &link) {
  static Shared shared;  // by all calls; goes when the plugin is unloaded
  const common::WithoutBrokenPipe quiet;
  try {
    Recognition(link, shared).run();
  } catch (const common::ServerFailure &) {
    throw;
  } catch (const std::exception &error) {
    const char *url = link.record().profile[0] != '\0' ? link.record().profile : kDefaultUrl;
    throw common::Failure(std::string(url) + ": " + error.what());
  }
}

}  // namespace
}  // namespace quillbrook::transcription

QUILLBROOK_PLUGIN_ENTRY int quillbrook_init(quillbrook_context *context) {
  // What is being said can be asked about at once.
  __atomic_store_n(&context->quantum, 1, __ATOMIC_RELEASE);
  return 0;
}

QUILLBROOK_PLUGIN_ENTRY void *quillbrook_loop(quillbrook_context *context) {
  return quillbrook::common::run_loop(context, "transcription", quillbrook::transcription::recognise);
}

QUILLBROOK_PLUGIN_ENTRY void quillbrook_stop(quillbrook_context *context) {
  quillbrook::common::Link::stop(context);
}
