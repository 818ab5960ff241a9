#include "http_client.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace quillbrook::transcription {

namespace {

constexpr size_t kHeaderLimit = 65536;  // of an answer, all its headers together

short poll_events(int what) {
  return static_cast<short>(((what & CURL_POLL_IN) != 0 ? POLLIN : 0) | ((what & CURL_POLL_OUT) != 0 ? POLLOUT : 0));
}

int curl_events(short events) {
  return ((events & (POLLIN | POLLHUP)) != 0 ? CURL_CSELECT_IN : 0) | ((events & POLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
         ((events & (POLLERR | POLLNVAL)) != 0 ? CURL_CSELECT_ERR : 0);
}

bool is_loss(CURLcode code) {
  return code == CURLE_GOT_NOTHING || code == CURLE_PARTIAL_FILE || code == CURLE_RECV_ERROR ||
         code == CURLE_SEND_ERROR;
}

}  // namespace

HttpClient::HttpClient(CURLSH *shared) : shared_(shared), multi_(curl_multi_init()), easy_(curl_easy_init()) {
  if (!multi_ || !easy_) throw std::bad_alloc();
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, watch);
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, set_timer);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
  curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, 1L);
}

HttpClient::~HttpClient() {
  drop();
}

void HttpClient::start(const Request &request, const Settings &settings, std::chrono::milliseconds connect_timeout) {
  drop();
  curl_easy_reset(easy_.get());
  connected_ = false;
  too_much_ = false;
  body_.clear();
  body_limit_ = static_cast<size_t>(settings.answer_limit);
  header_bytes_ = 0;
  authorities_ = settings.tls_ca;
  proxy_ = settings.proxy;
  error_[0] = '\0';
  status_ = 0;
  lost_ = false;
  failure_.clear();
  retry_after_ = {};
  due_ = Moment::max();
  set_options(request, settings, connect_timeout);
  set_form(request);
  if (curl_multi_add_handle(multi_.get(), easy_.get()) != CURLM_OK) throw std::bad_alloc();
  under_way_ = true;
}

void HttpClient::set_options(const Request &request, const Settings &settings,
                             std::chrono::milliseconds connect_timeout) {
  CURL *easy = easy_.get();
  headers_.reset(curl_slist_append(nullptr, "Expect:"));  // the form is sent at once
  if (!request.key.empty()) {
    curl_slist_append(headers_.get(), ("Authorization: Bearer " + request.key).c_str());
  }
  addresses_.reset(request.addresses.empty() ? nullptr : curl_slist_append(nullptr, request.addresses.c_str()));
  curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_.get());
  curl_easy_setopt(easy, CURLOPT_RESOLVE, addresses_.get());
  curl_easy_setopt(easy, CURLOPT_SHARE, shared_);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_USERAGENT, "quillbrook");
  curl_easy_setopt(easy, CURLOPT_PROXY, settings.proxy.c_str());  // an empty one also shuts the environment out
  curl_easy_setopt(easy, CURLOPT_NOPROXY, "");
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connect_timeout.count()));
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, settings.tls_verify ? 1L : 0L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, settings.tls_verify ? 2L : 0L);
  curl_easy_setopt(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (!settings.tls_ca.empty()) {
    curl_easy_setopt(easy, CURLOPT_CAINFO, settings.tls_ca.c_str());
    curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
  }
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, take_body);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, take_header);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, note_connected);
  curl_easy_setopt(easy, CURLOPT_PREREQDATA, this);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error_);
}

void HttpClient::set_form(const Request &request) {
  form_.reset(curl_mime_init(easy_.get()));
  if (!form_) throw std::bad_alloc();
  curl_mimepart *file = curl_mime_addpart(form_.get());
  curl_mime_name(file, "file");
  curl_mime_filename(file, "audio.wav");
  curl_mime_type(file, "audio/wav");
  curl_mime_data(file, request.audio->data(), request.audio->size());
  for (const auto &[name, value] : request.fields) {
    curl_mimepart *part = curl_mime_addpart(form_.get());
    curl_mime_name(part, name.c_str());
    curl_mime_data(part, value.data(), value.size());
  }
  curl_easy_setopt(easy_.get(), CURLOPT_MIMEPOST, form_.get());
}

