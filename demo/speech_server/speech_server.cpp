#include "speech_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

namespace speech_server {

std::string frame(unsigned opcode, std::string_view payload, bool last, size_t announced) {
  const size_t length = announced > 0 ? announced : payload.size();
  std::string bytes(1, static_cast<char>((last ? 0x80 : 0) | opcode));
  const int more = length > 0xffff ? 8 : length > 125 ? 2 : 0;
  bytes += static_cast<char>(more == 8 ? 127 : more == 2 ? 126 : length);
  for (int i = more - 1; i >= 0; --i) bytes += static_cast<char>(length >> (8 * i));
  return bytes.append(payload);
}

std::string Request::header(const std::string &name) const {
  for (size_t line = head.find("\r\n"); line != std::string::npos; line = head.find("\r\n", line)) {
    line += 2;
    const size_t value = line + name.size() + 1;
    if (strncasecmp(head.c_str() + line, (name + ":").c_str(), name.size() + 1) != 0) continue;
    return head.substr(head.find_first_not_of(' ', value),
                       head.find("\r\n", value) - head.find_first_not_of(' ', value));
  }
  return "";
}

std::map<std::string, std::string> Request::form() const {
  std::map<std::string, std::string> fields;
  const std::string type = header("Content-Type");
  const std::string mark = "boundary=";
  const size_t boundary = type.find(mark);
  if (boundary == std::string::npos) return fields;
  const std::string delimiter = "--" + type.substr(boundary + mark.size());
  size_t part = body.find(delimiter);
  while (part != std::string::npos) {
    const size_t next = body.find("\r\n" + delimiter, part);
    const size_t value = body.find("\r\n\r\n", part);
    if (next == std::string::npos || value >= next) break;
    const std::string lines = body.substr(part, value - part);
    const size_t name = lines.find(" name=\"");
    if (name != std::string::npos) {
      fields[lines.substr(name + 7, lines.find('"', name + 7) - name - 7)] = body.substr(value + 4, next - value - 4);
    }
    part = next + 2;
  }
  return fields;
}

std::string answer(const std::string &status, std::string_view body, const std::string &headers) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers + "\r\n" +
         std::string(body);
}

Peer::Peer(int socket, SSL_CTX *tls_context, int number) : socket_(socket), number_(number) {
  const int on = 1;
  setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (tls_context == nullptr) return;
  tls_ = SSL_new(tls_context);
  SSL_set_fd(tls_, socket_);
}

Peer::~Peer() {
  SSL_free(tls_);
  close(socket_);
}

bool Peer::read(void *bytes, size_t size) {
  auto *at = static_cast<char *>(bytes);
  while (size > 0) {
    const ssize_t got = tls_ != nullptr ? SSL_read(tls_, at, static_cast<int>(size)) : recv(socket_, at, size, 0);
    if (got <= 0) return false;
    at += got;
    size -= static_cast<size_t>(got);
  }
  return true;
}

void Peer::raw(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = tls_ != nullptr ? SSL_write(tls_, bytes.data(), static_cast<int>(bytes.size()))
                                         : send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
}

bool Peer::receive(Request &request) {
  constexpr size_t kHeadLimit = 65536;
  constexpr size_t kBodyLimit = size_t{1} << 26;
  if (tls_ != nullptr && !shaken_hands_ && SSL_accept(tls_) != 1) return false;
  shaken_hands_ = true;
  request = {};
  char c = 0;
  while (request.head.find("\r\n\r\n", std::max<size_t>(request.head.size(), 4) - 4) == std::string::npos) {
    if (request.head.size() == kHeadLimit || !read(&c, 1)) return false;
    request.head += c;
  }
  const std::string length = request.header("Content-Length");
  request.body.resize(std::min<size_t>(strtoul(length.c_str(), nullptr, 10), kBodyLimit));
  return read(request.body.data(), request.body.size());
}

