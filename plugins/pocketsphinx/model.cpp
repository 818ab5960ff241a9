#include "model.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace quillbrook::pocketsphinx {
namespace {

constexpr const char *kDefaultModel = "/usr/share/pocketsphinx/model/en-us";
constexpr size_t kLargestDictionary = size_t{256} << 20;
constexpr int kMostVariants = 16;
constexpr std::string_view kBlanks = " \t";

bool is_readable(const std::string &path) {
  return access(path.c_str(), R_OK) == 0;
}

// The files without which the library ends the whole process instead of reporting an error.
void require_acoustic_model(const std::string &directory) {
  for (const char *name : {"mdef", "means", "variances", "transition_matrices", "feat.params"}) {
    if (!is_readable(directory + "/" + name)) {
      throw std::runtime_error("the acoustic model " + directory + " has no readable file '" + name +
                               "': install the package pocketsphinx-en-us, or set the parameter model");
    }
  }
}

void require_file(const std::string &path, const char *what, const char *parameter) {
  struct stat status {};
  if (!is_readable(path) || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) {
    throw std::runtime_error(std::string("the ") + what + " " + path +
                             " cannot be read: install the package pocketsphinx-en-us, or set the parameter " +
                             parameter);
  }
}

}  // namespace

ModelFiles ModelFiles::find(const Parameters &parameters, std::string_view record_model, bool with_language_model) {
  std::string directory = !parameters.model.empty()                              ? parameters.model
                          : !record_model.empty() && record_model.front() == '/' ? std::string(record_model)
                                                                                 : kDefaultModel;
  while (directory.size() > 1 && directory.back() == '/') directory.pop_back();
  std::string name = directory.substr(directory.rfind('/') + 1);

  ModelFiles files;
  files.acoustic = is_readable(directory + "/mdef") ? directory : directory + "/" + name;
  files.dictionary = parameters.dictionary.empty() ? directory + "/cmudict-" + name + ".dict" : parameters.dictionary;
  require_acoustic_model(files.acoustic);
  require_file(files.dictionary, "dictionary", "dict");
  if (with_language_model) {
    files.language_model =
        parameters.language_model.empty() ? directory + "/" + name + ".lm.bin" : parameters.language_model;
    require_file(files.language_model, "language model", "lm");
  }
  return files;
}

Dictionary::Dictionary(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  text_ = content.str();
  if (!file || text_.empty() || text_.size() > kLargestDictionary) {
    throw std::runtime_error("the dictionary " + path + " cannot be read");
  }

  std::string_view rest = text_;
  while (!rest.empty()) {
    std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    size_t word = std::min(line.find_first_of(kBlanks), line.size());
    size_t phones = std::min(line.find_first_not_of(kBlanks, word), line.size());
    entries_.push_back({line.substr(0, word), line.substr(phones)});
  }
  std::stable_sort(entries_.begin(), entries_.end(),
                   [](const Entry &left, const Entry &right) { return left.word < right.word; });
}

std::string_view Dictionary::phones_of(std::string_view word) const {
  auto found = std::lower_bound(entries_.begin(), entries_.end(), word,
                                [](const Entry &entry, std::string_view wanted) { return entry.word < wanted; });
  return found == entries_.end() || found->word != word ? std::string_view() : found->phones;
}

std::vector<std::string> Dictionary::pronunciations(std::string_view word) const {
  std::vector<std::string> found;
  for (int variant = 1; variant <= kMostVariants; ++variant) {
    std::string name(word);
    if (variant > 1) name += "(" + std::to_string(variant) + ")";
    std::string_view phones = phones_of(name);
    if (phones.empty()) break;
    found.emplace_back(phones);
  }
  return found;
}

}  // namespace quillbrook::pocketsphinx
