// Whole files as texts.
#ifndef QUILLBROOK_SUPPORT_TEXT_FILE_H
#define QUILLBROOK_SUPPORT_TEXT_FILE_H

// The content of a file as a terminated string that the caller releases with ast_free, or null on any failure, without
// a message. A zero byte in the file ends the string for who reads it as one.
char *load_file_to_string(const char *filename);

#endif