bool Peer::accept(std::string_view more) {
  Request request;
  if (!receive(request) || !request.wants_upgrade()) return false;
  upgrade(request, more);
  return true;
}

void Peer::upgrade(const Request &request, std::string_view more) {
  const std::string text = request.header("Sec-WebSocket-Key") + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha1(), nullptr);
  char accepted[64];
  EVP_EncodeBlock(reinterpret_cast<unsigned char *>(accepted), digest, static_cast<int>(size));
  raw(std::string("HTTP/1.1 101 Switching Protocols\r\nupgrade: WebSocket\r\nconnection: keep-alive, Upgrade\r\n"
                  "sec-websocket-accept: ") +
      accepted + "\r\n\r\n" + std::string(more));
}

bool Peer::receive(Message &message) {
  constexpr uint64_t kLimit = 1 << 20;
  message = {};
  for (;;) {
    uint8_t head[2];
    if (!read(head, sizeof head)) return false;
    uint64_t length = head[1] & 0x7f;
    const int more = length == 126 ? 2 : length == 127 ? 8 : 0;
    uint8_t extended[8];
    if (!read(extended, more)) return false;
    if (more > 0) length = 0;
    for (int i = 0; i < more; ++i) length = length << 8 | extended[i];
    uint8_t mask[4];
    if ((head[1] & 0x80) == 0 || length > kLimit || !read(mask, sizeof mask)) return false;
    std::string payload(length, '\0');
    if (!read(payload.data(), length)) return false;
    for (size_t i = 0; i < length; ++i) payload[i] = static_cast<char>(payload[i] ^ mask[i % 4]);
    const unsigned opcode = head[0] & 0x0f;
    if (opcode == kClose) return false;
    if (opcode == kPing) raw(frame(kPong, payload));
    if (opcode == kPong) pongs_ += payload;
    if (opcode > kBinary) continue;
    if (opcode != kContinuation) message.opcode = opcode;
    message.payload += payload;
    if ((head[0] & 0x80) != 0) return true;
  }
}

bool Peer::has_input() const {
  char byte = 0;
  return recv(socket_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
}

void Peer::ignore() {
  char byte = 0;
  while (recv(socket_, &byte, 1, 0) > 0) continue;
}

void Peer::shut_down() const {
  shutdown(socket_, SHUT_RDWR);
}

Server::Server(Serve serve, int port, const Certificate &certificate) : serve_(std::move(serve)) {
  signal(SIGPIPE, SIG_IGN);  // TLS writes without MSG_NOSIGNAL
  if (!certificate.file.empty()) {
    tls_context_ = SSL_CTX_new(TLS_server_method());
    if (SSL_CTX_use_certificate_file(tls_context_, certificate.file.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_use_PrivateKey_file(tls_context_, certificate.key.c_str(), SSL_FILETYPE_PEM) != 1) {
      throw std::runtime_error("no certificate in " + certificate.file);
    }
  }
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *generic = reinterpret_cast<sockaddr *>(&address);
  if (bind(listener_, generic, size) != 0 || listen(listener_, SOMAXCONN) != 0) {
    close(listener_);
    throw std::runtime_error("port " + std::to_string(port) + " cannot be used");
  }
  getsockname(listener_, generic, &size);
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { accept_all(); });
}

Server::~Server() {
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  close(listener_);
  for (const Connection &connection : open_) connection.peer.shut_down();
  for (Connection &connection : open_) connection.thread.join();
  open_.clear();
  SSL_CTX_free(tls_context_);
}

void Server::accept_all() {
  for (;;) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) return;
    for (auto old = open_.begin(); old != open_.end();) {
      const bool over = old->over.load();
      if (over) old->thread.join();
      old = over ? open_.erase(old) : std::next(old);
    }
    Connection &connection = open_.emplace_back(socket, tls_context_, connections_++);
    connection.thread = std::thread([this, &connection] {
      serve_(connection.peer);
      connection.peer.shut_down();
      connection.over = true;
    });
  }
}

}  // namespace speech_server
