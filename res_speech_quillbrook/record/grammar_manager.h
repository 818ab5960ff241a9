// The set of JSGF grammars of one session: which ones the dialplan loaded, which of them take part, the words that go
// to the provider as hints, and the tags that a transcript gets from them.
//
// A grammar takes part from the moment it is loaded until it is switched off by name. Names are those that the dialplan
// gave; they are not unique, and grammars of one name are switched together. Order is the order of loading.
//
// The set has no lock: its owner guards it (session/session.h). Loading parses, which takes long, so it is done on a
// set of its own, and `adopt` then moves the result in.
#pragma once

#include "../host.h"

class Grammar;

// A grammar file that cannot be opened or read; `error` is the system's errno.
class GrammarFileError : public std::runtime_error {
public:
  GrammarFileError(const std::string &filename, int error);
  int error() const { return error_; }

private:
  int error_;
};

// The first active grammar whose tags fit a text: its name, the public rule, the non-empty tags joined by a blank. All
// empty when there is none.
struct GrammarMatch {
  std::string grammar;
  std::string rule;
  std::string tags;
};

class GrammarManager {
public:
  GrammarManager();
  ~GrammarManager();
  GrammarManager(const GrammarManager &) = delete;
  GrammarManager &operator=(const GrammarManager &) = delete;

  // 0: texts are taken as they are. 1: accents are removed from the words of `words`. 2: from the grammars and from
  // the input of `match` too.
  void setNormalizeMode(int mode);

  // Reads a grammar file and adds it, switched on, under `name`. Throws GrammarFileError when the file is no readable
  // regular file, and std::runtime_error, which tells line and column, when it does not parse; the set is then
  // unchanged.
  void load(const std::string &name, const std::string &filename);

  // Takes over the grammars of another set, behind its own, each switched on, as if loaded here.
  void adopt(GrammarManager &&other);

  // Removes the first grammar of that name. False when there is none.
  bool unload(const std::string &name);

  // Switch the grammars of that name on or off. False, and nothing changes, when there is none.
  bool activate(const std::string &name);
  bool deactivate(const std::string &name);

  // Whether a grammar of that name is loaded and not switched off.
  bool isActive(const std::string &name) const;

  size_t activeCount() const;
  // In order of loading, joined by ", ".
  std::string activeNames() const;

  // The non-empty tags of the first active grammar that yields any for `input`, joined by a blank; else empty.
  std::string match(const std::string &input) const;
  // The same with the grammar and the rule.
  GrammarMatch matchInFull(const std::string &input) const;

  // The words of the first active grammar that has any, joined by ", "; else empty.
  std::string words() const;

  // Grammars loaded, switched on or off.
  size_t size() const;
  // Whether any grammar is switched on.
  bool hasGrammar() const;

private:
  std::string normalize(const std::string &text) const;
  void add(const std::string &name, const std::string &jsgf);
  bool exists(const std::string &name) const;

  std::vector<std::unique_ptr<Grammar>> grammars_;
  std::set<std::string> inactive_;
  int normalize_mode_;
};
