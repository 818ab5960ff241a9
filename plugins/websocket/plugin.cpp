// The plugin's three entries. The library's and our own exceptions end here: nothing is thrown into the module.
#include <cstdio>
#include <string>

#include "broken_pipe.h"
#include "link.h"
#include "recognition.h"

namespace quillbrook::websocket {
namespace {

void recognise(Link &link) {
  const WithoutBrokenPipe quiet;
  const char *url = link.record().profile[0] != '\0' ? link.record().profile : kDefaultUrl;
  try {
    Recognition(link).run();
  } catch (const std::exception &error) {
    link.fail(std::string(url) + ": " + error.what());
  }
  link.end();
}

}  // namespace
}  // namespace quillbrook::websocket

extern "C" __attribute__((visibility("default"))) int quillbrook_init(quillbrook_context *context) {
  // The server can be told that the audio ends, and then gives its last words.
  __atomic_store_n(&context->quantum, 1, __ATOMIC_RELEASE);
  return 0;
}

extern "C" __attribute__((visibility("default"))) void *quillbrook_loop(quillbrook_context *context) {
  try {
    quillbrook::common::Link link(context, "websocket");
    quillbrook::websocket::recognise(link);
  } catch (...) {
    snprintf(context->extra, sizeof context->extra, "ERROR: out of memory");
  }
  return nullptr;
}

extern "C" __attribute__((visibility("default"))) void quillbrook_stop(quillbrook_context *context) {
  quillbrook::common::Link::stop(context);
}
