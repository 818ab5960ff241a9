#include "../ops/statistics.h"
#include "../support/cli.h"
#include "../support/guard.h"
#include "../support/module_use.h"
#include "entries.h"
#include "session_name.h"
#include "../record/observation.h"
#include "../record/session_list.h"
#include "../support/printable.h"

namespace {

// Bytes that a companion command may print into a session's field, and the tag's longest form in the name.
constexpr size_t kTagSize = 150;

// The entry that serves the host's engine of that name; null when no profile has it.
quillbrook_engine_t *find_engine(const EngineTable &engines, const char *engine_name, const char *&profile) {
  profile = engine_name;
  const char *colon = strchr(engine_name, ':');
  if (!colon) {
    return &engines[0];
  }
  profile = colon + 1;
  for (int index = 1; index < kEngines && engines[index].name[0]; ++index) {
    debug_notice("Search profile %s = %s\n", engine_name, engines[index].name);
    if (strcmp(engines[index].name, profile) == 0) {
      return &engines[index];
    }
  }
  return nullptr;
}

struct EngineWord {
  const char *word;
  char *quillbrook_engine_t::*text;
};
constexpr EngineWord kEngineTexts[] = {
    {"url", &quillbrook_engine_t::ws_url},
    {"model", &quillbrook_engine_t::ws_model},
    {"language", &quillbrook_engine_t::ws_language},
    {"voice", &quillbrook_engine_t::ws_voice},
    {"configuration", &quillbrook_engine_t::ws_configuration},
    {"context", &quillbrook_engine_t::ws_context},
    {"phrases", &quillbrook_engine_t::ws_phrases},
    {"extra", &quillbrook_engine_t::ws_extra},
};

void log_engine(const quillbrook_engine_t &engine, const char *profile, const char *provider) {
  debug_log("Speech profile %s (provider %s, index %d)\n", profile, provider, engine.index);
  debug_log("- profile %s\n", engine.name);
  debug_log("- plugin %s\n", shown(engine.plugin_name));
  for (auto [word, text] : kEngineTexts) {
    debug_log("- %s %s\n", word, Printable(engine.*text).text());
  }
}

void log_defaults(const quillbrook_speech_t *session) {
  for (auto [word, text] : kEngineTexts) {
    session_notice(session, "Create speech resource default %s %s\n", word, Printable(session->engine->*text).text());
  }
}

// Asks the companion application for a value of the call that runs on this thread. A value holds no control character;
// what does is an error text of the host's ("No such command ..."), which the 13 series reports as a success. The
// result then stays empty.
template <size_t CommandSize>
void ask_companion(const char (&command)[CommandSize], char *result, int max) {
  char writable[CommandSize];
  memcpy(writable, command, CommandSize);
  cli(writable, result, max);
  for (const char *c = result; *c; ++c) {
    if (static_cast<unsigned char>(*c) < 0x20 || *c == 0x7F) {
      result[0] = '\0';
      return;
    }
  }
}

void take_engine_settings(quillbrook_speech_t *session) {
  const quillbrook_engine_t &engine = *session->engine;
  copy_text(session->model, engine.ws_model);
  copy_text(session->language, engine.ws_language);
  copy_text(session->voice, engine.ws_voice);
  copy_text(session->configuration, engine.ws_configuration);
  copy_text(session->context, engine.ws_context);
  copy_text(session->extra, engine.ws_extra);
  session->phrases = engine.ws_phrases ? ast_strdup(engine.ws_phrases) : nullptr;
  session->timeouts = engine.timeouts;
  session->speedvsaccuracy = engine.speedvsaccuracy;
  session->minspeechtimeout = engine.minspeechtimeout;
  session->maxspeechtimeout = engine.maxspeechtimeout;
  session->completetimeout = engine.completetimeout;
  session->incompletetimeout = engine.incompletetimeout;
  session->speechtimeout = engine.speechtimeout;
  session->extendedtimeout = engine.extendedtimeout;
  session->earlyspeechtimeout = engine.earlyspeechtimeout;
  session->providertimeout = engine.providertimeout;
  session->grammartimeouts = engine.grammartimeouts;
  session->matchtimeout = engine.matchtimeout;
}

// The tag of the call makes the name of the session, when the engine asks for it and there is one.
void name_session(quillbrook_speech_t *session) {
  char tag[kTagSize] = "";
  if (session->engine->logtag) {
    ask_companion("tandrel show session threadid tag", tag, kTagSize - 1);
    session_notice(session, "Use logtag with value: %s\n", Printable(tag).text());
  }
  quillbrook_name_session(session, Printable(tag).text());
}

void choose_loggingtag(quillbrook_speech_t *session) {
  const char *source = session->engine->loggingtag;
  if (!source) {
    return;
  }
  if (strcmp(source, "uniqueid") == 0) {
    copy_text(session->loggingtag, session->uniqueid);
  } else if (strcmp(source, "remote") == 0) {
    copy_text(session->loggingtag, session->mark);
  } else if (strcmp(source, "param") == 0) {
    ask_companion("tandrel show session threadid param", session->loggingtag, sizeof(session->loggingtag) - 1);
  } else {
    copy_text(session->loggingtag, source);
  }
}

// Undoes what there is of a session that cannot be completed.
void discard(quillbrook_speech_t *session) {
  quillbrook_statistics_session_stop();
  count<int64_t>(session->statistics->sessions_active, -1);
  quillbrook_release_text(session->phrases);
  session->~quillbrook_speech_t();
  ast_free(session);
}

int create(struct ast_speech *speech) {
  const char *engine_name = speech->engine->name;
  notice("(?) Create speech resource : %s\n", engine_name);
  const char *profile;
  EngineTable engines = quillbrook_engines();
  quillbrook_engine_t *engine = find_engine(engines, engine_name, profile);
  // An engine without a plugin is left when an unload failed half way.
  if (!engine || !engine->plugin_init || !quillbrook_module_is_open()) {
    ast_log(LOG_ERROR, "No plugin behind the engine %s (profile %s)\n", engine_name, profile);
    return -1;
  }
  log_engine(*engine, profile, engine_name);

  void *memory = ast_calloc(1, sizeof(quillbrook_speech_t));
  if (!memory) {
    ast_log(LOG_ERROR, "Cannot allocate speech context!\n");
    return -1;
  }
  auto *session = new (memory) quillbrook_speech_t();
  quillbrook_statistics_session_start();
  session->statistics = &quillbrook_statistics_of_engine(engine_name);
  count(session->statistics->sessions);
  count(session->statistics->sessions_active);
  std::unique_ptr<quillbrook_speech_t, void (*)(quillbrook_speech_t *)> incomplete(session, discard);
  session->engine = engine;
  session->engines = std::move(engines);
  session->call.reset(new HostCallId(HostCallId::of_this_thread()));
  take_engine_settings(session);
  ask_companion("tandrel show session threadid uniqueid", session->uniqueid, sizeof(session->uniqueid) - 1);
  ask_companion("tandrel show session threadid remote", session->mark, sizeof(session->mark) - 1);
  name_session(session);
  choose_loggingtag(session);
  quillbrook_observe_session(session);
  str_fifo_init(&session->last_results);
  static_cast<void>(incomplete.release());
  shared_store(speech->data, static_cast<void *>(session));
  quillbrook_sessions_add(speech, session);
  log_defaults(session);
  return 0;
}

}  // namespace

int quillbrook_recog_create(struct ast_speech *speech, struct ast_format *) {
  // Kept until destroy, so that the host refuses to unload the module under a live call.
  quillbrook_module_enter();
  const int result = guarded("quillbrook_recog_create", -1, [=] { return create(speech); });
  if (result) {
    quillbrook_module_leave();
  }
  return result;
}
