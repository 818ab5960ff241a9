#include "servers.h"

#include <algorithm>
#include <random>

#include "failure.h"

namespace quillbrook::common {

namespace {

constexpr std::chrono::seconds kRest{10};
// URLs come from the configuration, so there are few: a limit all the same.
constexpr size_t kMostKept = 1000;

std::vector<std::string> split(const std::string &urls) {
  constexpr char kBlanks[] = " \t";
  std::vector<std::string> list;
  size_t from = urls.find_first_not_of(kBlanks);
  while (from != std::string::npos) {
    const size_t end = std::min(urls.find_first_of(kBlanks, from), urls.size());
    list.push_back(urls.substr(from, end - from));
    from = urls.find_first_not_of(kBlanks, end);
  }
  return list;
}

}  // namespace

std::vector<std::string> Servers::in_order(const std::string &urls, Pick pick, Moment now) {
  std::vector<std::string> list = split(urls);
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
