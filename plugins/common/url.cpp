#include "url.h"

#include <strings.h>

#include <algorithm>

#include "failure.h"
#include "parameter_list.h"

namespace quillbrook::common {

namespace {

// Length of "SCHEME://" when the text begins with it, else 0.
size_t scheme_length(const std::string &text, std::string_view scheme) {
  const std::string begin = std::string(scheme) + "://";
  return strncasecmp(text.c_str(), begin.c_str(), begin.size()) == 0 ? begin.size() : 0;
}

}  // namespace

Url parse_url(const std::string &text, std::string_view plain_scheme, std::string_view tls_scheme) {
  Url url;
  size_t from = scheme_length(text, plain_scheme);
  if (from == 0) {
    from = scheme_length(text, tls_scheme);
    url.tls = true;
  }
  if (from == 0) {
    throw Failure("the URL does not begin with " + std::string(plain_scheme) + ":// or " + std::string(tls_scheme) +
                  "://");
  }
  // A blank or a line break would end the line of the request that the URL stands in.
  if (std::any_of(text.begin(), text.end(), [](unsigned char c) { return c <= ' ' || c == 0x7f; })) {
    throw Failure("the URL has a blank or a control character in it");
  }
  const size_t end = std::min(text.find_first_of("/?#", from), text.size());
  url.authority = text.substr(from, end - from);
  url.target = text.substr(end, text.find('#', end) - end);
  if (url.target.empty() || url.target[0] != '/') url.target.insert(0, "/");
  if (url.authority.find('@') != std::string::npos) throw Failure("the URL names a user, which is not supported");

  std::string rest;
  if (url.authority[0] == '[') {
    const size_t close = url.authority.find(']');
    if (close == std::string::npos) throw Failure("the URL has a '[' without a ']'");
    url.host = url.authority.substr(1, close - 1);
    rest = url.authority.substr(close + 1);
  } else {
    const size_t colon = std::min(url.authority.find(':'), url.authority.size());
    url.host = url.authority.substr(0, colon);
    rest = url.authority.substr(colon);
  }
  if (url.host.empty()) throw Failure("the URL names no host");
  url.port = url.tls ? "443" : "80";
  if (rest.empty()) return url;
  int port = 0;
  if (rest[0] != ':' || !number(std::string_view(rest).substr(1), 1, 65535, port)) {
    throw Failure("the URL's port is no number from 1 to 65535");
  }
  url.port = std::to_string(port);
  return url;
}

UrlList split_urls(const std::string &text, std::string_view plain_scheme, std::string_view tls_scheme) {
  constexpr char kBlanks[] = " \t";
  UrlList list;
  size_t from = text.find_first_not_of(kBlanks);
  while (from != std::string::npos) {
    const size_t end = std::min(text.find_first_of(kBlanks, from), text.size());
    std::string url = text.substr(from, end - from);
    try {
      parse_url(url, plain_scheme, tls_scheme);
      list.urls.push_back(std::move(url));
    } catch (const Failure &failure) {
      list.complaints.push_back(url + ": " + failure.what());
    }
    from = text.find_first_not_of(kBlanks, end);
  }
  if (list.urls.empty() && list.complaints.empty()) list.complaints.emplace_back("there is no URL");
  return list;
}

}  // namespace quillbrook::common
