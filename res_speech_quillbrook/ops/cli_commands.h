// The module's commands on the host's command line. docs/operations.md shows what each prints.
#pragma once

#include "../host.h"

constexpr int kCliCommands = 5;

// Each prints to the descriptor of the caller; a further word behind a command gives its usage text.
extern ast_cli_entry cli_quillbrook[kCliCommands];

// Registers these, and what other files of this folder have. 0, or -1 when the host refused one; none is then left
// registered.
int quillbrook_cli_register();
void quillbrook_cli_unregister();
