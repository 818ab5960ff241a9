#include "server_settings.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "descriptor.h"
#include "failure.h"

namespace quillbrook::common {

bool ServerSettings::set(const Parameter &parameter) {
  const auto &[whole, key, value] = parameter;
  if (key == "tls_verify") return truth(value, tls_verify);
  if (key == "pick") return common::pick(value, pick);
  if (key == "connect_timeout") return milliseconds(value, connect_timeout);
  if (key == "answer_timeout") return milliseconds(value, answer_timeout);
  if (key == "tls_ca") return nonempty(value, tls_ca);
  if (key == "key_file") return nonempty(value, key_file);
  return false;
}

std::vector<std::string> ServerSettings::complaints_about(const std::string &configuration,
                                                          const std::function<bool(const Parameter &)> &set,
                                                          const UrlList &urls) {
  std::vector<std::string> sentences = refused_parameters(configuration, set);
  sentences.insert(sentences.end(), urls.complaints.begin(), urls.complaints.end());
  try {
    read_key();
  } catch (const Failure &failure) {
    sentences.emplace_back(failure.what());
  }
  if (!tls_ca.empty() && access(tls_ca.c_str(), R_OK) != 0) {
    sentences.push_back("the file " + tls_ca + " of tls_ca cannot be read: " + strerror(errno));
  }
  return sentences;
}

std::string ServerSettings::read_key() const {
  constexpr size_t kLongest = 4096;
  if (key_file.empty()) return "";
  const Descriptor file(open(key_file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  char bytes[kLongest];
  const ssize_t size = file.get() < 0 ? -1 : read(file.get(), bytes, sizeof bytes);
  if (size < 0) throw Failure("the key file " + key_file + " cannot be read: " + strerror(errno));
  std::string_view key(bytes, static_cast<size_t>(size));
  key = key.substr(0, key.find_first_of("\r\n"));
  while (!key.empty() && key.back() == ' ') key.remove_suffix(1);
  // What stands in the header of a request must not end its line.
  const bool printable = std::all_of(key.begin(), key.end(), [](char c) { return c > ' ' && c <= '~'; });
  if (key.empty() || !printable || size == kLongest) {
    throw Failure("the first line of the key file " + key_file + " is no key");
  }
  return std::string(key);
}

}  // namespace quillbrook::common
