#include "handshake.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "failure.h"
#include "json_text.h"

namespace quillbrook::websocket {

using namespace common;

namespace {

std::string base64(const unsigned char *bytes, int size) {
  unsigned char text[64];
  const int length = EVP_EncodeBlock(text, bytes, size);
  return {reinterpret_cast<const char *>(text), static_cast<size_t>(length)};
}

// What the server has to answer to a key: SHA-1 over the key and a fixed text, in base 64.
std::string accept_value(const std::string &key) {
  const std::string text = key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha1(), nullptr) != 1) throw Failure("no SHA-1 here");
  return base64(digest, static_cast<int>(size));
}

std::string trimmed(const std::string &text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The value of a header, the first of that name; empty when there is none.
std::string header(const std::string &head, const char *name) {
  const size_t length = strlen(name);
  for (size_t end = head.find("\r\n"); end != std::string::npos; end = head.find("\r\n", end)) {
    end += 2;
    if (strncasecmp(head.c_str() + end, name, length) == 0 && head[end + length] == ':') {
      const size_t value = end + length + 1;
      return trimmed(head.substr(value, head.find("\r\n", value) - value));
    }
  }
  return "";
}

// Whether a header's list of words separated by commas has this one.
bool lists(const std::string &values, const char *word) {
  size_t from = 0;
  while (from <= values.size()) {
    const size_t comma = std::min(values.find(',', from), values.size());
    if (strcasecmp(trimmed(values.substr(from, comma - from)).c_str(), word) == 0) return true;
    from = comma + 1;
  }
  return false;
}

}  // namespace

std::string new_key() {
  unsigned char bytes[16];
  if (RAND_bytes(bytes, sizeof bytes) != 1) throw Failure("no random numbers");
  return base64(bytes, sizeof bytes);
}

std::string upgrade_request(const Url &url, const std::string &key, const std::string &password) {
  const std::string authorization = password.empty() ? "" : "\r\nAuthorization: Bearer " + password;
  return "GET " + url.target + " HTTP/1.1\r\nHost: " + url.authority +
         "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: " + key +
         authorization + "\r\n\r\n";
}

void check_upgrade(const std::string &head, const std::string &key, const std::string &password) {
  constexpr char kOpened[] = "HTTP/1.1 101";
  constexpr size_t kShown = 80;
  if (head.compare(0, sizeof kOpened - 1, kOpened) != 0) {
    std::string line = without_key(head.substr(0, head.find("\r\n")), password).substr(0, kShown);
    std::replace_if(
        line.begin(), line.end(), [](unsigned char c) { return c < 0x20 || c > 0x7e; }, '?');
    throw Failure("the server does not open a WebSocket there, it answers '" + line + "'");
  }
  if (strcasecmp(header(head, "Upgrade").c_str(), "websocket") != 0 || !lists(header(head, "Connection"), "upgrade") ||
      header(head, "Sec-WebSocket-Accept") != accept_value(key)) {
    throw Failure("the server's WebSocket handshake is wrong");
  }
}

}  // namespace quillbrook::websocket
