#include "cli_configuration.h"

#include "../ops/cli_command.h"
#include "config_check.h"
#include "config_reload.h"

namespace {

void check_configuration_file(int fd) {
  const std::string path = configuration_in(ast_config_AST_CONFIG_DIR);
  std::istringstream report(report_of(path, check_configuration(path)));
  for (std::string line; std::getline(report, line);) {
    ast_cli(fd, "%s\n", line.c_str());
  }
}

constexpr CliCommand kCheck = {"quillbrook check configuration",
                               "Usage: quillbrook check configuration\n"
                               "       Say what is wrong with the configuration file, without reading it in.\n",
                               check_configuration_file};

void reload(int fd, bool anyway) {
  quillbrook_reload_configuration(anyway, [fd](const std::string &line) { ast_cli(fd, "%s\n", line.c_str()); });
}

void reload_checked_file(int fd) {
  reload(fd, false);
}

void reload_file_anyway(int fd) {
  reload(fd, true);
}

constexpr CliCommand kReload = {
    "quillbrook reload",
    "Usage: quillbrook reload\n"
    "       Read the configuration file again, for sessions that begin from now on. A file\n"
    "       with a mistake changes nothing.\n",
    reload_checked_file};
constexpr CliCommand kReloadAnyway = {"quillbrook reload anyway",
                                      "Usage: quillbrook reload anyway\n"
                                      "       As 'quillbrook reload', in spite of warnings.\n",
                                      reload_file_anyway};

constexpr auto *handle_cli_quillbrook_check = handle_cli<kCheck>;
constexpr auto *handle_cli_quillbrook_reload = handle_cli<kReload>;
constexpr auto *handle_cli_quillbrook_reload_anyway = handle_cli<kReloadAnyway>;

ast_cli_entry configuration_commands[] = {
    AST_CLI_DEFINE(handle_cli_quillbrook_check, "Check the QuillBrook configuration file"),
    AST_CLI_DEFINE(handle_cli_quillbrook_reload, "Read the QuillBrook configuration file again"),
    AST_CLI_DEFINE(handle_cli_quillbrook_reload_anyway, "Read it again in spite of warnings"),
};

}  // namespace

int quillbrook_cli_configuration_register() {
  if (ast_cli_register_multiple(configuration_commands, std::size(configuration_commands)) == 0) {
    return 0;
  }
  quillbrook_cli_configuration_unregister();
  return -1;
}

void quillbrook_cli_configuration_unregister() {
  ast_cli_unregister_multiple(configuration_commands, std::size(configuration_commands));
}
