// One command of the host's command line: its words, its usage and what it prints.
#pragma once

#include "../support/guard.h"

struct CliCommand {
  const char *words;
  const char *usage;
  void (*report)(int fd);  // prints to a descriptor
};

// What the host calls for a command, on its command threads, at its registration, completion and execution. A further
// word behind a command gives its usage.
template <const CliCommand &Which>
char *handle_cli(ast_cli_entry *entry, int call, ast_cli_args *args) {
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
  if (args->argc != entry->args) {
    return CLI_SHOWUSAGE;
  }
  return guarded(Which.words, CLI_FAILURE, [args] {
    Which.report(args->fd);
    return CLI_SUCCESS;
  });
}
