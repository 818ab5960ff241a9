#include "../host.h"

#include "cli.h"
#include "log.h"
#include "own_files.h"
#include "printable.h"

namespace {

// The file that the host writes a command's output to, gone with this object.
class CaptureFile {
public:
  CaptureFile() : fd_(mkstemp(template_file_)) {}
  ~CaptureFile() {
    if (fd_ >= 0) {
      close(fd_);
      quillbrook_remove_file(template_file_);
    }
  }
  CaptureFile(const CaptureFile &) = delete;
  CaptureFile &operator=(const CaptureFile &) = delete;

  int fd() const { return fd_; }

private:
  char template_file_[2048] = "/tmp/cli-XXXXXX";
  int fd_;
};

void underscores_to_blanks(char *command) {
  if (!strchr(command, ' ')) {
    std::replace(command, command + strlen(command), '_', ' ');
  }
}

// Reads `size` bytes from the start of the file. False when the system reports an error.
bool read_all(int fd, char *buffer, size_t size) {
  if (lseek(fd, 0, SEEK_SET) < 0) {
    return false;
  }
  size_t done = 0;
  while (done < size) {
    const ssize_t got = read(fd, buffer + done, size - done);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      return false;
    }
    if (got == 0) {
      break;
    }
    done += static_cast<size_t>(got);
  }
  return true;
}

// Puts what the file holds into `result`, without colours.
int read_back(int fd, char *result, int max) {
  const off_t l = lseek(fd, 0, SEEK_END);
  if (l < 0 || l >= max) {
    return -1;
  }
  const auto size = static_cast<size_t>(l);
  auto *buf = static_cast<char *>(ast_calloc(1, size + 1));
  if (!buf) {
    return -1;
  }
  int res = 0;
  if (!read_all(fd, buf, size)) {
    ast_log(LOG_WARNING, "read() failed: %s\n", strerror(errno));
    res = -1;
  }
  // Stripping writes no terminator behind a colour sequence that is cut off.
  memset(result, 0, size + 1);
  term_strip(result, buf, static_cast<int>(size));
  trace_always("  == Result CLI : %s\n", Printable(result[0] ? result : buf).text());
  ast_free(buf);
  return res;
}

}  // namespace

int cli(char *command, char *result, int max) {
  underscores_to_blanks(command);
  trace_always("  == Executing CLI(%s)\n", command);
  const CaptureFile capture;
  result[0] = '\0';
  if (capture.fd() < 0) {
    ast_log(LOG_WARNING, "mkstemp() failed: %s\n", strerror(errno));
    return -1;
  }
  if (ast_cli_command_full(-1, -1, capture.fd(), command) != 0) {
    return 0;
  }
  return read_back(capture.fd(), result, max);
}
