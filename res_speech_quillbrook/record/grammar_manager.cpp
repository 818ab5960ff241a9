#include "grammar_manager.h"

#include "../support/log.h"
#include "../support/text_file.h"
#include "../support/accents.h"
#include "jsgfkitxx.h"
#include "../support/printable.h"

namespace {

// Values of normalize_mode from which on accents are removed.
constexpr int kNormalizeWords = 1;
constexpr int kNormalizeGrammars = 2;

std::string read_file(const std::string &filename) {
  const std::unique_ptr<FILE, int (*)(FILE *)> file(open_regular_file(filename.c_str(), kGrammarFileMax), fclose);
  if (!file) {
    throw GrammarFileError(filename, errno);
  }
  std::string content;
  char block[16384];
  while (const size_t got = fread(block, 1, sizeof(block), file.get())) {
    content.append(block, got);
    if (content.size() > kGrammarFileMax) {  // it grows meanwhile
      throw GrammarFileError(filename, EFBIG);
    }
  }
  if (ferror(file.get())) {
    throw GrammarFileError(filename, errno);
  }
  return content;
}

// Appends with `separator` in between.
void append_separated(std::string &list, const char *separator, const std::string &item) {
  if (!list.empty()) {
    list += separator;
  }
  list += item;
}

std::string tags_of(const Grammar &grammar, const std::string &rule, const std::string &text) {
  std::string tags;
  const std::shared_ptr<Rule> r = grammar.getRule(rule);
  if (r) {
    for (const std::string &tag : Grammar::getMatchingTags(grammar.matchesRule(r, text))) {
      if (!tag.empty()) {
        append_separated(tags, " ", tag);
      }
    }
  }
  return tags;
}

}  // namespace

GrammarFileError::GrammarFileError(const std::string &filename, int error)
    : std::runtime_error("Erreur ouverture: " + filename), error_(error) {}

GrammarManager::GrammarManager() : normalize_mode_(0) {}

GrammarManager::~GrammarManager() = default;

void GrammarManager::setNormalizeMode(int mode) {
  normalize_mode_ = mode;
}

void GrammarManager::load(const std::string &name, const std::string &filename) {
  add(name, read_file(filename));
}

void GrammarManager::add(const std::string &name, const std::string &jsgf) {
  std::istringstream content(normalize(jsgf));
  auto grammar = std::make_unique<Grammar>(content);
  grammar->setName(name);
  grammars_.push_back(std::move(grammar));
  inactive_.erase(name);
}

void GrammarManager::adopt(GrammarManager &&other) {
  grammars_.reserve(grammars_.size() + other.grammars_.size());  // nothing below can fail
  for (std::unique_ptr<Grammar> &grammar : other.grammars_) {
    inactive_.erase(grammar->getName());
    grammars_.push_back(std::move(grammar));
  }
  other.grammars_.clear();
  other.inactive_.clear();
}

bool GrammarManager::unload(const std::string &name) {
  const auto found = std::find_if(grammars_.begin(), grammars_.end(),
                                  [&](const std::unique_ptr<Grammar> &grammar) { return grammar->getName() == name; });
  if (found == grammars_.end()) {
    return false;
  }
  grammars_.erase(found);
  inactive_.erase(name);
  return true;
}

bool GrammarManager::exists(const std::string &name) const {
  return std::any_of(grammars_.begin(), grammars_.end(),
                     [&](const std::unique_ptr<Grammar> &grammar) { return grammar->getName() == name; });
}

bool GrammarManager::activate(const std::string &name) {
  if (!exists(name)) {
    return false;
  }
  inactive_.erase(name);
  return true;
}

bool GrammarManager::deactivate(const std::string &name) {
  if (!exists(name)) {
    return false;
  }
  inactive_.insert(name);
  return true;
}

bool GrammarManager::isActive(const std::string &name) const {
  return exists(name) && !inactive_.count(name);
}

size_t GrammarManager::activeCount() const {
  return static_cast<size_t>(
      std::count_if(grammars_.begin(), grammars_.end(),
                    [&](const std::unique_ptr<Grammar> &grammar) { return !inactive_.count(grammar->getName()); }));
}

std::string GrammarManager::activeNames() const {
  std::string names;
  bool first = true;
  for (const std::unique_ptr<Grammar> &grammar : grammars_) {
    const std::string name = grammar->getName();
    if (inactive_.count(name)) {
      continue;
    }
    if (!first) {
      names += ", ";
    }
    names += name;
    first = false;
  }
  return names;
}

std::string GrammarManager::normalize(const std::string &text) const {
  return normalize_mode_ >= kNormalizeGrammars ? removeAccentsUTF8(text) : text;
}

std::string GrammarManager::match(const std::string &input) const {
  return matchInFull(input).tags;
}

GrammarMatch GrammarManager::matchInFull(const std::string &input) const {
  const std::string effective = normalize(input);
  notice("Match: %d grammar(s) loaded, %d active [%s], input [%s]\n", static_cast<int>(size()),
         static_cast<int>(activeCount()), Printable(activeNames()).text(), Printable(effective).text());
  for (const std::unique_ptr<Grammar> &grammar : grammars_) {
    const std::string name = grammar->getName();
    if (inactive_.count(name)) {
      notice("Match: grammar %s is not active, skipped\n", Printable(name).text());
      continue;
    }
    notice("Grammar name: %s content: %s\n", Printable(name).text(), Printable(grammar->getText()).text());
    const std::string rule = grammar->getMatchingPublicRule(effective);
    std::string tags = rule.empty() ? "" : tags_of(*grammar, rule, effective);
    if (!tags.empty()) {
      notice("Match: grammar %s matched rule [%s], tags [%s]\n", Printable(name).text(), Printable(rule).text(),
             Printable(tags).text());
      return {name, rule, tags};
    }
    notice("Match: no match in grammar %s (rule [%s])\n", Printable(name).text(), Printable(rule).text());
  }
  return {};
}

std::string GrammarManager::words() const {
  notice("Extract words: %d grammar(s) loaded, %d active [%s]\n", static_cast<int>(size()),
         static_cast<int>(activeCount()), Printable(activeNames()).text());
  for (const std::unique_ptr<Grammar> &grammar : grammars_) {
    const std::string name = grammar->getName();
    if (inactive_.count(name)) {
      notice("Extract words: grammar %s is not active, skipped\n", Printable(name).text());
      continue;
    }
    notice("Grammar name: %s content: %s\n", Printable(name).text(), Printable(grammar->getText()).text());
    const std::vector<std::string> entries = grammar->getAllWords();
    std::string words;
    for (const std::string &entry : entries) {
      const std::string w = normalize_mode_ >= kNormalizeWords ? removeAccentsUTF8(entry) : entry;
      notice("%s\n", Printable(w).text());
      append_separated(words, ", ", w);
    }
    if (!words.empty()) {
      notice("Extract words: %d word(s) taken from grammar %s\n", static_cast<int>(entries.size()),
             Printable(name).text());
      return words;
    }
    notice("Extract words: no word in grammar %s\n", Printable(name).text());
  }
  return "";
}

size_t GrammarManager::size() const {
  return grammars_.size();
}

bool GrammarManager::hasGrammar() const {
  return activeCount() != 0;
}
