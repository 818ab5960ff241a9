// Clients that wait for their next request, with connections that are still open, and what all clients share.
#pragma once

#include <curl/curl.h>

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "http_client.h"

namespace quillbrook::transcription {

// One object for all calls of the plugin; thread-safe. Clients are given back before it goes.
class ClientPool {
public:
  ClientPool();
  ~ClientPool();
  ClientPool(const ClientPool &) = delete;
  ClientPool &operator=(const ClientPool &) = delete;

  // One that was given back for this server last, so that its connection may still be open, or a new one. Those that
  // waited for more than a minute are closed, here and below.
  std::unique_ptr<HttpClient> take(const std::string &server);
  void give_back(std::unique_ptr<HttpClient> client, const std::string &server);

private:
  struct Idle {
    std::unique_ptr<HttpClient> client;
    std::string server;
    Moment since;
  };

  std::vector<Idle> take_old(size_t most);

  static void lock_shared(CURL *, curl_lock_data what, curl_lock_access, void *self);
  static void unlock_shared(CURL *, curl_lock_data what, void *self);

  // Held by the library while it looks at what clients share, never while it waits.
  std::array<std::mutex, CURL_LOCK_DATA_LAST> shared_locks_;
  CURLSH *shared_;   // sessions of TLS
  std::mutex lock_;  // guards idle_; innermost
  std::vector<Idle> idle_;
};

}  // namespace quillbrook::transcription
