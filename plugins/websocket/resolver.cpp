/*
 * The C library's getaddrinfo_a looks names up on threads of its own, whose code never goes away: unlike a thread of
 * ours, one that still waits for a dead name server may outlive the recognition and even the plugin. What it works on
 * must then stay in memory, so an abandoned request is kept until a later recognition finds it done.
 */
#include "resolver.h"

#include <netdb.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>

#include "failure.h"

namespace quillbrook::websocket {

namespace {

struct Request {
  Request(std::string host_name, std::string port_number) : host(std::move(host_name)), port(std::move(port_number)) {
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG | AI_NUMERICSERV;
    control.ar_name = host.c_str();
    control.ar_service = port.c_str();
    control.ar_request = &hints;
  }
  ~Request() {
    if (control.ar_result != nullptr) freeaddrinfo(control.ar_result);
  }
  Request(const Request &) = delete;
  Request &operator=(const Request &) = delete;

  std::string host;
  std::string port;
  addrinfo hints = {};
  gaicb control = {};
};

/* Requests that the library has not let go of. Plain pointers: at exit they are left to it. Held for moments only. */
std::mutex abandoned_lock;
std::vector<Request *> abandoned;

void abandon(std::unique_ptr<Request> request) {
  const std::lock_guard<std::mutex> guard(abandoned_lock);
  const auto done = std::remove_if(abandoned.begin(), abandoned.end(), [](Request *old) {
    if (gai_error(&old->control) == EAI_INPROGRESS) return false;
    delete old;
    return true;
  });
  abandoned.erase(done, abandoned.end());
  if (gai_cancel(&request->control) == EAI_NOTCANCELED) abandoned.push_back(request.release());
}

std::vector<Address> addresses(const addrinfo *list) {
  constexpr size_t kMost = 4;
  std::vector<Address> found;
  for (; list != nullptr && found.size() < kMost; list = list->ai_next) {
    Address address;
    memcpy(&address.socket, list->ai_addr, list->ai_addrlen);
    address.length = list->ai_addrlen;
    found.push_back(address);
  }
  return found;
}

/* An address in digits needs no looking up. */
std::vector<Address> numeric(const std::string &host, const std::string &port) {
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  addrinfo *list = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &list) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
  return addresses(list);
}

}  // namespace

std::vector<Address> resolve(Link &link, const std::string &host, const std::string &port, Moment deadline) {
  auto found = numeric(host, port);
  if (!found.empty()) return found;

  auto request = std::make_unique<Request>(host, port);
  gaicb *list[] = {&request->control};
  if (getaddrinfo_a(GAI_NOWAIT, list, 1, nullptr) != 0) throw Failure("the host's name cannot be looked up");
  for (;;) {
    constexpr timespec kPause = {0, std::chrono::nanoseconds(kTurn).count() / 2};
    gai_suspend(list, 1, &kPause);
    const int error = gai_error(&request->control);
    if (error == 0) return addresses(request->control.ar_result);
    if (error != EAI_INPROGRESS) throw Failure(std::string("the host's name is not known: ") + gai_strerror(error));
    const Link::Wait turn = link.wait(-1, 0, Clock::now());
    if (turn == Link::Wait::kElapsed && Clock::now() < deadline) continue;
    abandon(std::move(request));
    if (turn == Link::Wait::kStopped) throw Stopped{};
    throw Failure("the host's name was not looked up in time");
  }
}

}  // namespace quillbrook::websocket
