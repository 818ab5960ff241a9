// Parameters of every plugin that talks to a server.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "parameter_list.h"
#include "servers.h"
#include "url.h"

namespace quillbrook::common {

struct ServerSettings {
  bool tls_verify = true;    // refuse a server whose certificate does not prove its name
  std::string tls_ca;        // PEM file of authorities; empty: the system's
  std::string key_file;      // file with the key that the server asks for; empty: it asks for none
  Pick pick = Pick::kFirst;  // which of several servers is tried first
  std::chrono::milliseconds connect_timeout{3000};  // name, TCP, TLS and handshake, all servers together
  std::chrono::milliseconds answer_timeout{5000};   // longest time without an answer while one is due

  // Whether the parameter is one of these, with a value that it can take.
  bool set(const Parameter &parameter);
  // The key: the file's first line, or nothing. Throws Failure, which does not hold it.
  std::string read_key() const;
  // Sets each parameter by `set`, and gives a sentence for each that it does not take, for a file that is named and
  // cannot be used, and for what is no URL.
  std::vector<std::string> complaints_about(const std::string &configuration,
                                            const std::function<bool(const Parameter &)> &set, const UrlList &urls);
};

}  // namespace quillbrook::common
