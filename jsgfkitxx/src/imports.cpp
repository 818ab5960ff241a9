#include "imports.h"

#include <map>
#include <sstream>
#include <string_view>
#include <utility>

#include "grammar_folder.h"
#include "refusal.h"
#include "source_text.h"

namespace quillbrook::jsgf {

namespace {

// In depth, with the files that are being followed on a stack: one that is met again there is in a circle.
class Follower {
public:
  Follower(Parser &parser, const ImportFolders &folders, std::deque<std::string> &sources)
      : parser_(parser), syntax_(parser.syntax()), prepare_(folders.prepare), sources_(sources) {
    folders_.push_back(package_root(folders.own, syntax_.files[0].grammar_name));
    folders_.insert(folders_.end(), folders.others.begin(), folders.others.end());
    bytes_left_ = kMaxSourceBytes - syntax_.files[0].source.size();
  }

  std::vector<std::string> follow() {
    enter(0);
    while (!open_.empty()) {
      const uint32_t file = open_.back().file;
      if (open_.back().next == syntax_.files[file].imports.size()) {
        is_open_[file] = false;
        open_.pop_back();
        continue;
      }
      const size_t number = open_.back().next++;
      in_file(syntax_, file, [&] { follow_one(file, number); });
    }
    return std::move(paths_);
  }

private:
  struct Open {
    uint32_t file;
    size_t next;  // import
  };

  void enter(uint32_t file) {
    by_name_.emplace(syntax_.files[file].grammar_name, file);
    is_open_.push_back(true);
    open_.push_back({file, 0});
  }

  void follow_one(uint32_t from, size_t number) {
    const Import import = syntax_.files[from].imports[number];
    const std::string_view name = import.name.substr(0, import.name.rfind('.'));
    const auto known = by_name_.find(name);
    if (known != by_name_.end() && is_open_[known->second]) {
      refuse(syntax_.files[from].source, import.offset,
             "expected a grammar that doesn't import this one, found " + std::string(name));
    }
    const uint32_t file = known != by_name_.end() ? known->second : read(from, import.offset, std::string(name));
    syntax_.files[from].imports[number].file = file;
    if (known == by_name_.end()) {
      enter(file);
    }
  }

  uint32_t read(uint32_t from, uint32_t offset, const std::string &name) {
    std::istringstream text(find(from, offset, name));
    SourceText source;
    const auto file = static_cast<uint32_t>(syntax_.files.size());
    in_import(syntax_.files[from].source, offset, paths_.back(), [&] {
      source = read_source(text);
      sources_.push_back(std::move(source.utf8));
      parser_.parse(sources_.back(), source.body);
    });
    GrammarFile &read = syntax_.files[file];
    read.path = paths_.back();
    read.importer = from;
    read.import_offset = offset;
    if (read.grammar_name != name) {
      refuse(syntax_.files[from].source, offset,
             "expected the grammar " + name + " in " + read.path + ", found " + std::string(read.grammar_name));
    }
    return file;
  }

  // The text of a grammar's file, whose path is added.
  std::string find(uint32_t from, uint32_t offset, const std::string &name) {
    const std::string path = path_of_grammar(name);
    std::string tried;
    try {
      for (const std::string &folder : folders_) {
        auto text = path.empty() ? std::nullopt : read_below(folder, path, bytes_left_);
        if (text) {
          bytes_left_ -= text->size();
          paths_.push_back(folder);
          paths_.back().append(folder.empty() ? "" : "/").append(path);
          return prepare_ ? prepare_(std::move(*text)) : std::move(*text);
        }
        tried += (tried.empty() ? "" : ", ") + (folder.empty() ? "." : folder);
      }
    } catch (const std::runtime_error &failure) {
      refuse(syntax_.files[from].source, offset, failure.what());
    }
    refuse(syntax_.files[from].source, offset,
           path.empty() ? "expected a grammar that can be a file, found " + name
                        : "expected the grammar " + name + " in a file " + path + " below " + tried + ", found none");
  }

  Parser &parser_;
  Syntax &syntax_;
  const std::function<std::string(std::string)> &prepare_;
  std::deque<std::string> &sources_;
  std::vector<std::string> folders_;
  std::vector<std::string> paths_;
  std::map<std::string, uint32_t, std::less<>> by_name_;
  std::vector<bool> is_open_;
  std::vector<Open> open_;
  size_t bytes_left_ = 0;
};

}  // namespace

std::vector<std::string> follow_imports(Parser &parser, const ImportFolders &folders,
                                        std::deque<std::string> &sources) {
  return Follower(parser, folders, sources).follow();
}

}  // namespace quillbrook::jsgf
