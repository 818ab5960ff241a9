#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "program.h"
#include "references.h"
#include "syntax.h"

namespace quillbrook::jsgf {

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

  void choose_called();
  void find_referred();
  void compile_callees(const Component &component);
  Link compile_public(uint32_t rule);
  void run();

  void read(Symbol symbol);
  void enter_rule(uint32_t rule, uint32_t resume);
  void open_recursion(uint32_t resume);
  void continue_recursion();
  void open_body(uint32_t rule, uint32_t entry, uint32_t resume);
  void close_body();
  void open_repeat(FrameKind kind);
  void open_group(FrameKind kind);
  void close_group();
  void end_alternative();
  void end_item();
  void read_reference(const Reference &reference);
  Link take_alternatives(const Frame &frame);

  bool is_called(uint32_t rule) const { return called_[components_.of_rule[rule]]; }
  uint32_t add_place(PlaceKind kind, size_t value, size_t next);
  uint32_t add_branches(size_t count);
  uint32_t word_place(uint32_t word, uint32_t next);
  void grow_word_slots();
  uint32_t entry_in_recursion(uint32_t rule);

  const Syntax &syntax_;
  const Components &components_;
  const RuleSharing sharing_;
  Program &program_;

  std::vector<bool> called_;              // by component
  std::vector<bool> referred_;            // by component: a public rule needs it through a reference
  std::vector<uint32_t> callee_of_rule_;  // kNowhere for a rule that isn't called
  std::vector<uint32_t> public_entry_;    // by rule: its entry in a recursion that goes on at the end of the text
  std::vector<uint32_t> entry_of_rule_;   // by rule: its entry in an open recursion

  uint32_t position_ = 0;  // the symbol before it is read next
  Link current_;           // where the part of the rule that has been read begins
  double weight_ = kNoWeight;
  std::vector<Frame> frames_;
  std::vector<Alternative> alternatives_;  // of the open groups and rules, from right to left
  std::vector<uint32_t> entered_;          // rules with an entry in an open recursion
  std::vector<uint32_t> recursions_;       // the kRecursion frames
  std::vector<Alternative> ordered_;
  size_t word_places_ = 0;

  static constexpr double kNoWeight = -1;
};

// Fills the tables of the program that lead backwards, and what follows from them.
void build_reverse_tables(Program &program);

}  // namespace quillbrook::jsgf
