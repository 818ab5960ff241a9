#include "../host.h"

#include "text_file.h"

FILE *open_regular_file(const char *filename) {
  // Opening a FIFO waits for a writer unless told not to; reading a regular file does not care for the flag.
  const int descriptor = open(filename, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) {
    return nullptr;
  }
  struct stat status;
  int error = fstat(descriptor, &status) ? errno : 0;
  if (!error && !S_ISREG(status.st_mode)) {
    error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  }
  FILE *file = nullptr;
  if (!error) {
    file = fdopen(descriptor, "rb");
    error = file ? 0 : errno;
  }
  if (!file) {
    close(descriptor);
    errno = error;
  }
  return file;
}

char *load_file_to_string(const char *filename) {
  FILE *file = open_regular_file(filename);
  if (!file) {
    return nullptr;
  }
  char *text = nullptr;
  long size = fseek(file, 0, SEEK_END) ? -1 : ftell(file);
  if (size >= 0 && !fseek(file, 0, SEEK_SET)) {
    text = host_alloc_text(static_cast<size_t>(size) + 1);
  }
  if (text && fread(text, 1, static_cast<size_t>(size), file) != static_cast<size_t>(size)) {
    ast_free(text);
    text = nullptr;
  }
  fclose(file);
  if (text) {
    text[size] = '\0';
  }
  return text;
}
