#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "program.h"
#include "references.h"
#include "syntax.h"

namespace jsgf {

// Turns rules into places. A rule is read from its end to its start, so that what follows is known before what leads
// to it; groups and copied rules wait on a stack of frames.
class Compiler {
public:
  Compiler(const Syntax &syntax, const Components &components, RuleSharing sharing, Program &program);

  // Fills the places, branches, tags and calls of the program, and the entries of its public rules.
  void compile();

private:
  enum class FrameKind : uint8_t { kGroup, kOptional, kRule, kStar, kPlus, kRecursion };

  struct Frame {
    FrameKind kind;
    Link next;        // what follows the group, the repeat or the rule
    uint32_t base;    // kGroup, kOptional, kRule: its first in alternatives_; kRecursion: its first in entered_
    uint32_t place;   // kStar, kPlus: where another round is chosen; kRule: its entry in a recursion, or kNowhere
    uint32_t resume;  // kRule, kRecursion: the place in the text of the rule that refers to it
    uint32_t done;    // kRecursion: rules before this one in entered_ are compiled
  };

  struct Alternative {
    Link link;
    double weight;
  };

  void chooseCalled();
  void findReferred();
  void compileCallees(const Component &component);
  Link compilePublic(uint32_t rule);
  void run();

  void read(Symbol symbol);
  void enterRule(uint32_t rule, uint32_t resume);
  void openRecursion(uint32_t resume);
  void continueRecursion();
  void openBody(uint32_t rule, uint32_t entry, uint32_t resume);
  void closeBody();
  void openRepeat(FrameKind kind);
  void openGroup(FrameKind kind);
  void closeGroup();
  void endAlternative();
  void endItem();
  void readReference(const Reference &reference);
  Link takeAlternatives(const Frame &frame);

  bool isCalled(uint32_t rule) const { return called_[components_.ofRule[rule]]; }
  uint32_t addPlace(PlaceKind kind, size_t value, size_t next);
  uint32_t addBranches(size_t count);
  uint32_t wordPlace(uint32_t word, uint32_t next);
  void growWordSlots();
  uint32_t entryInRecursion(uint32_t rule);

  const Syntax &syntax_;
  const Components &components_;
  const RuleSharing sharing_;
  Program &program_;

  std::vector<bool> called_;            // by component
  std::vector<bool> referred_;          // by component: a public rule needs it through a reference
  std::vector<uint32_t> calleeOfRule_;  // kNowhere for a rule that isn't called
  std::vector<uint32_t> publicEntry_;   // by rule: its entry in a recursion that goes on at the end of the text
  std::vector<uint32_t> entryOfRule_;   // by rule: its entry in an open recursion

  uint32_t position_ = 0;  // the symbol before it is read next
  Link current_;           // where the part of the rule that has been read begins
  double weight_ = kNoWeight;
  std::vector<Frame> frames_;
  std::vector<Alternative> alternatives_;  // of the open groups and rules, from right to left
  std::vector<uint32_t> entered_;          // rules with an entry in an open recursion
  std::vector<uint32_t> recursions_;       // the kRecursion frames
  std::vector<Alternative> ordered_;
  size_t wordPlaces_ = 0;

  static constexpr double kNoWeight = -1;
};

// Fills the tables of the program that lead backwards, and what follows from them.
void buildReverseTables(Program &program);

}  // namespace jsgf