bool HttpClient::step() {
  if (!under_way_) return true;
  int running = 0;
  ready_.clear();  // a copy: the library changes the list while it is told of events
  std::copy_if(sockets_.begin(), sockets_.end(), std::back_inserter(ready_),
               [](const pollfd &socket) { return socket.revents != 0; });
  for (pollfd &socket : sockets_) socket.revents = 0;
  for (const pollfd &socket : ready_) {
    curl_multi_socket_action(multi_.get(), socket.fd, curl_events(socket.revents), &running);
  }
  if (Clock::now() >= due_) {
    due_ = Moment::max();
    curl_multi_socket_action(multi_.get(), CURL_SOCKET_TIMEOUT, 0, &running);
  }
  int left = 0;
  const CURLMsg *message = curl_multi_info_read(multi_.get(), &left);
  if (message == nullptr || message->msg != CURLMSG_DONE) return false;
  conclude(message->data.result);
  drop();
  return true;
}

void HttpClient::conclude(CURLcode code) {
  if (code != CURLE_OK) {
    lost_ = is_loss(code);
    failure_ = reason(code);
    return;
  }
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status_);
  curl_off_t seconds = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RETRY_AFTER, &seconds);
  retry_after_ = std::chrono::seconds(std::clamp<curl_off_t>(seconds, 0, 3600));
}

std::string HttpClient::reason(CURLcode code) const {
  if (lost_) return "the server closed the connection";
  if (too_much_) return "the server's answer has more than " + std::to_string(body_limit_) + " bytes";
  long error = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_OS_ERRNO, &error);
  switch (code) {
    case CURLE_COULDNT_CONNECT:
      return "cannot connect" + (proxy_.empty() ? "" : " to the proxy " + proxy_) + ": " +
             std::string(error != 0 ? strerror(static_cast<int>(error)) : error_);
    case CURLE_OPERATION_TIMEDOUT:
      return "no connection in time";
    case CURLE_PEER_FAILED_VERIFICATION:
      return std::string("the server's certificate is refused: ") + error_;
    case CURLE_SSL_CACERT_BADFILE:
      return "no certificates of authorities can be read from " + authorities_;
    default:
      return error_[0] != '\0' ? error_ : curl_easy_strerror(code);
  }
}

void HttpClient::drop() {
  if (under_way_) curl_multi_remove_handle(multi_.get(), easy_.get());
  under_way_ = false;
  due_ = Moment::max();
  // The form has a hold on the handle and the other way round.
  curl_easy_setopt(easy_.get(), CURLOPT_MIMEPOST, nullptr);
  form_.reset();
}

bool HttpClient::is_event_stream() const {
  constexpr char kType[] = "text/event-stream";
  char *type = nullptr;
  curl_easy_getinfo(easy_.get(), CURLINFO_CONTENT_TYPE, &type);
  return type != nullptr && strncasecmp(type, kType, sizeof kType - 1) == 0;
}

// The library's callbacks: no exception may pass through it, and a short count ends the request.

size_t HttpClient::take_body(char *bytes, size_t size, size_t count, void *self) {
  auto *client = static_cast<HttpClient *>(self);
  client->too_much_ = size * count > client->body_limit_ - client->body_.size();
  if (client->too_much_) return 0;
  try {
    client->body_.append(bytes, size * count);
  } catch (const std::bad_alloc &) {
    return 0;
  }
  return size * count;
}

size_t HttpClient::take_header(char *, size_t size, size_t count, void *self) {
  auto *client = static_cast<HttpClient *>(self);
  client->header_bytes_ += size * count;
  client->too_much_ = client->header_bytes_ > kHeaderLimit;
  return client->too_much_ ? 0 : size * count;
}

int HttpClient::note_connected(void *self, char *, char *, int, int) {
  auto *client = static_cast<HttpClient *>(self);
  client->connected_ = true;
  client->connected_at_ = Clock::now();
  return CURL_PREREQFUNC_OK;
}

int HttpClient::watch(CURL *, curl_socket_t socket, int what, void *self, void *) {
  auto &sockets = static_cast<HttpClient *>(self)->sockets_;
  const auto known =
      std::find_if(sockets.begin(), sockets.end(), [&](const pollfd &watched) { return watched.fd == socket; });
  if (what == CURL_POLL_REMOVE) {
    if (known != sockets.end()) sockets.erase(known);
  } else if (known != sockets.end()) {
    known->events = poll_events(what);
  } else {
    try {
      sockets.push_back({socket, poll_events(what), 0});
    } catch (const std::bad_alloc &) {
      return -1;
    }
  }
  return 0;
}

int HttpClient::set_timer(CURLM *, long milliseconds, void *self) {
  static_cast<HttpClient *>(self)->due_ =
      milliseconds < 0 ? Moment::max() : Clock::now() + std::chrono::milliseconds(milliseconds);
  return 0;
}

}  // namespace quillbrook::transcription
