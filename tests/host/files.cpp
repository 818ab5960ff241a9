// The module's files, kept apart in a folder of this process, and the host's file streams on them.
#include <dirent.h>

#include <filesystem>

#include "state.h"

extern "C" {
int __real_open(const char *path, int flags, ...);
FILE *__real_fopen(const char *path, const char *mode);
int __real_stat(const char *path, struct stat *status);
int __real_access(const char *path, int mode);
int __real_lstat(const char *path, struct stat *status);
DIR *__real_opendir(const char *path);
int __real_rename(const char *from, const char *to);
int __real_unlink(const char *path);
int __real_mkstemp(char *pattern);
FILE *__real_fdopen(int descriptor, const char *mode);
int __real_fstat(int descriptor, struct stat *status);
ssize_t __real_read(int descriptor, void *buffer, size_t size);
off_t __real_lseek(int descriptor, off_t offset, int whence);
size_t __real_fread(void *buffer, size_t size, size_t count, FILE *file);
int __real_fflush(FILE *file);
int __real_fclose(FILE *file);
}

namespace stand_in {

const std::string &sandbox() {
  static const std::string kFolder = [] {
    char pattern[] = "/tmp/stand_in_XXXXXX";
    std::string made = mkdtemp(pattern) ? pattern : "/nowhere";
    std::filesystem::create_directories(made + "/tmp");
    std::filesystem::create_directories(made + "/etc/asterisk");
    return made;
  }();
  return kFolder;
}
void remove_sandbox() { std::filesystem::remove_all(sandbox()); }
void reset_files() {
  for (const char *folder : {"/tmp", "/etc/asterisk"}) {
    for (const auto &entry : std::filesystem::directory_iterator(sandbox() + folder)) {
      std::filesystem::remove_all(entry.path());
    }
  }
}

namespace {

// The file is made, and the descriptor given has no room.
int open_full(const std::string &path, int flags) {
  close(__real_open(path.c_str(), flags, 0600));
  return __real_open("/dev/full", O_WRONLY);
}

}  // namespace

std::string real_path(const std::string &path) {
  for (const char *prefix :
       {"/tmp/quillbrook_", "/tmp/quillbrook2_", "/tmp/quillbrook.", "/tmp/cli-", "/etc/asterisk/"}) {
    if (path.rfind(prefix, 0) == 0) return sandbox() + path;
  }
  return path;
}

std::vector<std::string> files() {
  std::vector<std::string> paths;
  for (const auto &entry : std::filesystem::directory_iterator(sandbox() + "/tmp")) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("quillbrook.", 0) != 0) paths.push_back("/tmp/" + name);
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}
bool file_exists(const std::string &path) { return access(real_path(path).c_str(), F_OK) == 0; }
std::string file_content(const std::string &path) {
  std::ifstream file(real_path(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
void write_file(const std::string &path, const std::string &content) {
  std::ofstream(real_path(path), std::ios::binary) << content;
}

namespace {

constexpr char kWavHeader[44] = "RIFF\0\0\0\0WAVEfmt ";
constexpr int kFrameBytes = 320;

struct Stream : ast_filestream {
  bool ulaw;
};

// Null for a type that the stand-in, like the host, has no format for.
Stream *open_stream(const char *filename, const char *type, int flags, mode_t permissions, const char *mode) {
  const std::string kind = type;
  if (kind != "wav" && kind != "ulaw") {
    ast_log(LOG_WARNING, "No such format '%s'\n", type);
    return nullptr;
  }
  const std::string path = real_path(std::string(filename) + "." + kind);
  int descriptor = __real_open(path.c_str(), flags, permissions);
  if (descriptor < 0) return nullptr;
  if (fails(Fault::kWrite) && flags != O_RDONLY) {
    close(descriptor);
    descriptor = __real_open("/dev/full", O_WRONLY);
  }
  auto *stream = new Stream{};
  stream->f = fdopen(descriptor, mode);
  stream->ulaw = kind == "ulaw";
  return stream;
}

}  // namespace
}  // namespace stand_in

using namespace stand_in;

extern "C" {

int __wrap_open(const char *path, int flags, ...) {
  const bool denied = fails(Fault::kOpen);
  const Outside outside;
  va_list arguments;
  va_start(arguments, flags);
  mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (denied) return -1;
  return fails(Fault::kWrite) ? open_full(real_path(path), flags) : __real_open(real_path(path).c_str(), flags, mode);
}
FILE *__wrap_fopen(const char *path, const char *mode) {
  const Outside outside;
  return fails(Fault::kOpen) ? nullptr : __real_fopen(real_path(path).c_str(), mode);
}
int __wrap_stat(const char *path, struct stat *status) {
  if (fails(Fault::kPoll)) {
    errno = EIO;
    return -1;
  }
  if (fails_inside(Fault::kStat)) return -1;
  const Outside outside;
  return __real_stat(real_path(path).c_str(), status);
}
int __wrap_access(const char *path, int mode) {
  const Outside outside;
  return __real_access(real_path(path).c_str(), mode);
}
int __wrap_lstat(const char *path, struct stat *status) {
  if (fails_inside(Fault::kStat)) return -1;
  const Outside outside;
  return __real_lstat(real_path(path).c_str(), status);
}
DIR *__wrap_opendir(const char *path) {
  if (fails_inside(Fault::kOpen)) return nullptr;
  const Outside outside;
  return __real_opendir(path == std::string("/tmp") ? (sandbox() + path).c_str() : path);
}
int __wrap_rename(const char *from, const char *to) {
  const Outside outside;
  return fails(Fault::kRename) ? -1 : __real_rename(real_path(from).c_str(), real_path(to).c_str());
}
int __wrap_unlink(const char *path) {
  if (fails_inside(Fault::kUnlink)) return -1;
  const Outside outside;
  return __real_unlink(real_path(path).c_str());
}
FILE *__wrap_fdopen(int descriptor, const char *mode) {
  return fails_inside(Fault::kDescriptor) ? nullptr : __real_fdopen(descriptor, mode);
}
int __wrap_fstat(int descriptor, struct stat *status) {
  return fails_inside(Fault::kStat) ? -1 : __real_fstat(descriptor, status);
}
ssize_t __wrap_read(int descriptor, void *buffer, size_t size) {
  return fails_inside(Fault::kRead) ? -1 : __real_read(descriptor, buffer, size);
}
off_t __wrap_lseek(int descriptor, off_t offset, int whence) {
  return fails_inside(Fault::kRead) ? -1 : __real_lseek(descriptor, offset, whence);
}
// The file takes note of the failure, as the module may ask it.
size_t __wrap_fread(void *buffer, size_t size, size_t count, FILE *file) {
  if (!fails_inside(Fault::kRead)) return __real_fread(buffer, size, count, file);
  const int reason = errno, unreadable = __real_open("/dev/null", O_WRONLY);
  dup2(unreadable, fileno(file));
  close(unreadable);
  const size_t got = __real_fread(buffer, size, count, file);
  errno = reason;
  return got;
}
int __wrap_fflush(FILE *file) { return fails_inside(Fault::kFlush) ? EOF : __real_fflush(file); }
int __wrap_fclose(FILE *file) {
  const int result = __real_fclose(file);
  return fails_inside(Fault::kFlush) ? EOF : result;
}
int __wrap_mkstemp(char *pattern) {
  const Outside outside;
  if (fails(Fault::kTemporaryFile)) return -1;
  std::string real = real_path(pattern);
  const int descriptor = __real_mkstemp(real.data());
  strcpy(pattern + strlen(pattern) - 6, real.c_str() + real.size() - 6);
  return descriptor;
}

// As in the host, only O_APPEND keeps what is there.
struct ast_filestream *ast_writefile(const char *filename, const char *type, const char *, int flags, int,
                                     mode_t permissions) {
  const Outside outside;
  note("ast_writefile");
  flags |= O_WRONLY | O_CREAT | (flags & O_APPEND ? 0 : O_TRUNC);
  Stream *stream = fails(Fault::kWriteStream) ? nullptr : open_stream(filename, type, flags, permissions, "wb");
  if (stream && !stream->ulaw) {
    fwrite(kWavHeader, 1, sizeof(kWavHeader), stream->f);
    fflush(stream->f);
  }
  return stream;
}
int ast_closestream(struct ast_filestream *stream) {
  const Outside outside;
  note("ast_closestream");
  fclose(stream->f);
  delete static_cast<Stream *>(stream);
  return 0;
}
// Of signed linear samples a mu-law file gets the upper byte.
int ast_writestream(struct ast_filestream *stream, struct ast_frame *frame) {
  const Outside outside;
  if (fails(Fault::kFrame)) return -1;
  const char *bytes = static_cast<const char *>(frame->data.ptr);
  if (!static_cast<Stream *>(stream)->ulaw) {
    return fwrite(bytes, 1, frame->datalen, stream->f) == static_cast<size_t>(frame->datalen) ? 0 : -1;
  }
  for (int sample = 0; sample < frame->samples; ++sample) fputc(bytes[2 * sample + 1], stream->f);
  return 0;
}

// Reading, which the tests do with WAV only. Places are in samples, behind the header.
struct ast_filestream *ast_readfile(const char *filename, const char *type, const char *, int, int, mode_t mode) {
  const Outside outside;
  note("ast_readfile");
  // The host takes it for one to be written then.
  if (mode) ast_log(LOG_WARNING, "Unable to set write file size\n");
  Stream *stream = fails(Fault::kReadStream) ? nullptr : open_stream(filename, type, O_RDONLY, 0, "rb");
  if (stream) ast_seekstream(stream, 0, SEEK_SET);
  return stream;
}
int ast_seekstream(struct ast_filestream *stream, off_t samples, int whence) {
  return fseek(stream->f, 2 * samples + (whence == SEEK_SET ? sizeof(kWavHeader) : 0), whence);
}
off_t ast_tellstream(struct ast_filestream *stream) { return (ftell(stream->f) - sizeof(kWavHeader)) / 2; }
int ast_stream_rewind(struct ast_filestream *stream, off_t milliseconds) {
  return ast_seekstream(stream, std::max<off_t>(0, ast_tellstream(stream) - milliseconds * 8), SEEK_SET);
}
struct ast_frame *ast_readframe(struct ast_filestream *stream) {
  auto *frame = static_cast<ast_frame *>(calloc(1, sizeof(ast_frame) + AST_FRIENDLY_OFFSET + kFrameBytes));
  frame->frametype = AST_FRAME_VOICE;
  frame->subclass.format = ast_format_slin;
  frame->data.ptr = reinterpret_cast<char *>(frame + 1) + AST_FRIENDLY_OFFSET;
  frame->datalen = static_cast<int>(fread(frame->data.ptr, 1, kFrameBytes, stream->f));
  frame->samples = frame->datalen / 2;
  if (frame->datalen > 0) return frame;
  free(frame);
  return nullptr;
}
void ast_frame_free(struct ast_frame *frame, int) { free(frame); }

}  // extern "C"
