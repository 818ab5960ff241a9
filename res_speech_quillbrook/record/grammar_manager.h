// The set of JSGF grammars of one session: which ones the dialplan loaded, which of them take part, the words that go
// to the provider as hints, and the tags that a transcript gets from them.
//
// A grammar takes part from the moment it is loaded until it is switched off by name. Names are those that the dialplan
// gave; they are not unique, and grammars of one name are switched together. Order is the order of loading.
//
// The set has no lock: its owner guards it (session/session.h). What takes long is done on another one. Loading parses,
// so a set of its own loads, and `adopt` then moves the result in. Matching is done on a copy: it shares the grammars,
// costs no memory, and neither sees nor hinders what becomes of the set meanwhile.
#pragma once

#include "../host.h"
#include "recognition.h"

class Grammar;

// The first active grammar whose tags fit a text: its name, the public rule, the non-empty tags joined by a blank. All
// empty when there is none. A match that was given up says nothing about the text: then `gave_up` tells why, and
// `grammar` where.
struct GrammarMatch {
  std::string grammar;
  std::string rule;
  std::string tags;
  std::string gave_up;
};

// What a text is to the active grammars together, as something that may go on. `gave_up` and `grammar` as above.
struct GrammarExtent {
  quillbrook_extent extent = kExtentUnknown;
  std::string grammar;
  std::string gave_up;
};

class GrammarManager {
public:
  GrammarManager();
  ~GrammarManager();
  GrammarManager(const GrammarManager &) = default;
  GrammarManager &operator=(const GrammarManager &) = default;

  // 0: texts are taken as they are. 1: accents are removed from the words of `words`. 2: from the grammars and from
  // the input of `match` too.
  void setNormalizeMode(int mode);

  // Reads a grammar file and those that it imports, from below its own folder or where the grammars that come along are
  // installed, and adds it, switched on, under `name`. Throws GrammarFileError when the file is no readable
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
  // The same with the grammar and the rule. Gives up where the grammar library does, by time or memory, when memory
  // runs out, and in front of a grammar when those before it have taken as long as one may. No grammar behind the one
  // where it gives up is tried: it would answer in the place of that one.
  GrammarMatch matchInFull(const std::string &input) const;

  // What `input` is, tags or not. Its last word `may_grow` while the recogniser is in the middle of it. Unknown without
  // an active grammar. Gives up as a match does, on all grammars.
  GrammarExtent judgeExtent(const std::string &input, bool may_grow) const;

  // The words of the first active grammar that has any, joined by ", "; else empty.
  std::string words() const;

  // Grammars loaded, switched on or off.
  size_t size() const;
  // Whether any grammar is switched on.
  bool hasGrammar() const;

private:
  // Never changes once it is shared: each change makes another one.
  struct Set {
    std::vector<std::shared_ptr<const Grammar>> grammars;
    std::set<std::string> inactive;
  };

  const Set &set() const;
  template <typename Change>
  void change(Change &&change);
  std::string normalize(const std::string &text) const;
  bool exists(const std::string &name) const;

  std::shared_ptr<const Set> set_;  // null: empty
  int normalize_mode_;
};
