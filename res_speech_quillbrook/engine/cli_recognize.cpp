#include "cli_recognize.h"

#include "../record/engine.h"
#include "../session/trial.h"
#include "../support/guard.h"

namespace {

// Places of the words in "quillbrook recognize ENGINE FILE.wav WORD ...".
constexpr int kEngine = 2;
constexpr int kFile = 3;
constexpr int kFirstWord = 4;

struct Run {
  quillbrook_trial trial;
  int fd;
};

void *quillbrook_trial_thread(void *data) {
  const Run &run = *static_cast<Run *>(data);
  guarded("quillbrook recognize", 0, [&run] {
    quillbrook_run_trial(run.trial, [&run](const std::string &line) { ast_cli(run.fd, "%s\n", line.c_str()); });
    return 0;
  });
  return nullptr;
}

// The words of a list of phrases have blanks in between.
std::string joined(const ast_cli_args &args) {
  std::string words;
  for (int index = kFirstWord; index < args.argc; ++index) {
    words += (words.empty() ? "" : " ") + std::string(args.argv[index]);
  }
  return words;
}

// The console waits: what it prints on goes with it, and so may the module.
char *recognize(const ast_cli_args &args) {
  Run run = {{args.argv[kEngine], args.argv[kFile], joined(args)}, args.fd};
  pthread_t thread;
  if (const int error = ast_pthread_create_stack(&thread, nullptr, quillbrook_trial_thread, &run, host_stack_size(),
                                                 __FILE__, __FUNCTION__, __LINE__, "quillbrook_trial")) {
    ast_cli(args.fd, "There is no thread for it: %s\n", strerror(error));
    return CLI_FAILURE;
  }
  pthread_join(thread, nullptr);
  return CLI_SUCCESS;
}

// The nth engine whose name begins so; the host gives it back.
char *complete(const ast_cli_args &args) {
  char *found = nullptr;
  int skip = args.n;
  const auto offer = [&](const quillbrook_engine_t &engine) {
    char name[kEngineNameSize];
    quillbrook_engine_host_name(engine, name, sizeof(name));
    if (!found && engine.plugin_init && strncasecmp(name, args.word, strlen(args.word)) == 0 && skip-- == 0) {
      found = ast_strdup(name);
    }
  };
  if (args.pos == kEngine) {
    const EngineTable engines = quillbrook_engines();
    offer(engines[0]);
    quillbrook_for_each_profile(engines, offer);
  }
  return found;
}

char *handle_cli_quillbrook_recognize(ast_cli_entry *entry, int call, ast_cli_args *args) {
  switch (call) {
    case CLI_INIT:
      entry->command = const_cast<char *>("quillbrook recognize");
      entry->usage =
          "Usage: quillbrook recognize ENGINE FILE.wav [PHRASES | GRAMMAR]\n"
          "       Send a recording through an engine at the speed of a call, and show what comes of it. The rest of\n"
          "       the line is a list of phrases, or the path of a grammar, which begins with /.\n";
      return nullptr;
    case CLI_GENERATE:
      return complete(*args);
    default:
      break;
  }
  if (args->argc <= kFile) {
    return CLI_SHOWUSAGE;
  }
  return guarded("quillbrook recognize", CLI_FAILURE, [args] { return recognize(*args); });
}

ast_cli_entry recognize_commands[] = {
    AST_CLI_DEFINE(handle_cli_quillbrook_recognize, "Try a QuillBrook engine on a recording"),
};

}  // namespace

int quillbrook_cli_recognize_register() {
  if (ast_cli_register_multiple(recognize_commands, std::size(recognize_commands)) == 0) {
    return 0;
  }
  quillbrook_cli_recognize_unregister();
  return -1;
}

void quillbrook_cli_recognize_unregister() {
  ast_cli_unregister_multiple(recognize_commands, std::size(recognize_commands));
}
