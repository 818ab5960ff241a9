#include "settings.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <string_view>

#include "failure.h"

namespace quillbrook::websocket {

namespace {

bool starts_with(const std::string &text, const char *scheme, size_t length) {
  return text.size() >= length && strncasecmp(text.c_str(), scheme, length) == 0;
}

bool number(std::string_view text, int least, int most, int &value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() && value >= least && value <= most;
}

bool truth(const std::string &value, bool &result) {
  for (const char *yes : {"yes", "true", "on", "1"}) {
    if (strcasecmp(value.c_str(), yes) == 0) return result = true;
  }
  for (const char *no : {"no", "false", "off", "0"}) {
    if (strcasecmp(value.c_str(), no) == 0) return !(result = false);
  }
  return false;
}

bool milliseconds(const std::string &value, Milliseconds &result) {
  constexpr int kLeast = 10;
  constexpr int kMost = 60000;
  int count = 0;
  if (!number(value, kLeast, kMost, count)) return false;
  result = Milliseconds(count);
  return true;
}

bool set(Settings &settings, const std::string &key, const std::string &value) {
  if (key == "tls_verify") return truth(value, settings.tls_verify);
  if (key == "words") return truth(value, settings.words);
  if (key == "hints") return truth(value, settings.hints);
  if (key == "connect_timeout") return milliseconds(value, settings.connect_timeout);
  if (key == "answer_timeout") return milliseconds(value, settings.answer_timeout);
  if (key == "final_timeout") return milliseconds(value, settings.final_timeout);
  if (key == "unknown_word") {
    settings.unknown_word = value;
    return true;
  }
  if (key == "tls_ca") {
    settings.tls_ca = value;
    return !value.empty();
  }
  return false;
}

}  // namespace

Url parse_url(const std::string &text) {
  Url url;
  size_t from = 0;
  if (starts_with(text, "ws://", 5)) {
    from = 5;
  } else if (starts_with(text, "wss://", 6)) {
    from = 6;
    url.tls = true;
  } else {
    throw Failure("the URL does not begin with ws:// or wss://");
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

Settings parse_settings(const std::string &configuration) {
  constexpr char kSeparators[] = ", \t\r\n";
  Settings settings;
  size_t from = configuration.find_first_not_of(kSeparators);
  while (from != std::string::npos) {
    const size_t end = std::min(configuration.find_first_of(kSeparators, from), configuration.size());
    const std::string parameter = configuration.substr(from, end - from);
    const size_t equals = std::min(parameter.find('='), parameter.size());
    const std::string value = equals < parameter.size() ? parameter.substr(equals + 1) : "";
    if (!set(settings, parameter.substr(0, equals), value)) {
      throw Failure("configuration: '" + parameter + "' is no known parameter with a value it can take");
    }
    from = configuration.find_first_not_of(kSeparators, end);
  }
  return settings;
}

}  // namespace quillbrook::websocket
