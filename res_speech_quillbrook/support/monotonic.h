// Time that runs evenly, whatever happens to the wall clock.
#pragma once

#include "../host.h"

// Micro- and milliseconds since some fixed moment.
inline int64_t monotonic_us() {
  struct timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}
inline int64_t monotonic_ms() {
  return monotonic_us() / 1000;
}
