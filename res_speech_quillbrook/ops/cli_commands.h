// The module's commands on the host's command line. docs/operations.md shows what each prints.
#ifndef QUILLBROOK_OPS_CLI_COMMANDS_H
#define QUILLBROOK_OPS_CLI_COMMANDS_H

#include "../host.h"

constexpr int QUILLBROOK_CLI_COMMANDS = 5;
extern ast_cli_entry cli_quillbrook[QUILLBROOK_CLI_COMMANDS];

// Handlers, on the host's command threads. They print to the descriptor of the caller; a further word behind the
// command gives the usage text.
char *handle_cli_quillbrook_version(ast_cli_entry *entry, int command, ast_cli_args *args);
char *handle_cli_quillbrook_plugins(ast_cli_entry *entry, int command, ast_cli_args *args);
char *handle_cli_quillbrook_statistics(ast_cli_entry *entry, int command, ast_cli_args *args);
char *handle_cli_quillbrook_dates(ast_cli_entry *entry, int command, ast_cli_args *args);
char *handle_cli_quillbrook_reset_statistics(ast_cli_entry *entry, int command, ast_cli_args *args);

// Registers all commands. 0, or -1 when the host refused one; none is then left registered.
int quillbrook_cli_register();
void quillbrook_cli_unregister();

#endif
