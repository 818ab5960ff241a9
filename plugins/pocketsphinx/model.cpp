#include "model.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace pocketsphinx_plugin {
namespace {

constexpr const char *default_model = "/usr/share/pocketsphinx/model/en-us";
constexpr size_t largest_dictionary = size_t{256} << 20;
constexpr int most_variants = 16;

bool is_readable(const std::string &path) {
  return access(path.c_str(), R_OK) == 0;
}

/* The files without which the library ends the whole process instead of reporting an error. */
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

std::string_view word_of(std::string_view line) {
  return line.substr(0, line.find_first_of(" \t"));
}

}  // namespace

ModelFiles ModelFiles::find(const Parameters &parameters, std::string_view record_model, bool with_language_model) {
  std::string directory = !parameters.model.empty()                              ? parameters.model
                          : !record_model.empty() && record_model.front() == '/' ? std::string(record_model)
                                                                                 : default_model;
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
  if (!file || text_.empty() || text_.size() > largest_dictionary) {
    throw std::runtime_error("the dictionary " + path + " cannot be read");
  }

  for (size_t start = 0; start < text_.size();) {
    if (text_[start] != '#' && text_[start] != ';' && text_[start] != '\n') {
      lines_.push_back(static_cast<uint32_t>(start));
    }
    size_t end = text_.find('\n', start);
    start = end == std::string::npos ? text_.size() : end + 1;
  }
  std::sort(lines_.begin(), lines_.end(),
            [this](uint32_t left, uint32_t right) { return word_of(line_at(left)) < word_of(line_at(right)); });
}

std::string_view Dictionary::line_at(uint32_t start) const {
  std::string_view rest = std::string_view(text_).substr(start);
  std::string_view line = rest.substr(0, rest.find('\n'));
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

std::string_view Dictionary::phones_of(std::string_view word) const {
  auto found = std::lower_bound(lines_.begin(), lines_.end(), word, [this](uint32_t line, std::string_view wanted) {
    return word_of(line_at(line)) < wanted;
  });
  if (found == lines_.end() || word_of(line_at(*found)) != word) return {};
  std::string_view line = line_at(*found);
  size_t phones = line.find_first_not_of(" \t", word.size());
  return phones == std::string_view::npos ? std::string_view() : line.substr(phones);
}

std::vector<std::string> Dictionary::pronunciations(std::string_view word) const {
  std::vector<std::string> found;
  for (int variant = 1; variant <= most_variants; ++variant) {
    std::string name(word);
    if (variant > 1) name += "(" + std::to_string(variant) + ")";
    std::string_view phones = phones_of(name);
    if (phones.empty()) break;
    found.emplace_back(phones);
  }
  return found;
}

}  // namespace pocketsphinx_plugin
