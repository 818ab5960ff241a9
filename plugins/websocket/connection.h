// A client's WebSocket connection (RFC 6455): whole messages in both directions, over a transport that never waits.
#pragma once

#include <wslay/wslay.h>

#include <memory>
#include <string>
#include <string_view>

#include "transport.h"

namespace quillbrook::websocket {

// The longest message taken from a server. An answer has some hundred bytes for each second of speech.
constexpr size_t kMessageLimit = size_t{1} << 20;

class Connection {
public:
  // Connects and shakes hands before the deadline, giving the module its turns. `password` as in upgrade_request().
  // Throws Failure, which is a Lost when the server ends the connection, and Stopped.
  Connection(Link &link, const Url &url, const Settings &settings, const std::string &password, Moment deadline);
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Queues a message; flush() sends what is queued as far as the network takes it, and throws Lost.
  void send_text(std::string_view text) { queue(WSLAY_TEXT_FRAME, text); }
  void send_binary(std::string_view bytes) { queue(WSLAY_BINARY_FRAME, bytes); }
  void flush();

  // True with the next message when it is there in full. Answers pings on the way. Throws Lost when the connection is
  // over, and Failure when the server breaks the protocol or sends too much.
  bool receive(std::string &message);

  // Takes leave, as far as that goes without waiting.
  void close();

  int descriptor() const { return transport_.descriptor(); }
  // The events to wait for, of poll(2).
  short events() const;

private:
  void shake_hands(Link &link, const Url &url, const std::string &password, Moment deadline);
  void queue(wslay_opcode opcode, std::string_view payload);
  bool fill();
  void begin_frame(const wslay_frame_iocb &frame);
  bool take(const wslay_frame_iocb &frame, std::string &message);
  void take_control(unsigned opcode);

  static ssize_t append_output(const uint8_t *bytes, size_t size, int flags, void *self);
  static ssize_t take_input(uint8_t *bytes, size_t size, int flags, void *self);
  static int make_mask(uint8_t *bytes, size_t size, void *self);

  struct Release {
    void operator()(wslay_frame_context *context) const { wslay_frame_context_free(context); }
  };
  Transport transport_;
  std::unique_ptr<wslay_frame_context, Release> frames_;
  std::string input_;  // read from the transport, not yet taken apart from taken_ on
  size_t taken_ = 0;
  std::string output_;  // to be written from written_ on
  size_t written_ = 0;
  std::string message_;       // the pieces of a message up to now
  bool in_message_ = false;   // more pieces are to come
  std::string control_;       // payload of the control frame under way
  uint64_t frame_taken_ = 0;  // payload bytes taken of the frame under way
  bool in_frame_ = false;
};

}  // namespace quillbrook::websocket
