// A client's WebSocket connection (RFC 6455): whole messages in both directions, over a transport that never waits.
#pragma once

#include <string>
#include <string_view>

#include "frames.h"
#include "transport.h"

namespace quillbrook::websocket {

class Connection {
public:
  // Connects and shakes hands before the deadline, giving the module its turns. `password` as in upgrade_request().
  // Throws Failure, which is a Lost when the server ends the connection, and Stopped.
  Connection(Link &link, const Url &url, const Settings &settings, const std::string &password, Moment deadline);
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Queues a message; flush() sends what is queued as far as the network takes it, and throws Lost.
  void send_text(std::string_view text) { frames_.queue(WSLAY_TEXT_FRAME, text); }
  void send_binary(std::string_view bytes) { frames_.queue(WSLAY_BINARY_FRAME, bytes); }
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
  bool fill();

  Transport transport_;
  Frames frames_;
  size_t written_ = 0;  // of its output
};

}  // namespace quillbrook::websocket
