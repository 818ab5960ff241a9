// One HTTP request at a time, without waiting: libcurl, driven by the events of its sockets.
//
// A client keeps its connections open for its next request, which is why a pool (client_pool.h) hands clients on from
// one utterance, and one call, to the next.
#pragma once

#include <curl/curl.h>
#include <poll.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "settings.h"

namespace quillbrook::transcription {

using Clock = std::chrono::steady_clock;
using Moment = Clock::time_point;

// A form to be sent. `audio` becomes the file in it.
struct Request {
  std::string url;
  std::string addresses;  // "host:port:address,..." for a host that is given by name; empty for one that is not
  std::string key;
  Fields fields;
  const std::string *audio = nullptr;  // outlives the request
};

class HttpClient {
public:
  // `shared` holds what all clients have in common, and outlives them.
  explicit HttpClient(CURLSH *shared);
  ~HttpClient();
  HttpClient(const HttpClient &) = delete;
  HttpClient &operator=(const HttpClient &) = delete;

  // The client has no other request under way.
  void start(const Request &request, const Settings &settings, std::chrono::milliseconds connect_timeout);
  // What to wait for: sockets, of which poll(2) may fill in the events, and a moment.
  std::vector<pollfd> &sockets() { return sockets_; }
  Moment due() const { return due_; }
  // Does what can be done now. True when the request is over, one way or the other.
  bool step();
  // Gives the request up, if there is one, and with it its connection.
  void drop();
  bool is_under_way() const { return under_way_; }

  // The connection is there, and since when.
  bool is_connected() const { return connected_; }
  Moment connected_at() const { return connected_at_; }
  // What has come of the answer up to now. Complete once step() was true.
  const std::string &body() const { return body_; }
  bool is_event_stream() const;

  // Of a request that is over. The status is 0 when there was no whole answer; then failure() tells why.
  long status() const { return status_; }
  const std::string &failure() const { return failure_; }
  // The server ended the connection before its answer did.
  bool is_lost() const { return lost_; }
  std::chrono::seconds retry_after() const { return retry_after_; }

private:
  void set_options(const Request &request, const Settings &settings, std::chrono::milliseconds connect_timeout);
  void set_form(const Request &request);
  void conclude(CURLcode code);
  std::string reason(CURLcode code) const;

  static size_t take_body(char *bytes, size_t size, size_t count, void *self);
  static size_t take_header(char *bytes, size_t size, size_t count, void *self);
  static int note_connected(void *self, char *, char *, int, int);
  static int watch(CURL *, curl_socket_t socket, int what, void *self, void *);
  static int set_timer(CURLM *, long milliseconds, void *self);

  template <auto Function>
  struct Release {
    template <typename Object>
    void operator()(Object *object) const {
      Function(object);
    }
  };
  using List = std::unique_ptr<curl_slist, Release<curl_slist_free_all>>;

  CURLSH *shared_;
  std::unique_ptr<CURLM, Release<curl_multi_cleanup>> multi_;
  std::unique_ptr<CURL, Release<curl_easy_cleanup>> easy_;
  std::unique_ptr<curl_mime, Release<curl_mime_free>> form_;
  List headers_;
  List addresses_;
  std::vector<pollfd> sockets_;
  std::vector<pollfd> ready_;
  Moment due_;
  bool under_way_ = false;
  bool connected_ = false;
  Moment connected_at_;
  std::string body_;
  size_t body_limit_ = 0;
  size_t header_bytes_ = 0;
  bool too_much_ = false;
  std::string authorities_;  // file of certificates, for the reason of a failure
  std::string proxy_;        // the same
  char error_[CURL_ERROR_SIZE] = {};
  long status_ = 0;
  bool lost_ = false;
  std::string failure_;
  std::chrono::seconds retry_after_{0};
};

}  // namespace quillbrook::transcription
