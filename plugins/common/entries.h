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

// Has body() say what it thinks of the settings in the record, a sentence each, for a plugin's check. What it throws is
// its last word.
template <typename Body>
int run_check(quillbrook_context *context, Body body) noexcept {
  try {
    std::string sentences;
    try {
      for (const std::string &sentence : body()) sentences += sentence + '\n';
    } catch (const std::exception &error) {
      sentences = error.what();
    }
    (void)snprintf(context->errors, sizeof context->errors, "%s", sentences.c_str());
  } catch (...) {
    (void)snprintf(context->errors, sizeof context->errors, "out of memory");
  }
  return context->errors[0] != '\0' ? -1 : 0;
}

}  // namespace quillbrook::common
