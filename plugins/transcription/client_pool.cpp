#include "client_pool.h"

#include <algorithm>
#include <new>

namespace quillbrook::transcription {

namespace {

constexpr size_t kMostIdle = 64;
constexpr std::chrono::seconds kLongestIdle{60};

}  // namespace

ClientPool::ClientPool() {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  shared_ = curl_share_init();
  if (shared_ == nullptr) throw std::bad_alloc();
  curl_share_setopt(shared_, CURLSHOPT_LOCKFUNC, lock_shared);
  curl_share_setopt(shared_, CURLSHOPT_UNLOCKFUNC, unlock_shared);
  curl_share_setopt(shared_, CURLSHOPT_USERDATA, this);
  curl_share_setopt(shared_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
}

ClientPool::~ClientPool() {
  idle_.clear();
  curl_share_cleanup(shared_);
  curl_global_cleanup();
}

std::unique_ptr<HttpClient> ClientPool::take(const std::string &server) {
  std::vector<Idle> old;  // closed without the lock
  {
    const std::lock_guard<std::mutex> guard(lock_);
    old = take_old(kMostIdle);
    const auto found =
        std::find_if(idle_.rbegin(), idle_.rend(), [&](const Idle &idle) { return idle.server == server; });
    if (found != idle_.rend()) {
      auto client = std::move(found->client);
      idle_.erase(std::next(found).base());
      return client;
    }
  }
  return std::make_unique<HttpClient>(shared_);
}

void ClientPool::give_back(std::unique_ptr<HttpClient> client, const std::string &server) {
  std::vector<Idle> old;  // closed without the lock
  client->drop();
  const std::lock_guard<std::mutex> guard(lock_);
  old = take_old(kMostIdle - 1);
  idle_.push_back({std::move(client), server, Clock::now()});
}

// What has waited too long, and what is beyond that number.
std::vector<ClientPool::Idle> ClientPool::take_old(size_t most) {
  const auto now = Clock::now();
  // The oldest stand in front.
  const auto fresh =
      std::find_if(idle_.begin(), idle_.end(), [&](const Idle &idle) { return now - idle.since < kLongestIdle; });
  const auto beyond = idle_.end() - static_cast<std::ptrdiff_t>(std::min(most, idle_.size()));
  const auto keep = std::max(fresh, beyond);
  std::vector<Idle> old(std::make_move_iterator(idle_.begin()), std::make_move_iterator(keep));
  idle_.erase(idle_.begin(), keep);
  return old;
}

void ClientPool::lock_shared(CURL *, curl_lock_data what, curl_lock_access, void *self) {
  static_cast<ClientPool *>(self)->shared_locks_[what].lock();
}

void ClientPool::unlock_shared(CURL *, curl_lock_data what, void *self) {
  static_cast<ClientPool *>(self)->shared_locks_[what].unlock();
}

}  // namespace quillbrook::transcription
