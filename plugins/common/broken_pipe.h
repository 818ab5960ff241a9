#pragma once

#include <pthread.h>

#include <csignal>
#include <ctime>

namespace quillbrook::common {

// Keeps a write to a connection that is gone from ending the process, on this thread and for as long as it lives: TLS
// libraries write without MSG_NOSIGNAL.
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

}  // namespace quillbrook::common
