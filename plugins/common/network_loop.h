// The loop of a plugin that talks to a server.
#pragma once

#include <string>

#include "broken_pipe.h"
#include "entries.h"
#include "failure.h"

namespace quillbrook::common {

// The URLs that the engine was given.
inline std::string urls_of(const quillbrook_context &record, const char *default_url) {
  return record.profile[0] != '\0' ? record.profile : default_url;
}

// As run_loop(), with the URLs in front of a failure that does not name its own.
template <typename Body>
void *run_network_loop(quillbrook_context *context, const char *plugin, const char *default_url, Body body) noexcept {
  return run_loop(context, plugin, [&](Link &link) {
    const WithoutBrokenPipe quiet;
    try {
      body(link);
    } catch (const ServerFailure &) {
      throw;
    } catch (const std::exception &error) {
      throw Failure(urls_of(link.record(), default_url) + ": " + error.what());
    }
  });
}

}  // namespace quillbrook::common
