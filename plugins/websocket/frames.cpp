#include "frames.h"

#include <openssl/rand.h>

#include <algorithm>
#include <new>

#include "transport.h"

namespace quillbrook::websocket {

Frames::Frames() {
  const wslay_frame_callbacks callbacks = {append_output, take_input, make_mask};
  wslay_frame_context_ptr context = nullptr;
  if (wslay_frame_context_init(&context, &callbacks, this) != 0) throw std::bad_alloc();
  context_.reset(context);
}

Frames::~Frames() = default;

std::string &Frames::input() {
  input_.erase(0, taken_);
  taken_ = 0;
  return input_;
}

ssize_t Frames::append_output(const uint8_t *bytes, size_t size, int, void *self) {
  // queue() has reserved the room: nothing is thrown through the library.
  static_cast<Frames *>(self)->output_.append(reinterpret_cast<const char *>(bytes), size);
  return static_cast<ssize_t>(size);
}

ssize_t Frames::take_input(uint8_t *bytes, size_t size, int, void *self) {
  auto *frames = static_cast<Frames *>(self);
  const size_t count = std::min(size, frames->input_.size() - frames->taken_);
  std::copy_n(frames->input_.data() + frames->taken_, count, bytes);
  frames->taken_ += count;
  return count > 0 ? static_cast<ssize_t>(count) : -1;
}

int Frames::make_mask(uint8_t *bytes, size_t size, void *) {
  return RAND_bytes(bytes, static_cast<int>(size)) == 1 ? 0 : -1;
}

void Frames::queue(wslay_opcode opcode, std::string_view payload) {
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
    const ssize_t sent = wslay_frame_send(context_.get(), &frame);
    if (sent < 0) throw Failure("no random numbers");
    payload.remove_prefix(static_cast<size_t>(sent));
  } while (!payload.empty());
}

Frames::Taken Frames::take(std::string &message) {
  wslay_frame_iocb frame = {};
  const ssize_t got = wslay_frame_recv(context_.get(), &frame);
  if (got == WSLAY_ERR_WANT_READ) return Taken::kNothing;
  if (got < 0) throw Failure("the server breaks the WebSocket protocol");
  return take(frame, message) ? Taken::kMessage : Taken::kPiece;
}

void Frames::begin(const wslay_frame_iocb &frame) {
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

bool Frames::take(const wslay_frame_iocb &frame, std::string &message) {
  if (!in_frame_) begin(frame);
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

void Frames::take_control(unsigned opcode) {
  if (opcode == WSLAY_PING && output_.size() < kOutputLimit) queue(WSLAY_PONG, control_);
  if (opcode != WSLAY_CONNECTION_CLOSE) return;
  std::string reason = "the server closed the connection";
  if (control_.size() >= 2) {
    const int code = static_cast<unsigned char>(control_[0]) << 8 | static_cast<unsigned char>(control_[1]);
    reason += " with code " + std::to_string(code);
  }
  throw Lost(reason);
}

}  // namespace quillbrook::websocket
