// What the operator set: the server's URL and the plugin's parameters.
#pragma once

#include <string>

#include "link.h"

namespace quillbrook::websocket {

// A URL of the schemes ws and wss (RFC 6455, section 3).
struct Url {
  bool tls = false;
  std::string host;       // without the brackets of an IPv6 address
  std::string port;       // decimal
  std::string authority;  // host and port as they stand in the URL
  std::string target;     // path and query, at least "/"
};

// The server's usual address, for an engine with no url.
constexpr char kDefaultUrl[] = "ws://localhost:2700";

// Throws Failure when the text is no such URL.
Url parse_url(const std::string &text);

struct Settings {
  bool tls_verify = true;              // refuse a server whose certificate does not prove its name
  std::string tls_ca;                  // PEM file of authorities; empty: the system's
  bool words = true;                   // ask for figures for each word, of which the confidence is made
  bool hints = true;                   // send the phrases to expect
  std::string unknown_word = "[unk]";  // the server's word for speech that fits no phrase; empty: it has none
  Milliseconds connect_timeout{3000};  // name, TCP, TLS and handshake together
  Milliseconds answer_timeout{5000};   // longest time without an answer while one is due
  Milliseconds final_timeout{1000};    // longest wait for the last result
};

// Parameters "key=value" separated by commas or blanks. Throws Failure naming the one that it does not understand.
Settings parse_settings(const std::string &configuration);

}  // namespace quillbrook::websocket
