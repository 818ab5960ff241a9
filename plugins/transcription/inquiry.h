// One question to the servers of an engine: what was said in this audio? Goes from server to server while one fails,
// and asks the last one again, once, when it is busy or ends the connection, within the limits of time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client_pool.h"
#include "link.h"
#include "name_cache.h"
#include "servers.h"
#include "settings.h"

namespace quillbrook::transcription {

// What the calls of the plugin share.
struct Shared {
  ClientPool clients;
  common::Servers servers;
  NameCache names;
};

// The way to one engine's servers, for a recognition.
struct Access {
  common::Link &link;
  Shared &shared;
  const Settings &settings;
  const std::vector<std::string> &urls;
  const std::string &key;
};

class Inquiry {
public:
  enum class Kind { kInterim, kFinal };

  // Throws Failure, and Stopped: host names are looked up here.
  Inquiry(const Access &access, Kind kind, const Fields &fields, std::string audio);
  ~Inquiry();
  Inquiry(const Inquiry &) = delete;
  Inquiry &operator=(const Inquiry &) = delete;

  Kind kind() const { return kind_; }
  // What to wait for before the next step.
  std::vector<pollfd> &sockets();
  Moment due() const;
  // True when the answer is there in full. Throws Failure naming the servers' URLs, and Stopped.
  bool step();
  // The answer up to now; all of it once step() was true. JSON, or events when is_event_stream().
  const std::string &answer() const { return client_->body(); }
  bool is_event_stream() const { return client_ && client_->is_event_stream(); }
  // The URL of the server that gives it.
  const std::string &server() const { return request_.url; }

private:
  void ask_next();
  bool ask();
  std::string addresses_for(const std::string &host_url, Moment deadline) const;
  bool take_answer(Moment now);
  bool ask_again(Moment when, const std::string &reason);
  void note(const std::string &reason);
  void give_up_server(const std::string &reason);
  void forget_address() const;
  [[noreturn]] void fail() const;
  std::string own_words() const;

  Access access_;
  const Kind kind_;
  const std::string audio_;
  Request request_;
  std::vector<std::string> servers_;  // still to be asked, next one last
  const Moment until_;                // the whole question has to be answered by then, by whichever server
  Clock::duration connecting_;        // time that is left for connecting to them
  std::unique_ptr<HttpClient> client_;
  Moment asked_;
  Moment again_at_ = Moment::max();  // when the last server is asked once more
  bool asked_again_ = false;
  std::string reasons_;  // of those that failed
};

}  // namespace quillbrook::transcription
