// Result files: their names, and how they are written.
#pragma once

#include "../host.h"

// Bytes for the path of a result file, its zero included.
constexpr size_t kResultPathSize = 100;

// "/tmp/quillbrook_NAME_NUMBER.EXTENSION", or without a number. A session's name may hold a tag from outside: bytes
// that do not belong into a file name become '_', and a name that is too long is cut, so that number and extension
// stay whole.
void quillbrook_result_path(char (&path)[kResultPathSize], const char *name, int number, const char *extension);
void quillbrook_result_path(char (&path)[kResultPathSize], const char *name, const char *extension);

// Creates the file; null, with errno, when it cannot be created. What stands there is removed first, unless files are
// to be kept, and nothing is opened that is there then, so that a link planted in /tmp does no harm.
FILE *quillbrook_create_result_file(const char *path, bool keep);

// Closes the file. False, with errno, and the file is removed, when anything could not be written.
bool quillbrook_finish_result_file(FILE *file, const char *path);

// Removes a file of these functions, if it is there.
void quillbrook_remove_result_file(const char *path);

// Creates the file and has `write(file)` fill it. False, with errno, when that fails anywhere; no file is left then.
template <typename Write>
bool quillbrook_write_result_file(const char *path, bool keep, Write &&write) {
  FILE *file = quillbrook_create_result_file(path, keep);
  if (!file) {
    return false;
  }
  write(file);
  return quillbrook_finish_result_file(file, path);
}
