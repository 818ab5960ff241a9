// Whole files as texts.
#pragma once

#include <cstdio>

// Opens a file for reading; the caller closes it with fclose. Null, with errno, when it cannot be opened or is no
// regular file: paths come from the dialplan, and a FIFO or a device would hold a call up for ever.
FILE *open_regular_file(const char *filename);

// The content of a regular file as a terminated string that the caller releases with ast_free, or null on any failure,
// without a message. A zero byte in the file ends the string for who reads it as one.
char *load_file_to_string(const char *filename);
