#include "observer.h"

#include "../support/bounded_text.h"
#include "../support/guard.h"
#include "../support/json_text.h"
#include "../support/monotonic.h"
#include "../support/printable.h"

namespace {

// Bytes of a text in a trace.
constexpr size_t kTraceTextMax = 4000;

std::string field(const char *name, const char *value) {
  return std::string(name) + ": " + Printable(value).text() + "\r\n";
}

std::string field(const char *name, int64_t value) {
  return std::string(name) + ": " + std::to_string(value) + "\r\n";
}

std::string fields_of(const quillbrook_observed &who) {
  return field("Uniqueid", who.uniqueid.c_str()) + field("Channel", who.channel.c_str()) +
         field("Session", who.session.c_str()) + field("Engine", who.engine.c_str());
}

// A call goes on without its reports when there is no memory for them.
template <typename Action>
void attempt(Action &&action) {
  guarded("Observer", 0, [&] {
    action();
    return 0;
  });
}

}  // namespace

TraceLine::TraceLine(int64_t ms, const char *what) : text_("{\"ms\":" + std::to_string(ms)) {
  add("what", what);
}

TraceLine &TraceLine::add(const char *name, int64_t number) {
  text_ += ",\"" + std::string(name) + "\":" + std::to_string(number);
  return *this;
}

TraceLine &TraceLine::add(const char *name, const char *text) {
  char bounded[kTraceTextMax + 1];
  copy_text(bounded, sizeof(bounded), text ? text : "");
  text_ += ",\"" + std::string(name) + "\":" + json_text(bounded);
  return *this;
}

Observer::Observer(quillbrook_observed identity, int events, std::string folder)
    : identity_(std::move(identity)),
      events_(events),
      folder_is_empty_(folder.empty()),
      who_(fields_of(identity_)),
      began_(monotonic_ms()),
      file_(std::move(folder)) {}

int64_t Observer::now() const {
  return monotonic_ms() - began_;
}

void Observer::event(const char *name, std::string fields) {
  quillbrook_report_push({shared_from_this(), quillbrook_report::kEvent, name, who_ + std::move(fields)});
}

void Observer::line(const TraceLine &line) {
  attempt([&] { quillbrook_report_push({shared_from_this(), quillbrook_report::kTraceLine, nullptr, line.text()}); });
}

void Observer::begin(const std::function<void(TraceLine &)> &settings) {
  began_ = monotonic_ms();
  attempt([&] {
    if (events_) {
      event("QuillbrookStart", "");
    }
    if (traces()) {
      TraceLine first(0, "start");
      first.add("session", identity_.session.c_str()).add("engine", identity_.engine.c_str());
      first.add("uniqueid", identity_.uniqueid.c_str()).add("channel", identity_.channel.c_str());
      settings(first);
      quillbrook_report_push({shared_from_this(), quillbrook_report::kTrace, nullptr, first.text()});
    }
  });
}

void Observer::end(const char *cause) {
  attempt([&] {
    {
      MutexLock held(lock_);
      interim_.clear();
    }
    if (events_) {
      event("QuillbrookEnd", (cause[0] ? field("Cause", cause) : "") + field("Ms", now()));
    }
    if (traces()) {
      const std::string last = TraceLine(now(), "end").add("cause", cause).text();
      quillbrook_report_push({shared_from_this(), quillbrook_report::kTraceEnd, nullptr, last});
    }
  });
}

void Observer::words(const char *text, int score) {
  if (events_ != kEventsInterims) {
    return;
  }
  attempt([&] {
    std::string fields = field("Text", text) + (score > 0 ? field("Score", score) : "") + field("Ms", now());
    {
      MutexLock held(lock_);
      interim_ = std::move(fields);
      if (std::exchange(announced_, true)) {
        return;
      }
    }
    quillbrook_report_push({shared_from_this(), quillbrook_report::kInterim, nullptr, ""});
  });
}

void Observer::result(const quillbrook_result_report &result) {
  attempt([&] {
    {
      // The words that wait are part of it.
      MutexLock held(lock_);
      interim_.clear();
    }
    const int64_t ms = now();
    if (events_) {
      event("QuillbrookResult", field("Text", result.text) + field("Score", result.score) +
                                    field("Cause", result.cause) + field("Reason", result.reason) + field("Ms", ms));
    }
    if (traces()) {
      TraceLine traced(ms, "result");
      traced.add("text", result.text).add("result", result.result).add("score", result.score);
      line(traced.add("cause", result.cause).add("reason", result.reason));
    }
  });
}

int64_t Observer::send_interim() {
  const int64_t moment = monotonic_ms();
  std::string fields;
  {
    MutexLock held(lock_);
    if (!interim_.empty() && interim_sent_ && moment - interim_sent_ < kInterimGap) {
      return interim_sent_ + kInterimGap;
    }
    fields = std::exchange(interim_, "");
    announced_ = false;
  }
  if (!fields.empty()) {
    interim_sent_ = moment;
    host_manager_event("QuillbrookInterim", (who_ + fields).c_str());
  }
  return 0;
}
