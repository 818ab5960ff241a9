#include "../record/session_list.h"
#include "../support/guard.h"
#include "../support/printable.h"
#include "entries.h"

namespace {

// The host lets other threads read and write a channel's settings, and one of them may come as the session goes.
const char *name_of(const SessionVisit &visit) {
  return visit.session() ? visit.session()->name : "?";
}

std::string moment(int64_t milliseconds) {
  return milliseconds < 0 ? "" : std::to_string(milliseconds);
}

// What the dialplan can ask of the result that it fetched last.
struct ResultSetting {
  const char *name;
  std::string (*read)(const quillbrook_result_t &result);
};
constexpr ResultSetting kResultSettings[] = {
    {"cause", [](const quillbrook_result_t &result) { return std::string(quillbrook_cause_name(result.cause)); }},
    {"reason", [](const quillbrook_result_t &result) { return result.reason; }},
    {"meaning", [](const quillbrook_result_t &result) { return result.meaning; }},
    {"rule", [](const quillbrook_result_t &result) { return result.rule; }},
    {"grammar", [](const quillbrook_result_t &result) { return result.grammar; }},
    {"input", [](const quillbrook_result_t &result) { return result.input; }},
    {"json", [](const quillbrook_result_t &result) { return result.json; }},
    {"first", [](const quillbrook_result_t &result) { return moment(result.first); }},
    {"length", [](const quillbrook_result_t &result) { return moment(result.length); }},
};

// Where nothing was fetched it is what keeps the recognition from having a result, and else that there were no words.
std::shared_ptr<const quillbrook_result_t> known_result(quillbrook_speech_t *session) {
  MutexLock held(session->result_lock);
  return session->fetched ? session->fetched : session->failure;
}

// The latest hypothesis of the recognition that runs.
std::string interim(quillbrook_speech_t *session) {
  MutexLock held(session->result_lock);
  std::string text;
  quillbrook_for_each_run(session->recognition, [&text](quillbrook_run_t &run) {
    if (text.empty() && run.transcript.text_interim) {
      text = run.transcript.text_interim;
    }
  });
  return text;
}

// False for a name that nobody knows.
bool read_setting(quillbrook_speech_t *session, const char *name, std::string &value) {
  for (const ResultSetting &setting : kResultSettings) {
    if (strcmp(setting.name, name) == 0) {
      const std::shared_ptr<const quillbrook_result_t> result = known_result(session);
      value = setting.read(result ? *result : quillbrook_result_t());
      return true;
    }
  }
  if (strcmp(name, "waiting") == 0) {
    MutexLock held(session->result_lock);  // a start makes the queue anew
    value = std::to_string(str_fifo_count(&session->last_results));
    return true;
  }
  if (strcmp(name, "interim") == 0) {
    value = interim(session);
    return true;
  }
  return false;
}

}  // namespace

int quillbrook_recog_dtmf(struct ast_speech *speech, const char *dtmf) {
  quillbrook_speech_t *session = quillbrook_session_of(speech);
  session_notice(session, "Signal DTMF %s\n", Printable(dtmf).text());
  session->digits_pending = 1;
  return 0;
}

int quillbrook_recog_change(struct ast_speech *speech, const char *name, const char *value) {
  const SessionVisit visit(speech);
  notice("(%s) Change setting name: %s value:%s\n", name_of(visit), Printable(name).text(), Printable(value).text());
  return 0;
}

int quillbrook_recog_get_settings(struct ast_speech *speech, const char *name, char *buf, size_t len) {
  return guarded("quillbrook_recog_get_settings", -1, [=] {
    const SessionVisit visit(speech);
    notice("(%s) Get settings name: %s\n", name_of(visit), Printable(name).text());
    std::string value;
    if (!visit.session() || !name || !read_setting(visit.session(), name, value)) {
      return -1;
    }
    copy_text(buf, len, value.c_str());
    return 0;
  });
}

int quillbrook_recog_change_results_type(struct ast_speech *speech, enum ast_speech_results_type results_type) {
  const SessionVisit visit(speech);
  notice("(%s) Get result type: %d\n", name_of(visit), static_cast<int>(results_type));
  return -1;
}
