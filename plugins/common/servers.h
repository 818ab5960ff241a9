// The servers of an engine: in which order to try them, and which of them had better be left alone for a while.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace quillbrook::common {

enum class Pick { kFirst, kRandom, kRotate };

// What the calls of a plugin know of its servers. One object for all of them; thread-safe.
class Servers {
public:
  using Moment = std::chrono::steady_clock::time_point;

  // In the order to be tried: as picked, but those that rest come last.
  std::vector<std::string> in_order(const std::vector<std::string> &urls, Pick pick, Moment now);
  // Lets the server rest for ten seconds: it cannot be reached, is gone, or fails.
  void failed(const std::string &url, Moment now);

private:
  std::mutex lock_;                                   // guards what follows; innermost
  std::map<std::string, Moment> rests_;               // until then, by URL
  std::map<std::vector<std::string>, size_t> turns_;  // whose turn is next, by the list of URLs
};

// first, random, rotate.
bool pick(const std::string &value, Pick &result);

}  // namespace quillbrook::common
