#include "../host.h"

#include "config_file.h"

#include <glob.h>

#include "../support/text_file.h"

namespace {

constexpr int kDeepestInclude = 10;  // as the host
constexpr int kMostFiles = 1000;     // read for one check: a file may include itself, and that more than once

std::string_view stripped(std::string_view text) {
  constexpr char kBlanks[] = " \t\r\n\v\f";
  const size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

class Reader {
public:
  Reader(std::string folder, std::vector<ConfigFinding> &findings) : folder_(std::move(folder)), findings_(findings) {}

  // False when the file cannot be opened.
  bool read(const std::string &path) {
    struct stat status;
    std::ifstream stream;
    if (++files_ > kMostFiles) {
      return false;
    }
    if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      stream.open(path);
    }
    if (!stream.is_open()) {
      return false;
    }
    const ConfigPlace outer = std::exchange(place_, {path.substr(path.rfind('/') + 1), 0});
    ++depth_;
    std::istringstream content(content_of(stream));
    for (std::string line; std::getline(content, line);) {
      ++place_.line;
      take_line(stripped(without_comments(line)));
    }
    in_comment_ = false;
    --depth_;
    place_ = outer;
    return true;
  }

  ConfigFile take() { return std::move(file_); }

private:
  void say(bool fatal, const std::string &text) { findings_.push_back({place_, fatal, text}); }

  // Empty when the files make more than the limit together: a wrong one must not take the memory of the PBX.
  std::string content_of(std::ifstream &stream) {
    std::string content;
    char block[4096];
    do {
      stream.read(block, sizeof(block));
      content.append(block, static_cast<size_t>(stream.gcount()));
    } while (stream && content.size() <= room_);
    if (content.size() > room_) {
      say(true, "the configuration has more than " + std::to_string(kTextFileMax) + " bytes from here on");
      content.clear();
    }
    room_ -= content.size();
    return content;
  }

  // A semicolon begins a comment, ";--" one that goes on to "--;", and "\;" is a semicolon.
  std::string without_comments(const std::string &line) {
    std::string kept;
    for (size_t at = 0; at < line.size(); ++at) {
      if (in_comment_) {
        if (line.compare(at, 3, "--;") == 0) {
          in_comment_ = false;
          at += 2;
        }
      } else if (line.compare(at, 2, "\\;") == 0) {
        kept += line[++at];
      } else if (line.compare(at, 3, ";--") == 0 && line.compare(at, 4, ";---") != 0) {
        in_comment_ = true;
        at += 2;
      } else if (line[at] == ';') {
        break;
      } else {
        kept += line[at];
      }
    }
    return kept;
  }

  void take_line(std::string_view line) {
    if (line.empty()) {
      return;
    }
    if (line[0] == '[') {
      take_section(line.substr(1));
    } else if (line[0] == '#') {
      take_directive(line.substr(1));
    } else if (file_.blocks.empty()) {
      say(true, quoted(line) + " stands before the first section");
    } else {
      take_entry(line);
    }
  }

  void take_section(std::string_view rest) {
    const size_t end = rest.find(']');
    if (end == std::string_view::npos) {
      say(true, "the section has no closing ']'");
      return;
    }
    ConfigBlock block;
    block.name = rest.substr(0, end);
    block.place = place_;
    rest.remove_prefix(end + 1);
    std::string_view options;
    if (!rest.empty() && rest[0] == '(') {
      const size_t close = rest.find(')');
      if (close == std::string_view::npos) {
        say(true, "the section has no closing ')'");
        return;
      }
      options = rest.substr(1, close - 1);
    }
    current_ = file_.blocks.size();
    while (!options.empty()) {
      const std::string_view option = options.substr(0, options.find(','));
      options.remove_prefix(std::min(options.size(), option.size() + 1));
      take_option(block, stripped(option));
    }
    if (current_ == file_.blocks.size()) {
      file_.blocks.push_back(std::move(block));
    }
  }

  // A section that the host refuses keeps its place all the same, for its keys to be looked at.
  void take_option(ConfigBlock &block, std::string_view option) {
    if (option == "!") {
      block.is_template = true;
      return;
    }
    const std::string_view wanted = option == "+" ? std::string_view(block.name) : option;
    for (size_t index = 0; index < file_.blocks.size(); ++index) {
      const ConfigBlock &other = file_.blocks[index];
      if (!equal_names(other.name, wanted)) {
        continue;
      }
      if (option == "+") {
        current_ = index;
      } else {
        block.entries.insert(block.entries.end(), other.entries.begin(), other.entries.end());
      }
      return;
    }
    say(true, "there is no section [" + std::string(wanted) + "] above");
  }

  void take_directive(std::string_view line) {
    const std::string_view word = line.substr(0, line.find_first_of(" \t"));
    std::string_view name = stripped(line.substr(word.size()));
    if (name.size() > 1 && (name[0] == '"' || name[0] == '<')) {
      name = name.substr(1, name.size() - 2);
    }
    if (equal_names(word, "exec")) {
      say(false, "#exec is not followed here: what the command prints is not checked");
    } else if (!equal_names(word, "include") && !equal_names(word, "tryinclude")) {
      say(false, "#" + std::string(word) + " is no directive; the PBX passes the line over");
    } else if (!include(std::string(name)) && equal_names(word, "include")) {
      say(true, "the included file " + quoted(name) + " cannot be read");
    }
  }

  // False when there is no such file.
  bool include(const std::string &name) {
    if (depth_ >= kDeepestInclude) {
      return false;
    }
    const std::string pattern = !name.empty() && name[0] == '/' ? name : folder_ + name;
    glob_t found{};
    bool read_one = false;
    if (glob(pattern.c_str(), GLOB_NOMAGIC | GLOB_BRACE, nullptr, &found) == 0) {
      for (size_t index = 0; index < found.gl_pathc; ++index) {
        read_one = read(found.gl_pathv[index]) || read_one;
      }
    }
    globfree(&found);
    return read_one;
  }

  void take_entry(std::string_view line) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      say(false, quoted(line) + " has no '=': the PBX passes the line over");
      return;
    }
    std::string_view key = line.substr(0, equals);
    std::string_view value = line.substr(equals + 1);
    const bool adds = !key.empty() && key.back() == '+';
    if (adds) {
      key.remove_suffix(1);
    } else if (!value.empty() && value[0] == '>') {
      value.remove_prefix(1);
    }
    std::vector<ConfigEntry> &entries = file_.blocks[current_].entries;
    ConfigEntry entry = {std::string(stripped(key)), std::string(stripped(value)), place_};
    if (const ConfigEntry *former = adds ? find_entry(file_.blocks[current_], entry.key) : nullptr) {
      // What is added is added with the blanks in front of it.
      entries[static_cast<size_t>(former - entries.data())].value += value;
    } else {
      entries.push_back(std::move(entry));
    }
  }

  const std::string folder_;  // with its slash; included files stand here
  std::vector<ConfigFinding> &findings_;
  ConfigFile file_;
  ConfigPlace place_;
  size_t current_ = 0;  // the block that entries go to
  int depth_ = 0;
  int files_ = 0;
  size_t room_ = kTextFileMax;  // for the bytes of further files
  bool in_comment_ = false;
};

}  // namespace

std::string quoted(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

bool equal_names(std::string_view one, std::string_view other) {
  return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

const ConfigBlock *find_block(const ConfigFile &file, std::string_view name) {
  for (const ConfigBlock &block : file.blocks) {
    if (!block.is_template && equal_names(block.name, name)) {
      return &block;
    }
  }
  return nullptr;
}

const ConfigEntry *find_entry(const ConfigBlock &block, std::string_view key) {
  for (const ConfigEntry &entry : block.entries) {
    if (equal_names(entry.key, key)) {
      return &entry;
    }
  }
  return nullptr;
}

ConfigFile read_config_file(const std::string &path, std::vector<ConfigFinding> &findings) {
  Reader reader(path.substr(0, path.rfind('/') + 1), findings);
  if (!reader.read(path)) {
    ConfigFinding missing;
    missing.place.file = path;
    missing.fatal = true;
    missing.text = "there is no such file, or it cannot be read";
    findings.push_back(std::move(missing));
  }
  return reader.take();
}
