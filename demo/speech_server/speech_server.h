// The server's side of the WebSocket protocol and of HTTP, for servers that behave and for servers that do not.
//
// A Server accepts connections on a port of the loopback address and runs one function for each, on a thread of its
// own. That function decides what the server does: the helpers of Peer speak the protocol, raw() says anything.
#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <thread>

namespace speech_server {

enum Opcode : unsigned { kContinuation = 0, kText = 1, kBinary = 2, kClose = 8, kPing = 9, kPong = 10 };

struct Message {
  unsigned opcode = 0;
  std::string payload;
  bool is_end_of_audio() const { return opcode == kText && payload == R"({"eof" : 1})"; }
};

// A request of HTTP: the lines up to the empty one, and what follows.
struct Request {
  std::string head;
  std::string body;
  bool wants_upgrade() const { return !header("Sec-WebSocket-Key").empty(); }
  // The value of a header, the first of that name; empty when there is none.
  std::string header(const std::string &name) const;
  // The fields of a multipart form; a file is the field's value.
  std::map<std::string, std::string> form() const;
};

// An answer to it, with further header lines that end in "\r\n" each.
std::string answer(const std::string &status, std::string_view body, const std::string &headers = "");

// The bytes of a server's frame; `announced` may promise more than follows.
std::string frame(unsigned opcode, std::string_view payload, bool last = true, size_t announced = 0);

class Peer {
public:
  Peer(int socket, SSL_CTX *tls_context, int number);
  ~Peer();
  Peer(const Peer &) = delete;
  Peer &operator=(const Peer &) = delete;

  // 0 for the server's first connection, 1 for its second, ...
  int number() const { return number_; }
  // The client's next request of HTTP, behind TLS when the server has it. False when the client is gone.
  bool receive(Request &request);
  // Goes over to WebSocket on such a request, with `more` right behind the handshake.
  void upgrade(const Request &request, std::string_view more = {});
  // Both. False when the client did not go through with it.
  bool accept(std::string_view more = {});
  // The client's next message; pings are answered, pongs kept. False when the client is gone.
  bool receive(Message &message);
  // Whether the client has sent something that was not read yet.
  bool has_input() const;
  // Text in one frame.
  void say(std::string_view text) { raw(frame(kText, text)); }
  void raw(std::string_view bytes);
  // Reads and throws away until the client is gone.
  void ignore();
  // The pongs received, one behind the other.
  const std::string &pongs() const { return pongs_; }
  // Ends reads and writes, from any thread.
  void shut_down() const;

private:
  bool read(void *bytes, size_t size);

  int socket_;
  int number_;
  std::string pongs_;
  SSL *tls_ = nullptr;
  bool shaken_hands_ = false;
};

class Server {
public:
  using Serve = std::function<void(Peer &)>;
  struct Certificate {
    std::string file;  // PEM
    std::string key;
  };

  // Port 0: any free one. Throws std::runtime_error.
  explicit Server(Serve serve, int port = 0, const Certificate &certificate = {});
  // Ends all connections and waits for their threads.
  ~Server();
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

  int port() const { return port_; }
  int connections() const { return connections_.load(); }

private:
  struct Connection {
    Connection(int socket, SSL_CTX *tls_context, int number) : peer(socket, tls_context, number) {}
    Peer peer;
    std::atomic<bool> over{false};
    std::thread thread;
  };
  void accept_all();

  Serve serve_;
  int listener_ = -1;
  int port_ = 0;
  SSL_CTX *tls_context_ = nullptr;
  std::atomic<int> connections_{0};
  std::list<Connection> open_;  // the acceptor's, and the destructor's after it
  std::thread acceptor_;
};

}  // namespace speech_server
