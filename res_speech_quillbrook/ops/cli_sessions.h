// The command "quillbrook show sessions".
#pragma once

#include "../host.h"

// The host calls it for the command at its registration, completion and execution. No lock that a call needs is held
// while it prints.
char *handle_cli_quillbrook_sessions(ast_cli_entry *entry, int call, ast_cli_args *args);
