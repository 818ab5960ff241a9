// Commands of the host's own command line, run from inside the module.
#pragma once

// Runs `command` on the calling thread and puts what it printed into `result`, without terminal colours; nothing else
// is trimmed. `result` has room for `max` bytes; output of `max` bytes or more is dropped whole. A `command` without a
// blank has its underscores replaced by blanks in place, so it has to be writable.
//
// 0 when the output was captured, also when the host refused the command (`result` is then empty); -1 when it did not
// fit or could not be read. Blocks until the command has finished.
int cli(char *command, char *result, int max);
