#include "servers.h"

#include <algorithm>
#include <random>

namespace quillbrook::common {

namespace {

constexpr std::chrono::seconds kRest{10};
// URLs come from the configuration, so there are few: a limit all the same.
constexpr size_t kMostKept = 1000;

}  // namespace

std::vector<std::string> Servers::in_order(const std::vector<std::string> &urls, Pick pick, Moment now) {
  std::vector<std::string> list = urls;
  if (list.size() < 2) return list;
  if (pick == Pick::kRandom) std::shuffle(list.begin(), list.end(), std::mt19937(std::random_device()()));
  const std::lock_guard<std::mutex> guard(lock_);
  if (pick == Pick::kRotate) {
    if (turns_.size() > kMostKept) turns_.clear();
    const size_t turn = turns_[urls]++ % list.size();
    std::rotate(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(turn), list.end());
  }
  std::stable_partition(list.begin(), list.end(), [&](const std::string &url) {
    const auto rest = rests_.find(url);
    return rest == rests_.end() || rest->second <= now;
  });
  return list;
}

void Servers::failed(const std::string &url, Moment now) {
  const std::lock_guard<std::mutex> guard(lock_);
  if (rests_.size() > kMostKept) rests_.clear();
  rests_[url] = now + kRest;
}

bool pick(const std::string &value, Pick &result) {
  if (value != "first" && value != "random" && value != "rotate") return false;
  result = value == "first" ? Pick::kFirst : value == "random" ? Pick::kRandom : Pick::kRotate;
  return true;
}

}  // namespace quillbrook::common
