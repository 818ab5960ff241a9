#include "cli_configuration.h"

#include "../ops/cli_command.h"
#include "config_check.h"

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

constexpr auto *handle_cli_quillbrook_check = handle_cli<kCheck>;

ast_cli_entry configuration_commands[] = {
    AST_CLI_DEFINE(handle_cli_quillbrook_check, "Check the QuillBrook configuration file"),
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
