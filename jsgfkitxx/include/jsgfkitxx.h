#pragma once

// JSGF grammars: reads a grammar file and tells which public rule a text satisfies and with which tags.
//
// The language is JSGF 1.0 (JSpeech Grammar Format, W3C Note of 5 June 2000). What the Note leaves open is settled in
// jsgfkitxx/README.md, among it how a text is split into words and compared, and which derivation of an ambiguous text
// counts.
//
// Threads: everything but the constructor, the destructor and setName is const and may run on any number of threads
// at once. setName must not meet another operation on the same grammar.
//
// Errors: the constructor throws an exception derived from std::runtime_error whose text begins with
// "line L, column C: " (both from 1, columns count characters) and goes on with what was expected or is wrong. What
// matches a text throws MatchGaveUp when that takes too much. Memory that runs out is std::bad_alloc, everywhere.
//
// Cost: loading takes time and memory in proportion to the text. Neither a deep nesting nor a long text makes anything
// recurse, no grammar makes a match take exponential time, and none makes it take more than the limits below.

#include <chrono>
#include <cstddef>
#include <functional>
#include <istream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#define JSGFKITXX_EXPORT __attribute__((visibility("default")))

namespace quillbrook::jsgf {

class LastMatch;
class Program;

// All memory of one match together. Ordinary ones take some kilobytes, and the worst grammars that people write a few
// megabytes; a machine that holds a hundred calls must not lose its memory to one text.
constexpr std::size_t kMatchBytes = std::size_t{256} << 20U;

// How long one match may take. A caller waits for it in silence, and ordinary ones take microseconds.
constexpr std::chrono::milliseconds kMatchTime{2000};

// Where a grammar finds those that it imports: <com.acme.sizes.small> is the public rule <small> of the grammar
// com.acme.sizes, which is the file com/acme/sizes.jsgf below the first folder that has it. Symbolic links below a
// folder are not followed. Each file is read once.
struct ImportFolders {
  std::string own;  // the folder of the grammar's own file; where the package of its name begins is meant
  std::vector<std::string> others;                       // then these
  std::function<std::string(std::string)> prepare = {};  // what is done to the text of each file; empty for nothing
};

// Where the grammars that come with this library are installed.
constexpr const char *kInstalledGrammars = "/usr/share/quillbrook/grammars";

// A match that was given up since it would have gone beyond a limit. It says nothing about whether the text fits.
// what() tells which limit, in a few words.
class JSGFKITXX_EXPORT MatchGaveUp : public std::runtime_error {
public:
  explicit MatchGaveUp(const std::string &reason);
  ~MatchGaveUp() override;
};

// What a text is that may not be at its end yet, to all public rules of a grammar together.
enum class Viability {
  kImpossible,     // nothing that could follow would make it fit
  kBeginning,      // it doesn't fit, but would with more behind it
  kCompleteSoFar,  // it fits, and would with more behind it, too
  kComplete,       // it fits, and wouldn't with anything behind it
};

// Whether the text can go on within its last word.
enum class LastWord {
  kIsWhole,
  kMayGrow,  // the word's end may still be to come
};

}  // namespace quillbrook::jsgf

// A rule of a grammar. Keeps what it needs of the grammar alive.
class Rule;

// One step of a match: a word of the text or a tag. Outlives the grammar and the other steps.
class MatchInfo;

using MatchVector = std::vector<std::shared_ptr<MatchInfo>>;

class JSGFKITXX_EXPORT Grammar {
public:
  // Reads the stream to its end and builds the grammar. The stream isn't used afterwards. Without folders imports
  // aren't followed, and what only they could serve can't be spoken. With folders what is wrong with an import, or in
  // the imported file, is a fault of the import.
  explicit Grammar(std::istream &in);
  Grammar(std::istream &in, const quillbrook::jsgf::ImportFolders &imports);
  ~Grammar();
  // A copy shares what was built, and has a name of its own. Takes neither long nor much memory.
  Grammar(const Grammar &other);
  Grammar &operator=(const Grammar &) = delete;

  // Replaces the grammar's name, which is at first the full name of its declaration. References between rules don't
  // depend on it: they were resolved with the declared name.
  void setName(const std::string &name);
  std::string getName() const;

  // The source in UTF-8, each control character (line ends too) as a blank: fit for one log line.
  std::string getText() const;

  // The simple name (no brackets) of the public rule that the whole text satisfies, "" when there is none. Rules are
  // tried in the order of the file, but one whose match gives a non-empty tag goes before one whose match gives none.
  // Throws MatchGaveUp.
  std::string getMatchingPublicRule(std::string text) const;

  // What the text is as the beginning of one that fits; a text without words is the beginning of all. With tags or
  // without counts the same. Takes as long as a match; the first call for a grammar takes about as long as loading it.
  // Throws MatchGaveUp.
  quillbrook::jsgf::Viability getViability(const std::string &text, quillbrook::jsgf::LastWord last_word) const;

  // The words as which the text is compared, also those that the grammar doesn't have: for people who write grammars.
  std::vector<std::string> getWords(const std::string &text) const;

  // The rule of a simple name, a simple name in angle brackets, or a qualified one; an empty pointer when there is
  // none.
  std::shared_ptr<Rule> getRule(const std::string &name) const;

  // The match of the whole text against a public rule of this grammar: one step for each word and each tag, the tags
  // in the order in which they stand in the written-out sentence. Empty when the text doesn't fit, when the rule is
  // private, and when the pointer is empty or another grammar's. Throws MatchGaveUp.
  MatchVector matchesRule(std::shared_ptr<Rule> rule, const std::string &text) const;

  // The tag of each step, in order. A word's is empty, and a tag can be.
  static std::vector<std::string> getMatchingTags(std::vector<std::shared_ptr<MatchInfo>> steps);

  // Each token of the file once, in the order and the spelling of the file; a quoted token is one entry. Then those of
  // the imported rules that are used.
  std::vector<std::string> getAllWords() const;

  // The paths of the imported files.
  std::vector<std::string> getImportedFiles() const;

private:
  std::string name_;
  std::shared_ptr<const quillbrook::jsgf::Program> program_;
  std::unique_ptr<quillbrook::jsgf::LastMatch> last_match_;  // has a lock of its own
};
