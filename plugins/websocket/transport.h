// A TCP connection, with TLS on top when the URL asks for it. Reading and writing never wait.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "descriptor.h"
#include "failure.h"
#include "link.h"
#include "settings.h"
#include "url.h"

namespace quillbrook::websocket {

using namespace common;  // what network plugins share

// The connection was up and is gone; another one may do better.
struct Lost : Failure {
  using Failure::Failure;
};

class Transport {
public:
  // Connects to the first of the host's addresses that answers, TLS included, giving the module its turns.
  // Throws Failure, and Stopped.
  Transport(Link &link, const Url &url, const Settings &settings, Moment deadline);
  ~Transport();
  Transport(const Transport &) = delete;
  Transport &operator=(const Transport &) = delete;

  // Bytes that are there, `size` at most; 0 when there are none now. Throws Lost when there will be no more.
  size_t read(char *bytes, size_t size);
  // Returns how many of the bytes went out; 0 when none does now. Throws Lost.
  size_t write(const char *bytes, size_t size);
  int descriptor() const { return socket_.get(); }
  // Whether reading goes on only when the socket can be written to.
  bool read_wants_write() const { return read_wants_write_; }

private:
  void connect(Link &link, const Url &url, Moment deadline);
  void start_tls(Link &link, const Url &url, const Settings &settings, Moment deadline);
  size_t result_of(int result);

  struct Release {
    void operator()(SSL_CTX *context) const { SSL_CTX_free(context); }
    void operator()(SSL *tls) const { SSL_free(tls); }
  };
  Descriptor socket_;
  std::unique_ptr<SSL_CTX, Release> tls_context_;
  std::unique_ptr<SSL, Release> tls_;  // null without TLS
  bool read_wants_write_ = false;
  bool broken_ = false;
};

}  // namespace quillbrook::websocket
