#include "http_engine_metrics.h"

#include "../record/engine_statistics.h"
#include "../support/guard.h"
#include "http_uri.h"

ast_http_uri quillbrook_uri_engine_metrics = {
    .description = "Quillbrook HTTP Engine Metrics URI",
    .uri = "quillbrook_engine_metrics",
    .callback = quillbrook_http_engine_metrics_callback,
    .key = AST_MODULE,
};

namespace {

using Statistics = quillbrook_engine_statistics;

constexpr char kContentType[] = "Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n";
constexpr double kSamplesPerSecond = 8000;

// Written by the loading thread, which the host lets run one at a time.
bool engine_uri_linked = false;

struct Number {
  const char *name;
  const char *type;
  const char *help;
  double (*read)(const Statistics &statistics);
};

template <typename T>
double value(const std::atomic<T> &counter) {
  return static_cast<double>(counter.load(std::memory_order_relaxed));
}

constexpr Number kNumbers[] = {
    {"sessions_total", "counter", "Sessions begun.", [](const Statistics &s) { return value(s.sessions); }},
    {"sessions_active", "gauge", "Sessions that exist.", [](const Statistics &s) { return value(s.sessions_active); }},
    {"recognitions_total", "counter", "Recognitions begun.", [](const Statistics &s) { return value(s.recognitions); }},
    {"recognitions_active", "gauge", "Recognitions that run.",
     [](const Statistics &s) { return value(s.recognitions_active); }},
    {"provider_failures_total", "counter", "Failures that the plugin reported.",
     [](const Statistics &s) { return value(s.provider_failures); }},
    {"messages_total", "counter", "Texts that the plugin delivered.",
     [](const Statistics &s) { return value(s.messages); }},
    {"audio_seconds_total", "counter", "Audio that the plugin was given.",
     [](const Statistics &s) { return value(s.samples) / kSamplesPerSecond; }},
};

struct Times {
  const char *name;
  const char *help;
  const DurationHistogram &(*read)(const Statistics &statistics);
};

constexpr Times kTimes[] = {
    {"start_seconds", "Time inside a start of a recognition.",
     [](const Statistics &s) -> const DurationHistogram & { return s.start; }},
    {"first_words_seconds", "From the start of a recognition to its first words.",
     [](const Statistics &s) -> const DurationHistogram & { return s.first_words; }},
    {"waiting_seconds", "From the last words to the result.",
     [](const Statistics &s) -> const DurationHistogram & { return s.waiting; }},
    {"recognition_seconds", "From the start of a recognition to its end.",
     [](const Statistics &s) -> const DurationHistogram & { return s.recognition; }},
    {"stop_seconds", "From the stop of the plugin to the end of its threads.",
     [](const Statistics &s) -> const DurationHistogram & { return s.stop; }},
};

// A label's value: the quote, the backslash and the line end are escaped. Names come from the configuration.
std::string label(const std::string &text) {
  std::string escaped;
  for (const char byte : text) {
    if (byte == '\\' || byte == '"') {
      escaped += '\\';
    }
    escaped += byte == '\n' ? std::string("\\n") : std::string(1, byte);
  }
  return escaped;
}

struct Engine {
  std::string name;
  const Statistics &statistics;
};

// Builds the answer. A counter reaches 2^53 before its value is rounded.
class Page {
public:
  explicit Page(std::vector<Engine> engines) : engines_(std::move(engines)) {}

  std::string text() {
    for (const Number &number : kNumbers) {
      add_number(number);
    }
    add_results();
    for (const Times &times : kTimes) {
      add_times(times);
    }
    return std::move(text_);
  }

private:
  void begin(const char *name, const char *type, const char *help) {
    const std::string full = std::string("asterisk_quillbrook_engine_") + name;
    text_ += "# HELP " + full + " " + help + "\n# TYPE " + full + " " + type + "\n";
    name_ = full;
  }

  void sample(const char *ending, const Engine &engine, const std::string &more, double number) {
    char shown[32];
    snprintf(shown, sizeof(shown), "%.16g", number);
    text_ += name_ + ending + "{engine=\"" + engine.name + "\"" + more + "} " + shown + "\n";
  }

  void add_number(const Number &number) {
    begin(number.name, number.type, number.help);
    for (const Engine &engine : engines_) {
      sample("", engine, "", number.read(engine.statistics));
    }
  }

  void add_results() {
    begin("results_total", "counter", "Ends of a question, by the cause that the dialplan can ask for.");
    for (const Engine &engine : engines_) {
      for (int cause = 0; cause < kCauses; ++cause) {
        const char *name = quillbrook_cause_name(static_cast<quillbrook_cause>(cause));
        sample("", engine, std::string(",cause=\"") + name + "\"", value(engine.statistics.results[cause]));
      }
    }
  }

  void add_times(const Times &times) {
    begin(times.name, "histogram", times.help);
    for (const Engine &engine : engines_) {
      const DurationHistogram &histogram = times.read(engine.statistics);
      uint64_t sum = 0;
      for (size_t index = 0; index <= DurationHistogram::kLimitCount; ++index) {
        char limit[32] = "+Inf";
        if (index < DurationHistogram::kLimitCount) {
          snprintf(limit, sizeof(limit), "%g", DurationHistogram::kLimits[index]);
        }
        sum += histogram.within(index);
        sample("_bucket", engine, std::string(",le=\"") + limit + "\"", static_cast<double>(sum));
      }
      sample("_sum", engine, "", histogram.sum_in_seconds());
      sample("_count", engine, "", static_cast<double>(sum));
    }
  }

  std::vector<Engine> engines_;
  std::string name_;
  std::string text_;
};

std::string page() {
  std::vector<Engine> engines;
  quillbrook_visit_engine_statistics([&engines](const Statistics &statistics) {
    engines.push_back({label(statistics.engine), statistics});
  });
  return Page(std::move(engines)).text();
}

OwnedText host_text(const std::string &text) {
  ast_str *copy = ast_str_create(text.size() + 1);
  if (copy) {
    ast_str_append(&copy, 0, "%s", text.c_str());
  }
  return OwnedText(copy);
}

int reply_engine_metrics(ast_tcptls_session_instance *ser, ast_http_method method) {
  if (method != AST_HTTP_GET && method != AST_HTTP_HEAD) {
    http_reply_unsupported_method(ser);
    return 0;
  }
  OwnedText header = host_text(kContentType);
  const std::string text = guarded("quillbrook_http_engine_metrics_callback", std::string(), page);
  OwnedText body = host_text(text);
  if (!header || !body || text.empty()) {
    http_reply_out_of_memory(ser);
    return 0;
  }
  // Takes over both. For HEAD the server leaves the body out itself.
  ast_http_send(ser, method, 200, nullptr, header.release(), body.release(), 0, 0);
  return 0;
}

}  // namespace

int quillbrook_http_engine_metrics_callback(ast_tcptls_session_instance *ser, const ast_http_uri *, const char *,
                                            ast_http_method method, ast_variable *, ast_variable *) {
  return guarded("quillbrook_http_engine_metrics_callback", 0, [&] { return reply_engine_metrics(ser, method); });
}

void quillbrook_http_engine_metrics_update(bool wanted) {
  if (wanted && !engine_uri_linked) {
    engine_uri_linked = http_uri_link(quillbrook_uri_engine_metrics);
  } else if (!wanted && engine_uri_linked) {
    ast_http_uri_unlink(&quillbrook_uri_engine_metrics);
    engine_uri_linked = false;
  }
}
