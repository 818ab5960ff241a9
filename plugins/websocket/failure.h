// What ends a recognition early.
#pragma once

#include <stdexcept>

namespace quillbrook::websocket {

// The recognition cannot go on. what() is a reason for the operator, without the URL.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The connection was up and is gone; another one may do better.
struct Lost : Failure {
  using Failure::Failure;
};

// The plugin was stopped. No std::exception, so that no handler takes it for a failure.
struct Stopped {};

}  // namespace quillbrook::websocket
