#include "text_file.h"

namespace {

int refusal(const struct stat &status, size_t most) {
  if (!S_ISREG(status.st_mode)) {
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  }
  return static_cast<size_t>(status.st_size) > most ? EFBIG : 0;
}

}  // namespace

FILE *open_regular_file(const char *filename, size_t most) {
  // Opening a FIFO waits for a writer unless told not to; reading a regular file does not care for the flag.
  const int descriptor = open(filename, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) {
    return nullptr;
  }
  struct stat status;
  int error = fstat(descriptor, &status) ? errno : refusal(status, most);
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
  FILE *file = open_regular_file(filename, kTextFileMax);
  if (!file) {
    return nullptr;
  }
  int error = EIO;
  char *text = nullptr;
  const long size = fseek(file, 0, SEEK_END) ? -1 : ftell(file);
  if (size >= 0 && !fseek(file, 0, SEEK_SET)) {
    text = host_alloc_text(static_cast<size_t>(size) + 1);
    error = text ? EIO : ENOMEM;
  }
  if (text && fread(text, 1, static_cast<size_t>(size), file) != static_cast<size_t>(size)) {
    ast_free(text);
    text = nullptr;
  }
  fclose(file);
  if (text) {
    text[size] = '\0';
  } else {
    errno = error;
  }
  return text;
}

std::string file_error_text(int error, size_t most) {
  std::string text = strerror(error);
  if (error == EFBIG) {
    text += " (more than " + std::to_string(most) + " bytes)";
  }
  return text;
}
