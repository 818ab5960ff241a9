#include "grammar_manager.h"

#include "../support/log.h"
#include "../support/monotonic.h"
#include "../support/accents.h"
#include "jsgfkitxx.h"
#include "shared_grammars.h"
#include "../support/printable.h"

namespace {

// Values of normalize_mode from which on accents are removed.
constexpr int kNormalizeWords = 1;
constexpr int kNormalizeGrammars = 2;

// Milliseconds for all grammars of a session: a caller who waits does not care how many there are.
constexpr int64_t kMatchLimit = std::chrono::milliseconds(quillbrook::jsgf::kMatchTime).count();

// A grammar of the session's own in name and memory of its last match, which shares what was compiled.
struct LoadedGrammar {
  explicit LoadedGrammar(std::shared_ptr<const Grammar> of_all) : shared(std::move(of_all)), grammar(*shared) {}

  std::shared_ptr<const Grammar> shared;  // keeps it in use
  Grammar grammar;
};

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

// Runs what asks a grammar something. Why it was given up, or an empty text.
template <typename Ask>
std::string reason_to_give_up(Ask &&ask) {
  try {
    ask();
    return "";
  } catch (const quillbrook::jsgf::MatchGaveUp &failure) {
    return failure.what();
  } catch (const std::bad_alloc &) {
    return "out of memory";
  }
}

// The time that all grammars of a session have together.
class TimeForAll {
public:
  bool is_over() const { return monotonic_ms() - begun_ > kMatchLimit; }
  static std::string reason() { return "those in front of it took longer than " + std::to_string(kMatchLimit) + " ms"; }

private:
  const int64_t begun_ = monotonic_ms();
};

// What one grammar accepts or lets go on, all of them do.
class ExtentOfAll {
public:
  void add(quillbrook::jsgf::Viability one) {
    using quillbrook::jsgf::Viability;
    asked_ = true;
    complete_ = complete_ || one == Viability::kComplete || one == Viability::kCompleteSoFar;
    goes_on_ = goes_on_ || one == Viability::kBeginning || one == Viability::kCompleteSoFar;
  }
  quillbrook_extent extent() const {
    if (!asked_) {
      return kExtentUnknown;
    }
    if (complete_) {
      return goes_on_ ? kExtentCompleteSoFar : kExtentComplete;
    }
    return goes_on_ ? kExtentBeginning : kExtentImpossible;
  }

private:
  bool asked_ = false;
  bool complete_ = false;
  bool goes_on_ = false;
};

}  // namespace

GrammarManager::GrammarManager() : normalize_mode_(0) {}

GrammarManager::~GrammarManager() = default;

const GrammarManager::Set &GrammarManager::set() const {
  static const Set &nothing = *new Set();  // never destroyed: a thread may look at it as the PBX ends
  return set_ ? *set_ : nothing;
}

template <typename Change>
void GrammarManager::change(Change &&change) {
  auto changed = std::make_shared<Set>(set());
  change(*changed);
  set_ = std::move(changed);
}

void GrammarManager::setNormalizeMode(int mode) {
  normalize_mode_ = mode;
}

void GrammarManager::load(const std::string &name, const std::string &filename) {
  const auto loaded =
      std::make_shared<LoadedGrammar>(quillbrook_shared_grammar(filename, normalize_mode_ >= kNormalizeGrammars));
  loaded->grammar.setName(name);
  change([&](Set &set) {
    set.grammars.emplace_back(loaded, &loaded->grammar);
    set.inactive.erase(name);
  });
}

void GrammarManager::adopt(GrammarManager &&other) {
  change([&](Set &set) {
    for (const std::shared_ptr<const Grammar> &grammar : other.set().grammars) {
      set.grammars.push_back(grammar);
      set.inactive.erase(grammar->getName());
    }
  });
  other.set_ = nullptr;
}

bool GrammarManager::unload(const std::string &name) {
  if (!exists(name)) {
    return false;
  }
  change([&](Set &set) {
    set.grammars.erase(
        std::find_if(set.grammars.begin(), set.grammars.end(),
                     [&](const std::shared_ptr<const Grammar> &grammar) { return grammar->getName() == name; }));
    set.inactive.erase(name);
  });
  return true;
}

