#include "transport.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "failure.h"
#include "resolver.h"

namespace quillbrook::websocket {

namespace {

constexpr char kTooSlow[] = "no connection in time";

std::string tls_reason() {
  const char *reason = ERR_reason_error_string(ERR_peek_last_error());
  ERR_clear_error();
  return reason != nullptr ? reason : "the server closed the connection";
}

// One address. Returns 0, or the error.
int connect_to(Link &link, const Address &address, Moment deadline, Descriptor &result) {
  Descriptor made(socket(address.socket.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (made.get() < 0) return errno;
  const auto *target = reinterpret_cast<const sockaddr *>(&address.socket);
  if (::connect(made.get(), target, address.length) != 0) {
    if (errno != EINPROGRESS) return errno;
    const Link::Wait turn = link.wait(made.get(), POLLOUT, deadline);
    if (turn == Link::Wait::kStopped) throw Stopped{};
    if (turn == Link::Wait::kElapsed) return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(made.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
    if (error != 0) return error;
  }
  // A chunk of audio is one small write, which must not wait for the answer to the one before.
  const int on = 1;
  setsockopt(made.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  result = std::move(made);
  return 0;
}

}  // namespace

Transport::Transport(Link &link, const Url &url, const Settings &settings, Moment deadline) {
  connect(link, url, deadline);
  if (url.tls) start_tls(link, url, settings, deadline);
}

Transport::~Transport() {
  if (tls_ && !broken_) SSL_shutdown(tls_.get());
  ERR_clear_error();
}

void Transport::connect(Link &link, const Url &url, Moment deadline) {
  const auto addresses = resolve(link, url.host, url.port, deadline);
  int error = 0;
  for (size_t i = 0; i < addresses.size(); ++i) {
    // An address that swallows packets leaves the ones behind it their share of the time.
    const auto now = Clock::now();
    error = connect_to(link, addresses[i], now + (deadline - now) / (addresses.size() - i), socket_);
    if (error == 0) return;
  }
  throw Failure(error == ETIMEDOUT ? kTooSlow : std::string("cannot connect: ") + strerror(error));
}

void Transport::start_tls(Link &link, const Url &url, const Settings &settings, Moment deadline) {
  broken_ = true;  // until the handshake is through
  tls_context_.reset(SSL_CTX_new(TLS_client_method()));
  if (!tls_context_) throw Failure("TLS: " + tls_reason());
  SSL_CTX *context = tls_context_.get();
  SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
  SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  if (settings.tls_verify) {
    const int loaded = settings.tls_ca.empty()
                           ? SSL_CTX_set_default_verify_paths(context)
                           : SSL_CTX_load_verify_locations(context, settings.tls_ca.c_str(), nullptr);
    if (loaded != 1) {
      ERR_clear_error();
      throw Failure("no certificates of authorities can be read from " + settings.tls_ca);
    }
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
  }
  tls_.reset(SSL_new(context));
  SSL *tls = tls_.get();
  if (tls == nullptr || SSL_set_fd(tls, socket_.get()) != 1) throw Failure("TLS: " + tls_reason());
  // Without its name a certificate would prove nothing.
  const bool named = is_address(url.host) ? X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(tls), url.host.c_str()) == 1
                                          : SSL_set1_host(tls, url.host.c_str()) == 1 &&
                                                SSL_set_tlsext_host_name(tls, url.host.c_str()) == 1;
  if (!named) throw Failure("TLS: " + tls_reason());
  for (;;) {
    ERR_clear_error();
    const int result = SSL_connect(tls);
    if (result == 1) break;
    const int error = SSL_get_error(tls, result);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
      link.wait_or_fail(socket_.get(), error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, deadline, kTooSlow);
      continue;
    }
    const long verified = SSL_get_verify_result(tls);
    if (settings.tls_verify && verified != X509_V_OK) {
      throw Failure(std::string("the server's certificate is refused: ") + X509_verify_cert_error_string(verified));
    }
    throw Failure("TLS: " + tls_reason());
  }
  broken_ = false;
}

size_t Transport::result_of(int result) {
  if (result > 0) return static_cast<size_t>(result);
  if (tls_) {
    const int error = SSL_get_error(tls_.get(), result);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
      read_wants_write_ = error == SSL_ERROR_WANT_WRITE;
      return 0;
    }
    broken_ = true;
    throw Lost("the connection was lost: " + tls_reason());
  }
  if (result == 0) throw Lost("the server closed the connection");
  if (errno == EAGAIN || errno == EINTR) return 0;
  throw Lost(std::string("the connection was lost: ") + strerror(errno));
}

size_t Transport::read(char *bytes, size_t size) {
  read_wants_write_ = false;
  ERR_clear_error();
  return result_of(tls_ ? SSL_read(tls_.get(), bytes, static_cast<int>(size))
                        : static_cast<int>(recv(socket_.get(), bytes, size, 0)));
}

size_t Transport::write(const char *bytes, size_t size) {
  ERR_clear_error();
  const bool wanted = read_wants_write_;
  const size_t written = result_of(tls_ ? SSL_write(tls_.get(), bytes, static_cast<int>(size))
                                        : static_cast<int>(send(socket_.get(), bytes, size, MSG_NOSIGNAL)));
  read_wants_write_ = wanted;  // what a write waits for is seen from what is left to write
  return written;
}

}  // namespace quillbrook::websocket
