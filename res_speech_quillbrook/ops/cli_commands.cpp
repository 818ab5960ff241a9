#include "cli_commands.h"

#include "cli_command.h"
#include "cli_plugins.h"
#include "cli_sessions.h"
#include "cli_statistics.h"
#include "cli_version.h"
#include "statistics.h"

namespace {

void reset_statistics(int fd) {
  quillbrook_statistics_reset();
  ast_cli(fd, "QuillBrook statistics reset\n");
}

constexpr CliCommand kShowVersion = {"quillbrook show version",
                                     "Usage: quillbrook show version\n"
                                     "       Display QuillBrook module version and build information.\n",
                                     quillbrook_cli_show_version};
constexpr CliCommand kShowPlugins = {"quillbrook show plugins",
                                     "Usage: quillbrook show plugins\n"
                                     "       Display loaded QuillBrook plugins and their active configuration.\n",
                                     quillbrook_cli_show_plugins};
constexpr CliCommand kShowStatistics = {"quillbrook show statistics",
                                        "Usage: quillbrook show statistics\n"
                                        "       Display QuillBrook session and transcription statistics.\n",
                                        quillbrook_cli_show_statistics};
constexpr CliCommand kShowDates = {"quillbrook show dates",
                                   "Usage: quillbrook show dates\n"
                                   "       Display QuillBrook activity dates.\n",
                                   quillbrook_cli_show_dates};
constexpr CliCommand kReset = {"quillbrook reset statistics",
                               "Usage: quillbrook reset statistics\n"
                               "       Reset QuillBrook counters while preserving the active session count.\n",
                               reset_statistics};

constexpr auto *handle_cli_quillbrook_version = handle_cli<kShowVersion>;
constexpr auto *handle_cli_quillbrook_plugins = handle_cli<kShowPlugins>;
constexpr auto *handle_cli_quillbrook_statistics = handle_cli<kShowStatistics>;
constexpr auto *handle_cli_quillbrook_dates = handle_cli<kShowDates>;
constexpr auto *handle_cli_quillbrook_reset_statistics = handle_cli<kReset>;

ast_cli_entry further_commands[] = {
    AST_CLI_DEFINE(handle_cli_quillbrook_sessions, "Show QuillBrook sessions"),
};

}  // namespace

ast_cli_entry cli_quillbrook[kCliCommands] = {
    AST_CLI_DEFINE(handle_cli_quillbrook_version, "Show QuillBrook version"),
    AST_CLI_DEFINE(handle_cli_quillbrook_plugins, "Show QuillBrook loaded plugins"),
    AST_CLI_DEFINE(handle_cli_quillbrook_statistics, "Show QuillBrook statistics"),
    AST_CLI_DEFINE(handle_cli_quillbrook_dates, "Show QuillBrook dates"),
    AST_CLI_DEFINE(handle_cli_quillbrook_reset_statistics, "Reset QuillBrook statistics"),
};

int quillbrook_cli_register() {
  if (ast_cli_register_multiple(cli_quillbrook, kCliCommands) == 0 &&
      ast_cli_register_multiple(further_commands, std::size(further_commands)) == 0) {
    return 0;
  }
  quillbrook_cli_unregister();
  return -1;
}

void quillbrook_cli_unregister() {
  ast_cli_unregister_multiple(further_commands, std::size(further_commands));
  ast_cli_unregister_multiple(cli_quillbrook, kCliCommands);
}
