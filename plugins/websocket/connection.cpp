#include "connection.h"

#include <poll.h>

#include "failure.h"
#include "handshake.h"

namespace quillbrook::websocket {

namespace {

constexpr size_t kReadSize = 16384;

}  // namespace

Connection::Connection(Link &link, const Url &url, const Settings &settings, const std::string &password,
                       Moment deadline)
    : transport_(link, url, settings, deadline) {
  shake_hands(link, url, password, deadline);
}

void Connection::shake_hands(Link &link, const Url &url, const std::string &password, Moment deadline) {
  constexpr size_t kHeadLimit = 8192;
  constexpr char kTooSlow[] = "the server does not answer the WebSocket handshake in time";
  const std::string key = new_key();
  frames_.output() = upgrade_request(url, key, password);
  size_t end = std::string::npos;
  try {
    while (end == std::string::npos) {
      flush();
      if (frames_.input().size() > kHeadLimit)
        throw Failure("the server's answer to the WebSocket handshake is too long");
      link.wait_or_fail(descriptor(), events(), deadline, kTooSlow);
      // A trickle of bytes keeps the descriptor ready for as long as the server likes.
      if (Clock::now() >= deadline) throw Failure(kTooSlow);
      fill();
      end = frames_.input().find("\r\n\r\n");
    }
  } catch (const Lost &lost) {
    throw Lost(std::string("in the WebSocket handshake: ") + lost.what());
  }
  check_upgrade(frames_.input().substr(0, end + 2), key, password);
  frames_.input().erase(0, end + 4);
}

void Connection::flush() {
  std::string &output = frames_.output();
  while (written_ < output.size()) {
    const size_t count = transport_.write(output.data() + written_, output.size() - written_);
    if (count == 0) return;
    written_ += count;
  }
  output.clear();
  written_ = 0;
}

short Connection::events() const {
  const bool writing = !frames_.output().empty() || transport_.read_wants_write();
  return static_cast<short>(writing ? POLLIN | POLLOUT : POLLIN);
}

bool Connection::fill() {
  std::string &input = frames_.input();
  const size_t before = input.size();
  input.resize(before + kReadSize);
  const size_t count = transport_.read(&input[before], kReadSize);
  input.resize(before + count);
  return count > 0;
}

bool Connection::receive(std::string &message) {
  // A server that never stops sending must not keep the loop from its other work.
  constexpr int kPiecesAtOnce = 64;
  for (int piece = 0; piece < kPiecesAtOnce; ++piece) {
    switch (frames_.take(message)) {
      case Frames::Taken::kMessage:
        return true;
      case Frames::Taken::kPiece:
        break;
      case Frames::Taken::kNothing:
        if (!fill()) return false;
    }
  }
  return false;
}

void Connection::close() {
  constexpr char kNormal[] = {'\x03', '\xe8'};  // 1000
  frames_.queue(WSLAY_CONNECTION_CLOSE, {kNormal, sizeof kNormal});
  try {
    flush();
  } catch (const Lost &) {  // then there is nobody to take leave of
  }
}

}  // namespace quillbrook::websocket
