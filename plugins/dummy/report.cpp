#include "report.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>

namespace quillbrook::dummy {
namespace {

constexpr std::size_t kMaxShownBytes = 65536;

std::string shown(const char *text) {
  if (text == nullptr) return "(null)";
  std::string line;
  const std::size_t length = strnlen(text, kMaxShownBytes);
  for (std::size_t i = 0; i < length; ++i) {
    if (text[i] == '\n')
      line += "\\n";
    else if (text[i] == '\\')
      line += "\\\\";
    else
      line += text[i];
  }
  return line;
}

std::string shared(const int &field) {
  return std::to_string(__atomic_load_n(&field, __ATOMIC_ACQUIRE));
}

std::string bytes(const char *path) {
  struct stat info {};
  return path != nullptr && stat(path, &info) == 0 ? std::to_string(info.st_size) : "(none)";
}

using Record = quillbrook_context;

struct Field {
  std::string_view name;
  std::string (*value)(const Record &record, int answer);
};

constexpr std::array kFields{
    Field{"debug", [](const Record &r, int) { return std::to_string(r.debug); }},
    Field{"finalize", [](const Record &r, int) { return shared(r.finalize); }},
    Field{"hangup", [](const Record &r, int) { return shared(r.hangup); }},
    Field{"quantum", [](const Record &r, int) { return shared(r.quantum); }},
    Field{"speedvsaccuracy", [](const Record &r, int) { return std::to_string(r.speedvsaccuracy); }},
    Field{"completetimeout", [](const Record &r, int) { return shared(r.completetimeout); }},
    Field{"incompletetimeout", [](const Record &r, int) { return shared(r.incompletetimeout); }},
    Field{"maxspeechtimeout", [](const Record &r, int) { return std::to_string(r.maxspeechtimeout); }},
    Field{"earlyspeechtimeout", [](const Record &r, int) { return std::to_string(r.earlyspeechtimeout); }},
    Field{"minspeechtimeout", [](const Record &r, int) { return std::to_string(r.minspeechtimeout); }},
    Field{"configuration", [](const Record &r, int) { return shown(r.configuration); }},
    Field{"model", [](const Record &r, int) { return shown(r.model); }},
    Field{"language", [](const Record &r, int) { return shown(r.language); }},
    Field{"voice", [](const Record &r, int) { return shown(r.voice); }},
    Field{"profile", [](const Record &r, int) { return shown(r.profile); }},
    Field{"param", [](const Record &r, int) { return shown(r.param); }},
    Field{"context", [](const Record &r, int) { return shown(r.context); }},
    Field{"extra", [](const Record &r, int) { return shown(r.extra); }},
    Field{"phrases", [](const Record &r, int) { return shown(r.phrases); }},
    Field{"buffer_size", [](const Record &r, int) { return std::to_string(r.buffer_size); }},
    Field{"uniqueid", [](const Record &r, int) { return shown(r.uniqueid); }},
    Field{"mark", [](const Record &r, int) { return shown(r.mark); }},
    Field{"direction", [](const Record &r, int) { return std::to_string(r.direction); }},
    Field{"silence", [](const Record &r, int) { return r.silence != nullptr ? shared(*r.silence) : "(null)"; }},
    Field{"filename", [](const Record &r, int) { return shown(r.filename); }},
    Field{"bytes", [](const Record &r, int) { return bytes(r.filename); }},
    Field{"format", [](const Record &r, int) { return shown(r.format); }},
    Field{"config_pointer", [](const Record &r, int) { return shown(static_cast<const char *>(r.config_pointer)); }},
    Field{"interims", [](const Record &r, int) { return std::to_string(r.interims); }},
    Field{"filelog", [](const Record &r, int) { return std::string(r.filelog != nullptr ? "open" : "(null)"); }},
    Field{"answer", [](const Record &, int answer) { return std::to_string(answer); }},
};

std::string line(const Field &field, const Record &record, int answer) {
  return std::string(field.name) + '=' + field.value(record, answer) + '\n';
}

}  // namespace

std::string describe(const quillbrook_context &context, std::string_view names, int answer) {
  std::string lines;
  if (names.empty()) {
    for (const Field &field : kFields) lines += line(field, context, answer);
    return lines;
  }
  while (!names.empty()) {
    const std::string_view name = names.substr(0, names.find(' '));
    names.remove_prefix(name.size() < names.size() ? name.size() + 1 : name.size());
    if (name.empty()) continue;
    bool found = false;
    for (const Field &field : kFields) {
      if (field.name != name) continue;
      lines += line(field, context, answer);
      found = true;
    }
    if (!found) lines += std::string(name) + "?\n";
  }
  return lines;
}

void append(const std::string &path, std::string_view text) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (file < 0) return;
  // One write, so that lines of calls that share a file do not mix. A disk that takes only part of it loses the rest.
  [[maybe_unused]] const ssize_t written = write(file, text.data(), text.size());
  (void)close(file);
}

}  // namespace quillbrook::dummy
