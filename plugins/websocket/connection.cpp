#include "connection.h"

#include <openssl/rand.h>
#include <poll.h>

#include <algorithm>
#include <new>

#include "failure.h"
#include "handshake.h"

namespace quillbrook::websocket {

namespace {

constexpr size_t kReadSize = 16384;
// A server that sends pings and reads nothing must not make the queue grow without end.
constexpr size_t kOutputLimit = 65536;

}  // namespace

Connection::Connection(Link &link, const Url &url, const Settings &settings, const std::string &password,
                       Moment deadline)
    : transport_(link, url, settings, deadline) {
  shake_hands(link, url, password, deadline);
  const wslay_frame_callbacks callbacks = {append_output, take_input, make_mask};
  wslay_frame_context_ptr frames = nullptr;
  if (wslay_frame_context_init(&frames, &callbacks, this) != 0) throw std::bad_alloc();
  frames_.reset(frames);
}

Connection::~Connection() = default;

void Connection::shake_hands(Link &link, const Url &url, const std::string &password, Moment deadline) {
  constexpr size_t kHeadLimit = 8192;
  constexpr char kTooSlow[] = "the server does not answer the WebSocket handshake in time";
  const std::string key = new_key();
  output_ = upgrade_request(url, key, password);
  size_t end = std::string::npos;
  try {
    while (end == std::string::npos) {
      flush();
      if (input_.size() > kHeadLimit) throw Failure("the server's answer to the WebSocket handshake is too long");
      link.wait_or_fail(descriptor(), events(), deadline, kTooSlow);
      // A trickle of bytes keeps the descriptor ready for as long as the server likes.
      if (Clock::now() >= deadline) throw Failure(kTooSlow);
      fill();
      end = input_.find("\r\n\r\n");
    }
  } catch (const Lost &lost) {
    throw Lost(std::string("in the WebSocket handshake: ") + lost.what());
  }
  check_upgrade(input_.substr(0, end + 2), key);
  taken_ = end + 4;
}

ssize_t Connection::append_output(const uint8_t *bytes, size_t size, int, void *self) {
  // queue() has reserved the room: nothing is thrown through the library.
  static_cast<Connection *>(self)->output_.append(reinterpret_cast<const char *>(bytes), size);
  return static_cast<ssize_t>(size);
}

ssize_t Connection::take_input(uint8_t *bytes, size_t size, int, void *self) {
  auto *connection = static_cast<Connection *>(self);
  const size_t count = std::min(size, connection->input_.size() - connection->taken_);
  std::copy_n(connection->input_.data() + connection->taken_, count, bytes);
  connection->taken_ += count;
  return count > 0 ? static_cast<ssize_t>(count) : -1;
}

int Connection::make_mask(uint8_t *bytes, size_t size, void *) {
  return RAND_bytes(bytes, static_cast<int>(size)) == 1 ? 0 : -1;
}

void Connection::queue(wslay_opcode opcode, std::string_view payload) {
  constexpr size_t kHeaderSize = 14;
  output_.reserve(output_.size() + payload.size() + kHeaderSize);
  wslay_frame_iocb frame = {};
  frame.fin = 1;
  frame.opcode = opcode;
  frame.mask = 1;
  frame.payload_length = payload.size();
  do {
    frame.data = reinterpret_cast<const uint8_t *>(payload.data());
    frame.data_length = payload.size();
    const ssize_t sent = wslay_frame_send(frames_.get(), &frame);
    if (sent < 0) throw Failure("no random numbers");
    payload.remove_prefix(static_cast<size_t>(sent));
  } while (!payload.empty());
}

void Connection::flush() {
  while (written_ < output_.size()) {
    const size_t count = transport_.write(output_.data() + written_, output_.size() - written_);
    if (count == 0) return;
    written_ += count;
  }
  output_.clear();
  written_ = 0;
}

short Connection::events() const {
  const bool writing = !output_.empty() || transport_.read_wants_write();
  return static_cast<short>(writing ? POLLIN | POLLOUT : POLLIN);
}

bool Connection::fill() {
  input_.erase(0, taken_);
  taken_ = 0;
  const size_t before = input_.size();
  input_.resize(before + kReadSize);
  const size_t count = transport_.read(&input_[before], kReadSize);
  input_.resize(before + count);
  return count > 0;
}

bool Connection::receive(std::string &message) {
  // A server that never stops sending must not keep the loop from its other work.
  constexpr int kPiecesAtOnce = 64;
  for (int piece = 0; piece < kPiecesAtOnce; ++piece) {
    wslay_frame_iocb frame = {};
    const ssize_t got = wslay_frame_recv(frames_.get(), &frame);
    if (got == WSLAY_ERR_WANT_READ) {
      if (!fill()) return false;
    } else if (got < 0) {
      throw Failure("the server breaks the WebSocket protocol");
    } else if (take(frame, message)) {
      return true;
    }
  }
  return false;
}

void Connection::begin_frame(const wslay_frame_iocb &frame) {
  const bool control = wslay_is_ctrl_frame(frame.opcode) != 0;
  const bool known = control ? frame.opcode <= WSLAY_PONG : frame.opcode <= WSLAY_BINARY_FRAME;
  const bool in_turn = control || (frame.opcode == WSLAY_CONTINUATION_FRAME) == in_message_;
  if (!known || !in_turn || frame.rsv != WSLAY_RSV_NONE || frame.mask != 0) {
    throw Failure("the server breaks the WebSocket protocol");
  }
  if (!control && frame.payload_length > kMessageLimit - message_.size()) {
    throw Failure("the server sent a message of more than " + std::to_string(kMessageLimit) + " bytes");
  }
  control_.clear();
  frame_taken_ = 0;
  in_frame_ = true;
}

bool Connection::take(const wslay_frame_iocb &frame, std::string &message) {
  if (!in_frame_) begin_frame(frame);
  const bool control = wslay_is_ctrl_frame(frame.opcode) != 0;
  (control ? control_ : message_).append(reinterpret_cast<const char *>(frame.data), frame.data_length);
  frame_taken_ += frame.data_length;
  if (frame_taken_ < frame.payload_length) return false;
  in_frame_ = false;
  if (control) {
    take_control(frame.opcode);
    return false;
  }
  in_message_ = frame.fin == 0;
  if (in_message_) return false;
  message.swap(message_);
  message_.clear();
  return true;
}

void Connection::take_control(unsigned opcode) {
  if (opcode == WSLAY_PING && output_.size() < kOutputLimit) queue(WSLAY_PONG, control_);
  if (opcode != WSLAY_CONNECTION_CLOSE) return;
  std::string reason = "the server closed the connection";
  if (control_.size() >= 2) {
    const int code = static_cast<unsigned char>(control_[0]) << 8 | static_cast<unsigned char>(control_[1]);
    reason += " with code " + std::to_string(code);
  }
  throw Lost(reason);
}

void Connection::close() {
  constexpr char kNormal[] = {'\x03', '\xe8'};  // 1000
  queue(WSLAY_CONNECTION_CLOSE, {kNormal, sizeof kNormal});
  try {
    flush();
  } catch (const Lost &) {  // then there is nobody to take leave of
  }
}

}  // namespace quillbrook::websocket
