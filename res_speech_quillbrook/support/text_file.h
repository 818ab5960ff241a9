// Whole files as texts. They have limits, because paths come from the dialplan: a wrong one must not take the memory of
// the PBX.
#pragma once

#include "../host.h"

// Largest phrase lists and configuration files, and largest grammars, in bytes. The grammar library has the same limit.
constexpr size_t kTextFileMax = size_t{1} << 20;
constexpr size_t kGrammarFileMax = size_t{128} << 20;

// Opens a file for reading; the caller closes it with fclose. Null, with errno, when it cannot be opened, when it is no
// regular file, since a FIFO or a device would hold a call up for ever, and when it has more than `most` bytes (EFBIG).
FILE *open_regular_file(const char *filename, size_t most);

// The content of a regular file of kTextFileMax bytes at most as a terminated string that the caller releases with
// ast_free, or null, with errno, on any failure, without a message. A zero byte in the file ends the string for who
// reads it as one.
char *load_file_to_string(const char *filename);

// What the system says of an errno of these functions, with the limit when that is what it is about.
std::string file_error_text(int error, size_t most);
