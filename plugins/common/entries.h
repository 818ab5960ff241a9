// The way from the module into a plugin written in C++: no exception is thrown into the module.
#pragma once

#include <cstdio>
#include <exception>

#include "link.h"

#define QUILLBROOK_PLUGIN_ENTRY extern "C" __attribute__((visibility("default")))

namespace quillbrook::common {

// Runs body(link) for a plugin's loop. What it throws becomes the failure that the module reports; in any case the
// session has ended then.
template <typename Body>
void *run_loop(quillbrook_context *context, const char *plugin, Body body) noexcept {
  try {
    Link link(context, plugin);
    try {
      body(link);
    } catch (const std::exception &error) {
      link.fail(error.what());
    }
    link.end();
  } catch (...) {
    (void)snprintf(context->extra, sizeof context->extra, "ERROR: out of memory");
  }
  return nullptr;
}

}  // namespace quillbrook::common
