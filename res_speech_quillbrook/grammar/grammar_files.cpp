#include "grammar_files.h"

#include "../record/shared_grammars.h"
#include "../support/text_file.h"
#include "../support/printable.h"

namespace {

struct FileCloser {
  void operator()(FILE *file) const { fclose(file); }
};
using OpenFile = std::unique_ptr<FILE, FileCloser>;

bool ends_with(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Called right after the failure, while errno tells of it.
void warn_unreadable(const quillbrook_speech_t &session, const char *name, const char *path) {
  session_log(LOG_WARNING, &session, "Cannot read grammar %s = %s: %s\n", Printable(name).text(),
              Printable(path).text(), file_error_text(errno, kTextFileMax).c_str());
}

void load_configuration(quillbrook_speech_t &session, const char *name, const char *path) {
  debug_log("config detect :%s.\n", Printable(path).text());
  char *text = load_file_to_string(path);
  if (!text && errno == ENOMEM) {
    session_log(LOG_ERROR, &session, "Memory allocation error!\n");
  } else if (!text) {
    warn_unreadable(session, name, path);
  }
  quillbrook_replace_config(session, text);
  copy_text(session.config_name, name);
}

void load_context(quillbrook_speech_t &session, const char *name, const char *path) {
  debug_log("context detect :%s.\n", Printable(path).text());
  OpenFile file(open_regular_file(path, kTextFileMax));
  if (file) {
    // One byte more than fits, so that a longer text is cut behind a whole character.
    char text[QUILLBROOK_TEXT_SIZE + 1];
    text[fread(text, 1, QUILLBROOK_TEXT_SIZE, file.get())] = '\0';
    copy_text(session.context_text, text);
  } else {
    warn_unreadable(session, name, path);
  }
  copy_text(session.context_name, name);
}

// The reason of a failed load as the operator needs it.
std::string reason_of(const std::exception &failure) {
  std::string reason = failure.what();
  if (const auto *file_error = dynamic_cast<const GrammarFileError *>(&failure)) {
    reason += ": ";
    reason += file_error_text(file_error->error(), kGrammarFileMax);
  }
  return reason;
}

void load_jsgf(quillbrook_speech_t &session, const char *name, const char *path) {
  session_notice(&session, "load JSGF grammar %s = %s\n", Printable(name).text(), Printable(path).text());
  // Parsing a large grammar takes a while, and a match that needs the lock may be waiting.
  GrammarManager loaded;
  loaded.setNormalizeMode(session.engine->normalize_phrases);
  try {
    loaded.load(name, path);
  } catch (const std::exception &failure) {
    session_log(LOG_ERROR, &session, "Cannot load JSGF grammar %s = %s: %s\n", Printable(name).text(),
                Printable(path).text(), Printable(reason_of(failure)).text());
    return;
  }
  const MutexLock hold(session.grammar_lock);
  session.grammars.setNormalizeMode(session.engine->normalize_phrases);
  session.grammars.adopt(std::move(loaded));
}

void load_phrases(quillbrook_speech_t &session, const char *name, const char *path) {
  session_notice(&session, "load TEXT grammar %s = %s\n", Printable(name).text(), Printable(path).text());
  quillbrook_release_text(session.phrases);
  session.phrases = load_file_to_string(path);
  if (!session.phrases) {
    warn_unreadable(session, name, path);
  }
}

}  // namespace

bool quillbrook_load_files(quillbrook_speech_t &session, const char *name, const char *path) {
  const struct {
    bool is_meant;
    void (*load)(quillbrook_speech_t &session, const char *name, const char *path);
  } readings[] = {{strstr(path, "/configuration_") != nullptr, load_configuration},
                  {strstr(path, "/context_") != nullptr, load_context},
                  {ends_with(path, ".jsgf"), load_jsgf},
                  {ends_with(path, ".txt"), load_phrases}};
  bool loaded = false;
  for (const auto &reading : readings) {
    if (reading.is_meant) {
      reading.load(session, name, path);
      loaded = true;
    }
  }
  return loaded;
}

void quillbrook_replace_config(quillbrook_speech_t &session, char *text) {
  if (text) {
    session.config_pointer.reset(text, [](char *former) { ast_free(former); });
  } else {
    session.config_pointer.reset();
  }
}
