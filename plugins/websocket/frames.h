// A client's side of WebSocket frames (RFC 6455, section 5), without a network: bytes of the server become messages,
// and messages become bytes for it.
#pragma once

#include <wslay/wslay.h>

#include <memory>
#include <string>
#include <string_view>

namespace quillbrook::websocket {

// The longest message taken from a server. An answer has some hundred bytes for each second of speech.
constexpr size_t kMessageLimit = size_t{1} << 20;
// A server that sends pings and reads nothing must not make the output grow without end: from here on none is answered.
constexpr size_t kOutputLimit = 65536;

class Frames {
public:
  Frames();
  ~Frames();
  Frames(const Frames &) = delete;
  Frames &operator=(const Frames &) = delete;

  // What came and was not taken apart yet. New bytes go behind it.
  std::string &input();
  // What is to be sent. Whoever sends it takes it away.
  std::string &output() { return output_; }
  const std::string &output() const { return output_; }

  void queue(wslay_opcode opcode, std::string_view payload);

  // Takes a piece of the input. Answers pings on the way. Throws Lost when the server takes leave, and Failure when it
  // breaks the protocol or sends too much.
  enum class Taken { kNothing, kPiece, kMessage };
  Taken take(std::string &message);

private:
  void begin(const wslay_frame_iocb &frame);
  bool take(const wslay_frame_iocb &frame, std::string &message);
  void take_control(unsigned opcode);

  static ssize_t append_output(const uint8_t *bytes, size_t size, int flags, void *self);
  static ssize_t take_input(uint8_t *bytes, size_t size, int flags, void *self);
  static int make_mask(uint8_t *bytes, size_t size, void *self);

  struct Release {
    void operator()(wslay_frame_context *context) const { wslay_frame_context_free(context); }
  };
  std::unique_ptr<wslay_frame_context, Release> context_;
  std::string input_;  // not yet taken apart from taken_ on
  size_t taken_ = 0;
  std::string output_;
  std::string message_;       // the pieces of a message up to now
  bool in_message_ = false;   // more pieces are to come
  std::string control_;       // payload of the control frame under way
  uint64_t frame_taken_ = 0;  // payload bytes taken of the frame under way
  bool in_frame_ = false;
};

}  // namespace quillbrook::websocket
