#include "grammar_commands.h"

#include "../record/session.h"
#include "../support/guard.h"
#include "../support/near_miss.h"
#include "grammar_files.h"
#include "property.h"
#include "../support/printable.h"

namespace {

constexpr size_t kMostNames = 1000;  // that are told from slips of the pen

// Runs a command on the session of `speech`. The host hangs up the caller on any result but 0, so a failure shows in
// the log alone.
template <typename Command>
int run_command(const char *entry, struct ast_speech *speech, Command &&command) {
  return guarded(entry, 0, [&] {
    if (quillbrook_speech_t *session = quillbrook_session_of(speech)) {
      command(*session);
    }
    return 0;
  });
}

// Names are kept cut to the size of their field, and looked up in that form.
bool is_name(const char (&kept)[kGrammarNameSize], const char *name) {
  char cut[kGrammarNameSize];
  copy_text(cut, name);
  return strcmp(kept, cut) == 0;
}

void set_grammar_id(quillbrook_speech_t &session, const char *name) {
  const MutexLock hold(session.grammar_lock);
  copy_text(session.grammar_id, name);
}

void log_switched(quillbrook_speech_t &session, const char *name, const char *state)
    QUILLBROOK_REQUIRES(session.grammar_lock) {
  session_notice(&session, "JSGF grammar %s %s (%d active / %d loaded)\n", Printable(name).text(), state,
                 static_cast<int>(session.grammars.activeCount()), static_cast<int>(session.grammars.size()));
}

// What was wrong with a property. Empty when nothing was.
std::string complaint_about(PropertyOutcome outcome, const char *text, const char *value) {
  switch (outcome) {
    case PropertyOutcome::kSet:
      return "";
    case PropertyOutcome::kNoTime:
      return std::string("\"") + value + "\" is no number with the unit s or ms, and is stored as -1";
    case PropertyOutcome::kNoNumber:
      return std::string("\"") + value + "\" is no number, and is stored as 0";
    case PropertyOutcome::kNoSwitch:
      return std::string("\"") + value + "\" is neither yes nor no, and changes nothing";
    case PropertyOutcome::kModelFixed:
      return "changes nothing, because the model does not begin with a question mark";
    case PropertyOutcome::kUnknown:
      break;
  }
  const std::string meant = near_miss(std::string_view(text, strcspn(text, "=")), quillbrook_property_names());
  return "changes nothing, because there is no such property" + (meant.empty() ? "" : ": did you mean " + meant + "?");
}

// A path is a scheme, a colon and the rest, or a file alone. Two schemes mean something; the others are dropped. Gives
// what to complain of, or an empty text.
std::string load_path(quillbrook_speech_t &session, const char *name, const char *path) {
  std::string complaint =
      "changes nothing: the path is of no file that is read (.jsgf, .txt, /configuration_, /context_)";
  if (const char *colon = strchr(path, ':')) {
    const char *rest = colon + 1;
    if (quillbrook_begins_with(path, "builtin")) {
      debug_log("builtin set :%s to %s.\n", Printable(path).text(), Printable(name).text());
      complaint = quillbrook_set_builtin(session, path) ? "" : "changes nothing: there is no such builtin form";
    } else if (quillbrook_begins_with(path, "property")) {
      const char *equals = strchr(rest, '=');
      const char *value = equals ? equals + 1 : name;
      debug_log("Properties set :%s to %s.\n", Printable(rest).text(), Printable(value).text());
      const PropertyOutcome outcome = quillbrook_set_property(session, rest, value);
      complaint = complaint_about(outcome, rest, value);
      if (outcome != PropertyOutcome::kUnknown) {
        return complaint;
      }
      path = rest;
      name = value;
    } else {
      path = rest;
    }
  }
  return quillbrook_load_files(session, name, path) ? "" : complaint;
}

void load(quillbrook_speech_t &session, const char *name, const char *path) {
  session_notice(&session, "load grammar %s = %s\n", Printable(name).text(), Printable(path).text());
  if (session.grammar_names.size() < kMostNames) {
    session.grammar_names.insert(name);
  }
  const std::string complaint = load_path(session, name, path);
  if (!complaint.empty()) {
    session_log(LOG_WARNING, &session, "SpeechLoadGrammar(%s,%s) %s\n", Printable(name).text(), Printable(path).text(),
                Printable(complaint.c_str()).text());
  }
}

// A name of an earlier load, be it of a file or a setting, is no slip of the pen.
void warn_of_unknown(const quillbrook_speech_t &session, const char *application, const char *name) {
  if (session.grammar_names.size() < kMostNames && !session.grammar_names.count(name)) {
    session_log(LOG_WARNING, &session, "%s(%s): nothing was loaded under this name\n", application,
                Printable(name).text());
  }
}

void unload(quillbrook_speech_t &session, const char *name) {
  warn_of_unknown(session, "SpeechUnloadGrammar", name);
  quillbrook_release_text(session.phrases);
  {
    const MutexLock hold(session.grammar_lock);
    if (session.grammars.size()) {
      session_notice(&session, "unload JSGF grammar %s\n", Printable(name).text());
      session.grammars.unload(name);
    }
  }
  if (is_name(session.config_name, name)) {
    session_notice(&session, "free config grammar %s\n", Printable(name).text());
    quillbrook_replace_config(session, nullptr);
    session.config_name[0] = '\0';
  }
  if (is_name(session.context_name, name)) {
    session_notice(&session, "clear context grammar %s\n", Printable(name).text());
    session.context_text[0] = '\0';
    session.context_name[0] = '\0';
  }
  session_notice(&session, "unload grammar %s\n", Printable(name).text());
  if (is_name(session.grammar_id, name)) {
    set_grammar_id(session, "");
  }
}

void activate(quillbrook_speech_t &session, const char *name) {
  session_notice(&session, "grammar %s\n", Printable(session.grammar_id).text());
  session_notice(&session, "activate grammar %s\n", Printable(name).text());
  warn_of_unknown(session, "SpeechActivateGrammar", name);
  {
    const MutexLock hold(session.grammar_lock);
    if (session.grammars.activate(name)) {
      log_switched(session, name, "is active");
    }
  }
  if (!session.grammar_id[0]) {
    set_grammar_id(session, name);
  }
}

void deactivate(quillbrook_speech_t &session, const char *name) {
  session_notice(&session, "grammar %s\n", Printable(session.grammar_id).text());
  session_notice(&session, "deactivate grammar %s\n", Printable(name).text());
  warn_of_unknown(session, "SpeechDeactivateGrammar", name);
  {
    const MutexLock hold(session.grammar_lock);
    if (session.grammars.deactivate(name)) {
      log_switched(session, name, "is not active");
    }
  }
  if (session.engine->continuous) {
    session_notice(&session, "mode continuous, not deactivate grammar with grammar_id=%s\n",
                   Printable(session.grammar_id).text());
  } else if (is_name(session.grammar_id, name)) {
    session_notice(&session, "deactivate grammar clear the grammar_id=%s\n", Printable(session.grammar_id).text());
    set_grammar_id(session, "");
  }
}

}  // namespace

int quillbrook_recog_load_grammar(struct ast_speech *speech, const char *grammar_name, const char *grammar_path) {
  return run_command("quillbrook_recog_load_grammar", speech,
                     [&](quillbrook_speech_t &session) { load(session, grammar_name, grammar_path); });
}

int quillbrook_recog_unload_grammar(struct ast_speech *speech, const char *grammar_name) {
  return run_command("quillbrook_recog_unload_grammar", speech,
                     [&](quillbrook_speech_t &session) { unload(session, grammar_name); });
}

int quillbrook_recog_activate_grammar(struct ast_speech *speech, const char *grammar_name) {
  return run_command("quillbrook_recog_activate_grammar", speech,
                     [&](quillbrook_speech_t &session) { activate(session, grammar_name); });
}

int quillbrook_recog_deactivate_grammar(struct ast_speech *speech, const char *grammar_name) {
  return run_command("quillbrook_recog_deactivate_grammar", speech,
                     [&](quillbrook_speech_t &session) { deactivate(session, grammar_name); });
}
