#include "grammar_manager.h"

#include "../support/log.h"
#include "../support/text_file.h"
#include "accents.h"
#include "jsgfkitxx.h"

namespace {

// Values of normalize_mode from which on accents are removed.
constexpr int NORMALIZE_WORDS = 1;
constexpr int NORMALIZE_GRAMMARS = 2;

std::string read_file(const std::string &filename) {
  const std::unique_ptr<FILE, int (*)(FILE *)> file(open_regular_file(filename.c_str()), fclose);
  if (!file) {
    throw GrammarFileError(filename, errno);
  }
  std::string content;
  char block[16384];
  while (const size_t got = fread(block, 1, sizeof(block), file.get())) {
    content.append(block, got);
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

GrammarManager::GrammarManager() : normalize_mode(0) {}

GrammarManager::~GrammarManager() = default;

void GrammarManager::setNormalizeMode(int mode) {
  normalize_mode = mode;
}

void GrammarManager::load(const std::string &name, const std::string &filename) {
  add(name, read_file(filename));
}

void GrammarManager::add(const std::string &name, const std::string &jsgf) {
  std::istringstream content(normalize(jsgf));
  auto grammar = std::make_unique<Grammar>(content);
  grammar->setName(name);
  grammars.push_back(std::move(grammar));
  inactive.erase(name);
}

void GrammarManager::adopt(GrammarManager &&other) {
  grammars.reserve(grammars.size() + other.grammars.size());  // nothing below can fail
  for (std::unique_ptr<Grammar> &grammar : other.grammars) {
    inactive.erase(grammar->getName());
    grammars.push_back(std::move(grammar));
  }
  other.grammars.clear();
  other.inactive.clear();
}

bool GrammarManager::unload(const std::string &name) {
  const auto found = std::find_if(grammars.begin(), grammars.end(),
                                  [&](const std::unique_ptr<Grammar> &grammar) { return grammar->getName() == name; });
  if (found == grammars.end()) {
    return false;
  }
  grammars.erase(found);
  inactive.erase(name);
  return true;
}

bool GrammarManager::exists(const std::string &name) const {
  return std::any_of(grammars.begin(), grammars.end(),
                     [&](const std::unique_ptr<Grammar> &grammar) { return grammar->getName() == name; });
}

bool GrammarManager::activate(const std::string &name) {
  if (!exists(name)) {
    return false;
  }
  inactive.erase(name);
  return true;
}

bool GrammarManager::deactivate(const std::string &name) {
  if (!exists(name)) {
    return false;
  }
  inactive.insert(name);
  return true;
}

bool GrammarManager::isActive(const std::string &name) const {
  return exists(name) && !inactive.count(name);
}

size_t GrammarManager::activeCount() const {
  return static_cast<size_t>(
      std::count_if(grammars.begin(), grammars.end(),
                    [&](const std::unique_ptr<Grammar> &grammar) { return !inactive.count(grammar->getName()); }));
}

std::string GrammarManager::activeNames() const {
  std::string names;
  bool first = true;
  for (const std::unique_ptr<Grammar> &grammar : grammars) {
    const std::string name = grammar->getName();
    if (inactive.count(name)) {
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
  return normalize_mode >= NORMALIZE_GRAMMARS ? removeAccentsUTF8(text) : text;
}

std::string GrammarManager::match(const std::string &input) const {
  const std::string effective = normalize(input);
  notice("Match: %d grammar(s) loaded, %d active [%s], input [%s]\n", static_cast<int>(size()),
         static_cast<int>(activeCount()), activeNames().c_str(), effective.c_str());
  for (const std::unique_ptr<Grammar> &grammar : grammars) {
    const std::string name = grammar->getName();
    if (inactive.count(name)) {
      notice("Match: grammar %s is not active, skipped\n", name.c_str());
      continue;
    }
    notice("Grammar name: %s content: %s\n", name.c_str(), grammar->getText().c_str());
    const std::string rule = grammar->getMatchingPublicRule(effective);
    std::string tags = rule.empty() ? "" : tags_of(*grammar, rule, effective);
    if (!tags.empty()) {
      notice("Match: grammar %s matched rule [%s], tags [%s]\n", name.c_str(), rule.c_str(), tags.c_str());
      return tags;
    }
    notice("Match: no match in grammar %s (rule [%s])\n", name.c_str(), rule.c_str());
  }
  return "";
}

std::string GrammarManager::words() const {
  notice("Extract words: %d grammar(s) loaded, %d active [%s]\n", static_cast<int>(size()),
         static_cast<int>(activeCount()), activeNames().c_str());
  for (const std::unique_ptr<Grammar> &grammar : grammars) {
    const std::string name = grammar->getName();
    if (inactive.count(name)) {
      notice("Extract words: grammar %s is not active, skipped\n", name.c_str());
      continue;
    }
    notice("Grammar name: %s content: %s\n", name.c_str(), grammar->getText().c_str());
    const std::vector<std::string> entries = grammar->getAllWords();
    std::string words;
    for (const std::string &entry : entries) {
      const std::string w = normalize_mode >= NORMALIZE_WORDS ? removeAccentsUTF8(entry) : entry;
      notice("%s\n", w.c_str());
      append_separated(words, ", ", w);
    }
    if (!words.empty()) {
      notice("Extract words: %d word(s) taken from grammar %s\n", static_cast<int>(entries.size()), name.c_str());
      return words;
    }
    notice("Extract words: no word in grammar %s\n", name.c_str());
  }
  return "";
}

size_t GrammarManager::size() const {
  return grammars.size();
}

bool GrammarManager::hasGrammar() const {
  return activeCount() != 0;
}
