// The plugin's three entries. The library's and our own exceptions end here: nothing is thrown into the module.
#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>

#include "failure.h"
#include "link.h"
#include "recognition.h"

namespace quillbrook::websocket {
namespace {

// Keeps a write to a connection that is gone from ending the process: the TLS library writes without MSG_NOSIGNAL.
class WithoutBrokenPipe {
public:
  WithoutBrokenPipe() {
    sigemptyset(&broken_pipe_);
    sigaddset(&broken_pipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &broken_pipe_, &before_);
  }
  ~WithoutBrokenPipe() {
    const timespec now = {};
    if (sigismember(&before_, SIGPIPE) == 0) sigtimedwait(&broken_pipe_, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  WithoutBrokenPipe(const WithoutBrokenPipe &) = delete;
  WithoutBrokenPipe &operator=(const WithoutBrokenPipe &) = delete;

private:
  sigset_t broken_pipe_ = {};
  sigset_t before_ = {};
};

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
    quillbrook::websocket::Link link(context);
    quillbrook::websocket::recognise(link);
  } catch (...) {
    snprintf(context->extra, sizeof context->extra, "ERROR: out of memory");
  }
  return nullptr;
}

extern "C" __attribute__((visibility("default"))) void quillbrook_stop(quillbrook_context *context) {
  // In this order: who sees finalize raised by a stop also sees that it is a stop.
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
}
