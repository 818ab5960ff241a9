// URLs of servers: SCHEME://host[:port][/path][?query].
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillbrook::common {

struct Url {
  bool tls = false;
  std::string host;       // without the brackets of an IPv6 address
  std::string port;       // decimal
  std::string authority;  // host and port as they stand in the URL
  std::string target;     // path and query, at least "/"
};

// Accepts two schemes, one of them with TLS: their ports are 80 and 443. Throws Failure when the text is no such URL.
Url parse_url(const std::string &text, std::string_view plain_scheme, std::string_view tls_scheme);

struct UrlList {
  std::vector<std::string> urls;
  std::vector<std::string> complaints;  // a sentence, beginning with it, for each text that is no such URL
};

// Several, separated by blanks.
UrlList split_urls(const std::string &text, std::string_view plain_scheme, std::string_view tls_scheme);

}  // namespace quillbrook::common
