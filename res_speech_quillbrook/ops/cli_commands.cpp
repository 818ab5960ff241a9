#include "cli_commands.h"

#include "../support/guard.h"
#include "cli_plugins.h"
#include "cli_statistics.h"
#include "cli_version.h"
#include "statistics.h"

namespace {

constexpr int kWordsOfACommand = 3;

struct Command {
  const char *words;
  const char *usage;
  void (*report)(int fd);  // prints to a descriptor
};

// What the host calls for a command, on its command threads, at its registration, completion and execution.
template <const Command &Which>
char *handle(ast_cli_entry *entry, int call, ast_cli_args *args) {
  switch (call) {
    case CLI_INIT:
      // The host copies the words when it registers the entry, and writes to the copy only.
      entry->command = const_cast<char *>(Which.words);
      entry->usage = Which.usage;
      return nullptr;
    case CLI_GENERATE:
      return nullptr;
    default:
      break;
  }
  if (args->argc != kWordsOfACommand) {
    return CLI_SHOWUSAGE;
  }
  return guarded(Which.words, CLI_FAILURE, [args] {
    Which.report(args->fd);
    return CLI_SUCCESS;
  });
}

void reset_statistics(int fd) {
  quillbrook_statistics_reset();
  ast_cli(fd, "QuillBrook statistics reset\n");
}

constexpr Command kShowVersion = {"quillbrook show version",
                                  "Usage: quillbrook show version\n"
                                  "       Display QuillBrook module version and build information.\n",
                                  quillbrook_cli_show_version};
constexpr Command kShowPlugins = {"quillbrook show plugins",
                                  "Usage: quillbrook show plugins\n"
                                  "       Display loaded QuillBrook plugins and their active configuration.\n",
                                  quillbrook_cli_show_plugins};
constexpr Command kShowStatistics = {"quillbrook show statistics",
                                     "Usage: quillbrook show statistics\n"
                                     "       Display QuillBrook session and transcription statistics.\n",
                                     quillbrook_cli_show_statistics};
constexpr Command kShowDates = {"quillbrook show dates",
                                "Usage: quillbrook show dates\n"
                                "       Display QuillBrook activity dates.\n",
                                quillbrook_cli_show_dates};
constexpr Command kReset = {"quillbrook reset statistics",
                            "Usage: quillbrook reset statistics\n"
                            "       Reset QuillBrook counters while preserving the active session count.\n",
                            reset_statistics};

constexpr auto *handle_cli_quillbrook_version = handle<kShowVersion>;
constexpr auto *handle_cli_quillbrook_plugins = handle<kShowPlugins>;
constexpr auto *handle_cli_quillbrook_statistics = handle<kShowStatistics>;
constexpr auto *handle_cli_quillbrook_dates = handle<kShowDates>;
constexpr auto *handle_cli_quillbrook_reset_statistics = handle<kReset>;

}  // namespace

ast_cli_entry cli_quillbrook[kCliCommands] = {
    AST_CLI_DEFINE(handle_cli_quillbrook_version, "Show QuillBrook version"),
    AST_CLI_DEFINE(handle_cli_quillbrook_plugins, "Show QuillBrook loaded plugins"),
    AST_CLI_DEFINE(handle_cli_quillbrook_statistics, "Show QuillBrook statistics"),
    AST_CLI_DEFINE(handle_cli_quillbrook_dates, "Show QuillBrook dates"),
    AST_CLI_DEFINE(handle_cli_quillbrook_reset_statistics, "Reset QuillBrook statistics"),
};

int quillbrook_cli_register() {
  if (ast_cli_register_multiple(cli_quillbrook, kCliCommands) == 0) {
    return 0;
  }
  quillbrook_cli_unregister();
  return -1;
}

void quillbrook_cli_unregister() {
  ast_cli_unregister_multiple(cli_quillbrook, kCliCommands);
}