bool GrammarManager::exists(const std::string &name) const {
  return std::any_of(set().grammars.begin(), set().grammars.end(),
                     [&](const std::shared_ptr<const Grammar> &grammar) { return grammar->getName() == name; });
}

bool GrammarManager::activate(const std::string &name) {
  if (!exists(name)) {
    return false;
  }
  change([&](Set &set) { set.inactive.erase(name); });
  return true;
}

bool GrammarManager::deactivate(const std::string &name) {
  if (!exists(name)) {
    return false;
  }
  change([&](Set &set) { set.inactive.insert(name); });
  return true;
}

bool GrammarManager::isActive(const std::string &name) const {
  return exists(name) && !set().inactive.count(name);
}

size_t GrammarManager::activeCount() const {
  return static_cast<size_t>(std::count_if(
      set().grammars.begin(), set().grammars.end(),
      [&](const std::shared_ptr<const Grammar> &grammar) { return !set().inactive.count(grammar->getName()); }));
}

std::string GrammarManager::activeNames() const {
  std::string names;
  bool first = true;
  for (const std::shared_ptr<const Grammar> &grammar : set().grammars) {
    const std::string name = grammar->getName();
    if (set().inactive.count(name)) {
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
  const TimeForAll time;
  const std::string effective = normalize(input);
  notice("Match: %d grammar(s) loaded, %d active [%s], input [%s]\n", static_cast<int>(size()),
         static_cast<int>(activeCount()), Printable(activeNames()).text(), Printable(effective).text());
  for (const std::shared_ptr<const Grammar> &grammar : set().grammars) {
    const std::string name = grammar->getName();
    if (set().inactive.count(name)) {
      notice("Match: grammar %s is not active, skipped\n", Printable(name).text());
      continue;
    }
    if (time.is_over()) {
      return {name, "", "", TimeForAll::reason()};
    }
    notice("Grammar name: %s content: %s\n", Printable(name).text(), Printable(grammar->getText()).text());
    GrammarMatch found = {name, "", "", ""};
    found.gave_up = reason_to_give_up([&] {
      found.rule = grammar->getMatchingPublicRule(effective);
      found.tags = found.rule.empty() ? "" : tags_of(*grammar, found.rule, effective);
    });
    if (!found.gave_up.empty()) {
      return {name, "", "", found.gave_up};
    }
    if (!found.tags.empty()) {
      notice("Match: grammar %s matched rule [%s], tags [%s]\n", Printable(name).text(), Printable(found.rule).text(),
             Printable(found.tags).text());
      return found;
    }
    notice("Match: no match in grammar %s (rule [%s])\n", Printable(name).text(), Printable(found.rule).text());
  }
  return {};
}

GrammarExtent GrammarManager::judgeExtent(const std::string &input, bool may_grow) const {
  using quillbrook::jsgf::LastWord;
  const TimeForAll time;
  const std::string effective = normalize(input);
  ExtentOfAll all;
  for (const std::shared_ptr<const Grammar> &grammar : set().grammars) {
    const std::string name = grammar->getName();
    if (set().inactive.count(name)) {
      continue;
    }
    if (time.is_over()) {
      return {kExtentUnknown, name, TimeForAll::reason()};
    }
    trace(2, "Judge the words by grammar %s\n", Printable(name).text());
    const std::string gave_up = reason_to_give_up(
        [&] { all.add(grammar->getViability(effective, may_grow ? LastWord::kMayGrow : LastWord::kIsWhole)); });
    if (!gave_up.empty()) {
      return {kExtentUnknown, name, gave_up};
    }
  }
  return {all.extent(), "", ""};
}

std::string GrammarManager::words() const {
  notice("Extract words: %d grammar(s) loaded, %d active [%s]\n", static_cast<int>(size()),
         static_cast<int>(activeCount()), Printable(activeNames()).text());
  for (const std::shared_ptr<const Grammar> &grammar : set().grammars) {
    const std::string name = grammar->getName();
    if (set().inactive.count(name)) {
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
  return set().grammars.size();
}

bool GrammarManager::hasGrammar() const {
  return activeCount() != 0;
}
