// The file of one trace, JSON lines, in the folder that the key `trace` names. Of the reporting thread.
//
// Names come from sessions, and those from what others say: a name is a moment and the letters, digits, '-', '_' and
// '.' of the session's, so it cannot leave the folder. Files are new, for the PBX's user alone, and no link is
// followed.
#pragma once

#include "../host.h"

// Whose trace it is.
struct quillbrook_observed {
  std::string uniqueid, channel;  // of the call; may be empty
  std::string session, engine;
};

// Bytes of one file, and files of one folder. What is beyond is left out, and the file says so; a full folder gets no
// new file until some are taken away.
constexpr size_t kTraceBytesMax = size_t{1} << 20;
constexpr int kTracesMax = 1000;

class TraceFile {
public:
  explicit TraceFile(std::string folder) : folder_(std::move(folder)) {}
  ~TraceFile() { close(); }
  TraceFile(const TraceFile &) = delete;
  TraceFile &operator=(const TraceFile &) = delete;

  // Begins a new file with its first line, behind the end of the former one. A WARNING says when there can be none.
  void open(const quillbrook_observed &who, const std::string &line);

  // Appends a line to the open file, if there is one.
  void write(const std::string &line);

  void close();

private:
  int create(int folder, const std::string &name) const;

  const std::string folder_;
  int descriptor_ = -1;
  size_t written_ = 0;
};
