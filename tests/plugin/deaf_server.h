#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

// A port of the loopback address. At first a connection to it is refused; then it gets no answer at all: it is listened
// to, nothing is accepted, and the queue is full.
class DeafServer {
public:
  DeafServer() {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address_;
    EXPECT_EQ(bind(listener_, generic(), size), 0);
    EXPECT_EQ(getsockname(listener_, generic(), &size), 0);
  }
  ~DeafServer() {
    for (const int filler : queued_) close(filler);
    close(listener_);
  }
  DeafServer(const DeafServer &) = delete;
  DeafServer &operator=(const DeafServer &) = delete;

  int port() const { return ntohs(address_.sin_port); }
  void listen() {
    EXPECT_EQ(::listen(listener_, 0), 0);
    for (int &filler : queued_) {
      filler = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      EXPECT_NE(connect(filler, generic(), sizeof address_), 0) << "it does not wait";
    }
  }

private:
  sockaddr *generic() { return reinterpret_cast<sockaddr *>(&address_); }
  const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address_ = {};
  int queued_[2] = {-1, -1};
};
