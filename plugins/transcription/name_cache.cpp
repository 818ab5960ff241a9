#include "name_cache.h"

#include <netdb.h>

#include "resolver.h"

namespace quillbrook::transcription {

namespace {

constexpr std::chrono::seconds kLifetime{60};
constexpr size_t kMostKnown = 1000;

std::string list_of(const std::vector<common::Address> &found) {
  std::string list;
  for (const common::Address &address : found) {
    char text[NI_MAXHOST];
    const auto *socket = reinterpret_cast<const sockaddr *>(&address.socket);
    if (getnameinfo(socket, address.length, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) continue;
    if (!list.empty()) list += ',';
    list += socket->sa_family == AF_INET6 ? '[' + std::string(text) + ']' : text;
  }
  return list;
}

}  // namespace

std::string NameCache::addresses(common::Link &link, const std::string &host, const std::string &port, Age age,
                                 common::Moment deadline) {
  const std::string name = host + ':' + port;
  {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = known_.find(name);
    const bool will_do = found != known_.end() && (age == Age::kAny || found->second.until > common::Clock::now());
    if (will_do) return found->second.addresses;
  }
  std::string list = list_of(common::resolve(link, host, port, deadline));
  const std::lock_guard<std::mutex> guard(lock_);
  if (known_.size() > kMostKnown) known_.clear();
  known_[name] = {list, common::Clock::now() + kLifetime};
  return list;
}

void NameCache::forget(const std::string &host, const std::string &port) {
  const std::lock_guard<std::mutex> guard(lock_);
  known_.erase(host + ':' + port);
}

}  // namespace quillbrook::transcription
