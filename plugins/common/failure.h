// What ends a recognition early.
#pragma once

#include <stdexcept>

namespace quillbrook::common {

// The recognition cannot go on. what() is a reason for the operator, without the URL.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The plugin was stopped. No std::exception, so that no handler takes it for a failure.
struct Stopped {};

}  // namespace quillbrook::common
