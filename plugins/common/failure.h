// What ends a recognition early.
#pragma once

#include <stdexcept>

namespace quillbrook::common {

// The recognition cannot go on. what() is a reason for the operator, without the URL.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The same; what() begins with the URL of the server that it is about, or names several with their reasons.
struct ServerFailure : Failure {
  using Failure::Failure;
};

// The plugin was stopped. No std::exception, so that no handler takes it for a failure.
struct Stopped {};

}  // namespace quillbrook::common
