// Addresses of servers, so that not every utterance waits for the name server.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "link.h"

namespace quillbrook::transcription {

// One object for all calls of the plugin; thread-safe.
class NameCache {
public:
  enum class Age { kFresh, kAny };  // of what is known: at most a minute; whatever it has

  // Addresses separated by commas, those of IPv6 in brackets. Looked up when nothing of that age is known; throws
  // Failure then, and Stopped.
  std::string addresses(common::Link &link, const std::string &host, const std::string &port, Age age,
                        common::Moment deadline);
  // For a host that could not be reached: it may have moved.
  void forget(const std::string &host, const std::string &port);

private:
  struct Known {
    std::string addresses;
    common::Moment until;
  };
  std::mutex lock_;                     // guards known_; innermost
  std::map<std::string, Known> known_;  // by host and port
};

}  // namespace quillbrook::transcription
