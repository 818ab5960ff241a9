#include "grammar_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace quillbrook::jsgf {

namespace {

class File {
public:
  explicit File(int descriptor) : descriptor_(descriptor) {}
  ~File() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  File(const File &) = delete;
  File &operator=(const File &) = delete;

  void replace(int descriptor) {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
    descriptor_ = descriptor;
  }
  int descriptor() const { return descriptor_; }
  bool is_open() const { return descriptor_ >= 0; }

private:
  int descriptor_;
};

[[noreturn]] void fail(const std::string &path, const std::string &reason) {
  throw std::runtime_error("cannot read " + path + ": " + reason);
}

[[noreturn]] void fail_with(const std::string &path, int error) {
  fail(path, error == ELOOP ? "it is a symbolic link, or behind one" : std::generic_category().message(error));
}

std::string read_file(int descriptor, const std::string &path, size_t most) {
  std::string content;
  char block[16384];
  for (;;) {
    const ssize_t got = pread(descriptor, block, sizeof block, static_cast<off_t>(content.size()));
    if (got < 0 && errno != EINTR) {
      fail_with(path, errno);
    }
    if (got == 0) {
      return content;
    }
    content.append(block, got < 0 ? 0 : static_cast<size_t>(got));
    if (content.size() > most) {
      fail(path, "all files together are larger than a grammar may be");
    }
  }
}

}  // namespace

std::string path_of_grammar(std::string_view name) {
  std::string path(name);
  if (path.find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
    return "";
  }
  std::replace(path.begin(), path.end(), '.', '/');
  return path + ".jsgf";
}

std::string package_root(const std::string &folder, std::string_view grammar_name) {
  std::string root = folder;
  std::string_view package = grammar_name;
  while (package.find('.') != std::string_view::npos) {
    package = package.substr(0, package.rfind('.'));
    const std::string_view last = package.substr(package.rfind('.') + 1);
    while (root.size() > 1 && root.back() == '/') {
      root.pop_back();
    }
    const size_t slash = root.rfind('/');
    if (root.substr(slash + 1) != last) {
      return folder;
    }
    root.resize(slash == std::string::npos ? 0 : std::max<size_t>(slash, 1));
  }
  return root;
}

std::optional<std::string> read_below(const std::string &folder, const std::string &path, size_t most) {
  const std::string whole = folder + "/" + path;
  const auto is_missing = [&] {
    if (errno != ENOENT && errno != ENOTDIR) {
      fail_with(whole, errno);
    }
    return true;
  };
  File at(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  size_t begin = 0;
  for (size_t slash = path.find('/'); at.is_open() && slash != std::string::npos; slash = path.find('/', begin)) {
    at.replace(openat(at.descriptor(), path.substr(begin, slash - begin).c_str(),
                      O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    begin = slash + 1;
  }
  if (at.is_open()) {
    at.replace(openat(at.descriptor(), path.substr(begin).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  }
  if (!at.is_open() && is_missing()) {
    return std::nullopt;
  }
  struct stat facts {};
  if (fstat(at.descriptor(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
    fail(whole, "it is no regular file");
  }
  return read_file(at.descriptor(), whole, most);
}

}  // namespace quillbrook::jsgf
