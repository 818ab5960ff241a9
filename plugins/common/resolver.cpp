// Names are looked up by c-ares, on this thread and with sockets that can be waited for beside a stop. The C library's
// own functions either stand still for as long as the name server does, or run on threads that outlive a recognition
// (and getaddrinfo_a's gai_suspend, with a time limit, leaves them a pointer into a stack frame that is gone).
#include "resolver.h"

#include <ares.h>
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "failure.h"

namespace quillbrook::common {

namespace {

// Addresses of one host that are tried.
constexpr size_t kMostAddresses = 4;

struct Lookup {
  bool done = false;
  int status = ARES_SUCCESS;
  std::vector<Address> found;
};

void add(const sockaddr *socket, socklen_t length, std::vector<Address> &found) {
  Address address;
  if (found.size() == kMostAddresses || length > sizeof address.socket) return;
  memcpy(&address.socket, socket, length);
  address.length = length;
  found.push_back(address);
}

// Called by the library, which no exception may pass: the room in `found` is there.
void take_result(void *argument, int status, int, ares_addrinfo *result) {
  auto *lookup = static_cast<Lookup *>(argument);
  lookup->done = true;
  lookup->status = status;
  if (result == nullptr) return;
  for (const ares_addrinfo_node *node = result->nodes; node != nullptr; node = node->ai_next) {
    add(node->ai_addr, node->ai_addrlen, lookup->found);
  }
  ares_freeaddrinfo(result);
}

// An address in digits needs no looking up.
void add_numeric(const std::string &host, const std::string &port, std::vector<Address> &found) {
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  addrinfo *list = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &list) != 0) return;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
  add(list->ai_addr, list->ai_addrlen, found);
}

class Channel {
public:
  Channel() {
    static const int kReady = ares_library_init(ARES_LIB_INIT_ALL);
    // A lost packet is sent again while there is time: the library's own figures are for patient programs.
    ares_options options = {};
    options.timeout = 700;
    options.tries = 3;
    options.sock_state_cb = take_socket;
    options.sock_state_cb_data = this;
    constexpr int kSet = ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES | ARES_OPT_SOCK_STATE_CB;
    if (kReady != ARES_SUCCESS || ares_init_options(&channel_, &options, kSet) != 0) {
      throw Failure("the host's name cannot be looked up");
    }
  }
  ~Channel() { ares_destroy(channel_); }
  Channel(const Channel &) = delete;
  Channel &operator=(const Channel &) = delete;

  void start(const std::string &host, const std::string &port, Lookup &lookup) {
    ares_addrinfo_hints hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = ARES_AI_NUMERICSERV;
    ares_getaddrinfo(channel_, host.c_str(), port.c_str(), &hints, take_result, &lookup);
  }

  // Waits for one thing to happen and does what follows from it.
  Link::Wait step(Link &link, Moment deadline) {
    std::array<pollfd, kMostSockets> watched = watched_;  // what happens changes the list
    const nfds_t count = count_;
    // The turn bounds the wait too, so the library's own timeouts are seen to in time.
    const Link::Wait wait = link.wait(watched.data(), count, std::min(deadline, Clock::now() + kTurn));
    for (nfds_t i = 0; i < count && wait == Link::Wait::kReady; ++i) {
      const bool read = (watched[i].revents & (POLLIN | POLLERR | POLLHUP)) != 0;
      const bool write = (watched[i].revents & POLLOUT) != 0;
      ares_process_fd(channel_, read ? watched[i].fd : ARES_SOCKET_BAD, write ? watched[i].fd : ARES_SOCKET_BAD);
    }
    if (wait == Link::Wait::kElapsed) ares_process_fd(channel_, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
    return wait;
  }

private:
  // Some for each name server of the system. One that is left out is not heard, and then the next server is asked.
  static constexpr size_t kMostSockets = 16;

  // Called by the library: what to wait for at a socket from now on, which is nothing once it is to be closed.
  static void take_socket(void *self, ares_socket_t socket, int readable, int writable) {
    auto *channel = static_cast<Channel *>(self);
    pollfd *begin = channel->watched_.data();
    pollfd *end = begin + channel->count_;
    pollfd *found = std::find_if(begin, end, [socket](const pollfd &each) { return each.fd == socket; });
    const int events = (readable != 0 ? POLLIN : 0) | (writable != 0 ? POLLOUT : 0);
    if (events == 0) {
      if (found == end) return;
      *found = *(end - 1);
      --channel->count_;
    } else if (found != end || channel->count_ < kMostSockets) {
      *found = {socket, static_cast<short>(events), 0};
      if (found == end) ++channel->count_;
    }
  }

  ares_channel channel_ = nullptr;
  std::array<pollfd, kMostSockets> watched_{};
  nfds_t count_ = 0;
};

}  // namespace

bool is_address(const std::string &host) {
  in6_addr any;
  return inet_pton(AF_INET, host.c_str(), &any) == 1 || inet_pton(AF_INET6, host.c_str(), &any) == 1;
}

std::vector<Address> resolve(Link &link, const std::string &host, const std::string &port, Moment deadline) {
  Lookup lookup;  // outlives the channel, whose end completes what is under way
  lookup.found.reserve(kMostAddresses);
  add_numeric(host, port, lookup.found);
  if (!lookup.found.empty()) return lookup.found;

  Channel channel;
  channel.start(host, port, lookup);
  while (!lookup.done) {
    if (channel.step(link, deadline) == Link::Wait::kStopped) throw Stopped{};
    if (!lookup.done && Clock::now() >= deadline) throw Failure("the host's name was not looked up in time");
  }
  if (lookup.found.empty()) throw Failure(std::string("the host's name is not known: ") + ares_strerror(lookup.status));
  return lookup.found;
}

}  // namespace quillbrook::common
