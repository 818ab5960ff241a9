#include "inquiry.h"

#include <algorithm>

#include "failure.h"
#include "json_text.h"
#include "resolver.h"
#include "transcript.h"
#include "url.h"

namespace quillbrook::transcription {

using namespace common;

namespace {

// A busy server that does not say when it wants to be asked again.
constexpr Milliseconds kShortestPause{200};

enum Status : long { kOk = 200, kRedirect = 300, kTooMany = 429, kServerError = 500, kUnavailable = 503 };

}  // namespace

Inquiry::Inquiry(const Access &access, Kind kind, const Fields &fields, std::string audio)
    : access_(access),
      kind_(kind),
      audio_(std::move(audio)),
      servers_(access.shared.servers.in_order(access.urls, access.settings.pick, Clock::now())),
      until_(Clock::now() + access.settings.connect_timeout +
             access.settings.answer_timeout * static_cast<long>(servers_.size())),
      connecting_(access.settings.connect_timeout) {
  std::reverse(servers_.begin(), servers_.end());
  request_.key = access.key;
  request_.fields = fields;
  if (access.settings.stream && kind == Kind::kFinal) request_.fields.emplace_back("stream", "true");
  request_.audio = &audio_;
  ask_next();
}

Inquiry::~Inquiry() {
  // With a request given up goes its connection.
  if (client_ && !client_->is_under_way()) access_.shared.clients.give_back(std::move(client_), request_.url);
}

// The next server that can be asked at all. Throws when there is none left.
void Inquiry::ask_next() {
  while (!servers_.empty() && Clock::now() < until_) {
    request_.url = servers_.back();
    servers_.pop_back();
    if (ask()) return;
  }
  fail();
}

// False when its address cannot be found.
bool Inquiry::ask() {
  const auto share = std::max<Clock::duration>(connecting_ / static_cast<long>(servers_.size() + 1), Milliseconds(1));
  asked_ = Clock::now();
  const std::string &proxy = access_.settings.proxy;
  try {
    request_.addresses = addresses_for(proxy.empty() ? request_.url : proxy, asked_ + share);
  } catch (const Failure &failure) {
    give_up_server(failure.what());
    return false;
  }
  if (!client_) client_ = access_.shared.clients.take(request_.url);
  const auto left = std::chrono::ceil<Milliseconds>(asked_ + share - Clock::now());
  client_->start(request_, access_.settings, std::max(left, Milliseconds(1)));
  again_at_ = Moment::max();
  return true;
}

// In the library's form; empty for a host that is given by its address.
std::string Inquiry::addresses_for(const std::string &host_url, Moment deadline) const {
  const Url url = parse_url(host_url, "http", "https");
  if (is_address(url.host)) return "";
  // An interim is not worth a look-up while the caller speaks: nobody hears him then.
  const auto age = kind_ == Kind::kInterim ? NameCache::Age::kAny : NameCache::Age::kFresh;
  return url.host + ':' + url.port + ':' +
         access_.shared.names.addresses(access_.link, url.host, url.port, age, deadline);
}

std::vector<pollfd> &Inquiry::sockets() {
  return client_->sockets();
}

Moment Inquiry::due() const {
  return std::min({client_->due(), again_at_, until_});
}

bool Inquiry::step() {
  const Moment now = Clock::now();
  if (again_at_ != Moment::max()) {
    if (now >= again_at_ && !ask()) ask_next();
    return false;
  }
  if (client_->step()) return take_answer(now);
  const Clock::duration limit = access_.settings.answer_timeout;
  const Clock::duration waited = client_->is_connected() ? now - client_->connected_at() : Clock::duration::zero();
  if (now >= until_ || waited >= limit) {
    const auto told = std::chrono::duration_cast<Milliseconds>(std::min(waited, limit));
    give_up_server("the server did not answer for " + std::to_string(told.count()) + " ms");
    ask_next();
  }
  return false;
}

bool Inquiry::take_answer(Moment now) {
  const long status = client_->status();
  if (status >= kOk && status < kRedirect) return true;
  if (status == 0) {
    // A balancer ends the connection to a server whose loss it has not noticed yet, and gives the next one to another.
    if (client_->is_lost() && ask_again(now, client_->failure())) return false;
    give_up_server(client_->failure());
    ask_next();
    return false;
  }
  const std::string reason = "HTTP " + std::to_string(status) + own_words();
  const bool busy = status == kTooMany || status == kUnavailable;
  const auto again = now + std::max<Clock::duration>(client_->retry_after(), kShortestPause);
  if (busy && ask_again(again, reason)) return false;
  const bool elsewhere = busy || status >= kServerError;
  give_up_server(reason);
  if (!elsewhere) fail();
  ask_next();
  return false;
}

// Whether this server is asked once more then, because it is the last one and words hang on it.
bool Inquiry::ask_again(Moment when, const std::string &reason) {
  if (!servers_.empty() || asked_again_ || kind_ != Kind::kFinal || when >= until_) return false;
  note(reason);
  asked_again_ = true;
  again_at_ = when;
  return true;
}

void Inquiry::note(const std::string &reason) {
  reasons_ += (reasons_.empty() ? "" : "; ") + request_.url + ": " + reason;
}

void Inquiry::give_up_server(const std::string &reason) {
  note(reason);
  const Moment now = Clock::now();
  const bool connected = client_ && client_->is_connected();
  connecting_ -= (connected ? client_->connected_at() : now) - asked_;
  // Who is only busy, or does not like the question, is asked again by the next caller.
  const bool its_fault = !client_ || client_->status() == 0 || client_->status() >= kServerError;
  if (its_fault) access_.shared.servers.failed(request_.url, now);
  if (!connected) forget_address();
  client_.reset();  // with its connection
}

void Inquiry::fail() const {
  throw ServerFailure(reasons_);
}

void Inquiry::forget_address() const {
  try {
    const std::string &proxy = access_.settings.proxy;
    const Url url = parse_url(proxy.empty() ? request_.url : proxy, "http", "https");
    access_.shared.names.forget(url.host, url.port);
  } catch (const Failure &) {  // then there is none
  }
}

// What the server says about its refusal.
std::string Inquiry::own_words() const {
  constexpr size_t kLongest = 200;
  std::string message = without_key(error_message(repaired(client_->body())), access_.key);
  if (message.size() > kLongest) message = repaired(message.substr(0, kLongest)) + "...";
  return message.empty() ? "" : ": " + message;
}

}  // namespace quillbrook::transcription
