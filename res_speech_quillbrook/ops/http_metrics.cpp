#include "http_metrics.h"

#include "../record/engine.h"
#include "../support/guard.h"
#include "http_engine_metrics.h"
#include "http_uri.h"
#include "statistics.h"

ast_http_uri quillbrook_uri_metrics = {
    .description = "Quillbrook HTTP Metrics URI",
    .uri = "quillbrook_metrics",
    .callback = quillbrook_http_metrics_callback,
    .key = AST_MODULE,
};

namespace {

struct Counter {
  const char *name;
  const char *type;
  const char *help;
  unsigned long long quillbrook_statistics::*value;
};

constexpr Counter kCounters[] = {
    {"sessions_total", "counter", "QuillBrook sessions total", &quillbrook_statistics::sessions_total},
    {"sessions_active", "gauge", "QuillBrook sessions active", &quillbrook_statistics::sessions_active},
    {"sessions_closed", "counter", "QuillBrook sessions closed", &quillbrook_statistics::sessions_closed},
    {"messages_total", "counter", "QuillBrook messages total", &quillbrook_statistics::messages_total},
    {"messages_final", "counter", "QuillBrook final messages", &quillbrook_statistics::messages_final},
    {"messages_interim", "counter", "QuillBrook interim messages", &quillbrook_statistics::messages_interim},
};

void append_counters(ast_str **out, const char *eid, const quillbrook_statistics &stats) {
  for (const Counter &counter : kCounters) {
    ast_str_append(out, 0,
                   "# HELP asterisk_quillbrook_%s %s\n"
                   "# TYPE asterisk_quillbrook_%s %s\n"
                   "asterisk_quillbrook_%s{eid=\"%s\"} %llu\n",
                   counter.name, counter.help, counter.name, counter.type, counter.name, eid, stats.*counter.value);
  }
}

void append_score_average(ast_str **out, const char *eid, double average) {
  ast_str_append(out, 0,
                 "# HELP asterisk_quillbrook_score_average QuillBrook score average\n"
                 "# TYPE asterisk_quillbrook_score_average gauge\n"
                 "asterisk_quillbrook_score_average{eid=\"%s\"} %.02f\n",
                 eid, average);
}

// The value is the age of the date in seconds, 0 when it has not happened. The age of a date in the future wraps.
void append_dates(ast_str **out, const char *eid, const time_t (&dates)[kDates]) {
  for (int index = 0; index < kDates; ++index) {
    const time_t date = dates[index];
    const auto age = static_cast<unsigned long long>(date != 0 ? dates[kDateNow] - date : 0);
    ast_str_append(out, 0,
                   "# HELP asterisk_quillbrook_date_%d %s\n"
                   "# TYPE asterisk_quillbrook_date_%d gauge\n"
                   "asterisk_quillbrook_date_%d{eid=\"%s\"} %llu\n",
                   index, quillbrook_dates_name[index], index, index, eid, age);
  }
}

int reply_metrics(ast_tcptls_session_instance *ser, ast_http_method method) {
  if (method != AST_HTTP_GET && method != AST_HTTP_HEAD) {
    http_reply_unsupported_method(ser);
    return 0;
  }
  char eid[32];
  ast_eid_to_str(eid, sizeof(eid), &ast_eid_default);
  ast_str *out = ast_str_create(512);
  if (!out) {
    http_reply_out_of_memory(ser);
    return 0;
  }
  const quillbrook_statistics_snapshot snapshot = quillbrook_statistics_read();
  append_counters(&out, eid, snapshot.stats);
  append_score_average(&out, eid, snapshot.score_average());
  append_dates(&out, eid, snapshot.dates);
  // Takes over `out`. For HEAD the server leaves the body out itself.
  ast_http_send(ser, method, 200, nullptr, nullptr, out, 0, 0);
  return 0;
}

}  // namespace

int quillbrook_http_metrics_callback(ast_tcptls_session_instance *ser, const ast_http_uri *, const char *,
                                     ast_http_method method, ast_variable *, ast_variable *) {
  return guarded("quillbrook_http_metrics_callback", 0, [&] { return reply_metrics(ser, method); });
}

void quillbrook_http_update() {
  if (quillbrook_webenabled && !quillbrook_webregged) {
    quillbrook_webregged = http_uri_link(quillbrook_uri_metrics) ? 1 : 0;
  } else if (!quillbrook_webenabled && quillbrook_webregged) {
    ast_http_uri_unlink(&quillbrook_uri_metrics);
    quillbrook_webregged = 0;
  }
  quillbrook_http_engine_metrics_update(quillbrook_webenabled != 0);
}
