// The loop of a plugin that talks to a server.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "broken_pipe.h"
#include "entries.h"
#include "failure.h"
#include "url.h"

namespace quillbrook::common {

// The URLs that the engine was given.
inline std::string urls_of(const quillbrook_context &record, const char *default_url) {
  return record.profile[0] != '\0' ? record.profile : default_url;
}

// Those of them that are URLs of these schemes, complaining about the others: one slip of the pen must not take the
// other servers away. Throws ServerFailure when none is left.
inline std::vector<std::string> usable_urls(const Link &link, const char *default_url, std::string_view plain_scheme,
                                            std::string_view tls_scheme) {
  UrlList list = split_urls(urls_of(link.record(), default_url), plain_scheme, tls_scheme);
  if (list.urls.empty()) throw ServerFailure(list.complaints.front());
  for (const std::string &complaint : list.complaints) link.complain(complaint);
  return std::move(list.urls);
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
