#include "result_file.h"

#include "../support/bounded_text.h"
#include "../support/own_files.h"

namespace {

constexpr char kPrefix[] = "/tmp/quillbrook_";

bool belongs_into_file_name(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c > 0x7F;
}

void build_path(char (&path)[kResultPathSize], const char *name, const char *suffix) {
  constexpr size_t kPrefixLength = sizeof(kPrefix) - 1;
  memcpy(path, kPrefix, kPrefixLength);
  char *target = path + kPrefixLength;
  copy_text(target, sizeof(path) - kPrefixLength - strlen(suffix), name);
  for (; *target; ++target) {
    if (!belongs_into_file_name(static_cast<unsigned char>(*target))) {
      *target = '_';
    }
  }
  memcpy(target, suffix, strlen(suffix) + 1);
}

}  // namespace

void quillbrook_result_path(char (&path)[kResultPathSize], const char *name, int number, const char *extension) {
  char suffix[24];
  snprintf(suffix, sizeof(suffix), "_%d.%s", number, extension);
  build_path(path, name, suffix);
}

void quillbrook_result_path(char (&path)[kResultPathSize], const char *name, const char *extension) {
  char suffix[24];
  snprintf(suffix, sizeof(suffix), ".%s", extension);
  build_path(path, name, suffix);
}

FILE *quillbrook_create_result_file(const char *path, bool keep) {
  quillbrook_claim_file(path, keep);
  if (!keep) {
    unlink(path);
  }
  const int descriptor = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  FILE *file = descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
  const int error = errno;
  if (descriptor >= 0 && !file) {
    close(descriptor);
    unlink(path);
  }
  if (!file) {
    quillbrook_disclaim_file(path);
    errno = error;
  }
  return file;
}

void quillbrook_remove_result_file(const char *path) {
  quillbrook_remove_file(path);
  quillbrook_disclaim_file(path);
}

bool quillbrook_finish_result_file(FILE *file, const char *path) {
  const bool written = !ferror(file);
  if (fclose(file) == 0 && written) {
    return true;
  }
  const int error = errno;
  quillbrook_remove_result_file(path);
  errno = error;
  return false;
}
