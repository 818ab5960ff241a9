#include "cli_sessions.h"

#include "../record/session_list.h"
#include "../support/guard.h"
#include "../support/monotonic.h"
#include "../support/printable.h"

namespace {

// Places of the words in "quillbrook show sessions like PATTERN".
constexpr int kWords = 3;
constexpr int kLike = kWords;
constexpr int kPattern = kWords + 1;
// A session whose results are being written is looked at again: times in all, and microseconds in between.
constexpr int kLooks = 20;
constexpr useconds_t kLookPause = 1000;

struct Row {
  std::string session, channel, engine, words;
  const char *state = "busy";
  double seconds = -1;
  int64_t last_call = -1;  // milliseconds ago
};

const char *state_of(const quillbrook_recognition_t &recognition, const quillbrook_run_t &run) {
  if (!ast_tvzero(run.transcript.datefirst)) {
    return shared_load(run.context.finalize) > 0 ? "closing" : "speech";
  }
  return shared_load(recognition.last_call) ? "listening" : "waiting";
}

void describe(Row &row, const quillbrook_transcript_t &transcript) {
  for (const char *text : {transcript.text, transcript.text_interim}) {
    if (text && text[0]) {
      row.words += row.words.empty() ? "" : " ";
      row.words += text;
    }
  }
}

void describe(Row &row, quillbrook_speech_t &session) QUILLBROOK_REQUIRES(session.result_lock) {
  quillbrook_recognition_t *recognition = session.recognition;
  row.state = "idle";
  if (recognition && recognition->context1) {
    const quillbrook_run_t &run = *quillbrook_run_of(recognition->context1);
    row.state = state_of(*recognition, run);
    row.seconds = static_cast<double>(ast_tvdiff_ms(ast_tvnow(), run.transcript.datestart)) / 1000;
    describe(row, run.transcript);
    const int64_t called = shared_load(recognition->last_call);
    row.last_call = called ? monotonic_ms() - called : -1;
  }
  if (!str_fifo_empty(&session.last_results)) {
    row.state = "result";
  }
}

std::string channel_of(const HostCallId &call) {
  std::string name;
  if (struct ast_channel *channel = host_channel_of_call(call)) {
    ast_channel_lock(channel);
    name = ast_channel_name(channel);
    ast_channel_unlock(channel);
    host_channel_release(channel);
  }
  return name;
}

struct Look {
  std::vector<Row> rows;
  std::vector<std::shared_ptr<const HostCallId>> calls;
  bool busy = false;
};

// One look at all sessions. It waits for none of them: the list's lock is held.
Look look() {
  Look found;
  quillbrook_sessions_look([&found](quillbrook_speech_t &session) {
    Row row;
    char engine[kEngineNameSize];
    quillbrook_engine_host_name(*session.engine, engine, sizeof(engine));
    row.session = session.name;
    row.engine = engine;
    if (session.result_lock.try_lock()) {
      describe(row, session);
      session.result_lock.unlock();
    } else {
      found.busy = true;
    }
    found.rows.push_back(std::move(row));
    found.calls.push_back(session.call);
  });
  return found;
}

std::vector<Row> rows_of_sessions() {
  Look found = look();
  for (int again = 1; found.busy && again < kLooks; ++again) {
    usleep(kLookPause);
    found = look();
  }
  for (size_t index = 0; index < found.rows.size(); ++index) {
    found.rows[index].channel = channel_of(*found.calls[index]);
  }
  return std::move(found.rows);
}

bool contains(const std::string &text, const char *pattern) {
  return strcasestr(text.c_str(), pattern) != nullptr;
}

bool is_like(const Row &row, const char *pattern) {
  return contains(row.session, pattern) || contains(row.channel, pattern) || contains(row.engine, pattern);
}

std::string shown_number(const char *format, double number) {
  char text[32] = "-";
  if (number >= 0) {
    snprintf(text, sizeof(text), format, number);
  }
  return text;
}

void print(int fd, const char *pattern) {
  constexpr char kColumns[] = "%-24s %-28s %-20s %-9s %8s %10s  %s\n";
  int shown_rows = 0;
  ast_cli(fd, kColumns, "Session", "Channel", "Engine", "State", "Seconds", "Last call", "Words");
  for (const Row &row : rows_of_sessions()) {
    if (!pattern || is_like(row, pattern)) {
      ast_cli(fd, kColumns, row.session.c_str(), Printable(row.channel).text(), row.engine.c_str(), row.state,
              shown_number("%.1f", row.seconds).c_str(),
              shown_number("%.0f ms", static_cast<double>(row.last_call)).c_str(), Printable(row.words).text());
      ++shown_rows;
    }
  }
  ast_cli(fd, "%d session%s\n", shown_rows, shown_rows == 1 ? "" : "s");
}

// The nth word that may stand there; the host gives it back.
char *complete(const ast_cli_args &args) {
  int skip = args.n;
  const auto offer = [&](const char *word) {
    return strncasecmp(word, args.word, strlen(args.word)) == 0 && skip-- == 0 ? ast_strdup(word) : nullptr;
  };
  if (args.pos == kLike) {
    return offer("like");
  }
  if (args.pos == kPattern) {
    for (const Row &row : look().rows) {
      if (char *word = offer(row.session.c_str())) {
        return word;
      }
    }
  }
  return nullptr;
}

}  // namespace

char *handle_cli_quillbrook_sessions(ast_cli_entry *entry, int call, ast_cli_args *args) {
  switch (call) {
    case CLI_INIT:
      entry->command = const_cast<char *>("quillbrook show sessions");
      entry->usage =
          "Usage: quillbrook show sessions [like PATTERN]\n"
          "       Display the sessions that exist, or those with the pattern in session, channel or engine.\n";
      return nullptr;
    case CLI_GENERATE:
      return guarded("quillbrook show sessions", static_cast<char *>(nullptr), [args] { return complete(*args); });
    default:
      break;
  }
  const bool like = args->argc == kPattern + 1 && strcasecmp(args->argv[kLike], "like") == 0;
  if (args->argc != kWords && !like) {
    return CLI_SHOWUSAGE;
  }
  return guarded("quillbrook show sessions", CLI_FAILURE, [args, like] {
    print(args->fd, like ? args->argv[kPattern] : nullptr);
    return CLI_SUCCESS;
  });
}
