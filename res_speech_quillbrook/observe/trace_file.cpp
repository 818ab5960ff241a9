#include "trace_file.h"

#include <dirent.h>

#include "../support/bounded_text.h"
#include "../support/printable.h"

namespace {

constexpr char kExtension[] = ".jsonl";
constexpr char kCut[] = "{\"what\":\"cut\"}\n";
// Bytes of the session's name in that of a file, and files of one name and moment.
constexpr size_t kNamePart = 100;
constexpr int kNamesTried = 100;

std::string file_name(const quillbrook_observed &who) {
  const timeval now = ast_tvnow();
  ast_tm local;
  ast_localtime(&now, &local, nullptr);
  char moment[40];
  snprintf(moment, sizeof(moment), "%04d%02d%02d-%02d%02d%02d.%03d_", local.tm_year + 1900, local.tm_mon + 1,
           local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(now.tv_usec / 1000));
  std::string name = moment;
  for (const char letter : who.session.substr(0, kNamePart)) {
    name += isascii(letter) && (isalnum(letter) || strchr("-_.", letter)) ? letter : '_';
  }
  return name;
}

bool is_trace(const char *name) {
  const size_t length = strlen(name);
  const size_t extension = sizeof(kExtension) - 1;
  return length > extension && strcmp(name + length - extension, kExtension) == 0;
}

int count_traces(const std::string &folder) {
  int count = 0;
  if (DIR *entries = opendir(folder.c_str())) {
    while (const dirent *entry = readdir(entries)) {
      count += is_trace(entry->d_name);
    }
    closedir(entries);
  }
  return count;
}

// One line as long as it stays as it is; all traces share it. Reporting thread.
void complain(const std::string &folder, const std::string &reason) {
  static char latest[kPrintableMax + 1];
  const Printable complaint(reason.empty() ? "" : folder + ": " + reason);
  if (!reason.empty() && strcmp(complaint.text(), latest) != 0) {
    ast_log(LOG_WARNING, "There is no new trace in %s\n", complaint.text());
  }
  copy_text(latest, complaint.text());
}

}  // namespace

// -1 and errno when there is none.
int TraceFile::create(int folder, const std::string &name) const {
  int descriptor = -1;
  for (int number = 1; number <= kNamesTried; ++number) {
    const std::string full = name + (number > 1 ? "-" + std::to_string(number) : "") + kExtension;
    constexpr mode_t kMode = 0600;  // it holds what callers say
    descriptor = openat(folder, full.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode);
    if (descriptor >= 0 || errno != EEXIST) {
      break;
    }
  }
  return descriptor;
}

void TraceFile::open(const quillbrook_observed &who, const std::string &line) {
  close();
  std::string reason;
  const int folder = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) {
    reason = strerror(errno);
  } else if (count_traces(folder_) >= kTracesMax) {
    reason = "it holds " + std::to_string(kTracesMax) + " traces, take some away";
  } else {
    descriptor_ = create(folder, file_name(who));
    reason = descriptor_ < 0 ? strerror(errno) : "";
  }
  if (folder >= 0) {
    ::close(folder);
  }
  complain(folder_, reason);
  written_ = 0;
  write(line);
}

void TraceFile::write(const std::string &line) {
  if (descriptor_ < 0) {
    return;
  }
  const bool cut = written_ + line.size() > kTraceBytesMax;
  const std::string text = cut ? kCut : line;
  // Lines are written whole or not at all, as far as the disk has room: it is a help, and nobody waits for it.
  if (::write(descriptor_, text.data(), text.size()) != static_cast<ssize_t>(text.size()) || cut) {
    close();
    return;
  }
  written_ += line.size();
}

void TraceFile::close() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
    descriptor_ = -1;
  }
}
