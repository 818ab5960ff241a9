// The guard around every function that the host or a plugin calls: neither is prepared for a C++ exception.
#pragma once

#include <cxxabi.h>

#include "../host.h"
#include "printable.h"

// Runs `body` and gives its result; an exception is logged at ERROR with the name of the entry, and `failed` is the
// result. The forced unwind of a thread that ends through pthread_exit passes. It comes with a null reference, which
// nobody looks at, so the sanitizer is told to pass it too.
template <typename Result, typename Body>
__attribute__((no_sanitize("null"))) Result guarded(const char *entry, Result failed, Body &&body) {
  try {
    return body();
  } catch (const abi::__forced_unwind &) {
    throw;
  } catch (const std::exception &error) {
    ast_log(LOG_ERROR, "%s: %s\n", entry, Printable(error.what()).text());
  } catch (...) {
    ast_log(LOG_ERROR, "%s: unknown exception\n", entry);
  }
  return failed;
}
