#include <vector>

#include "compiler.h"

namespace quillbrook::jsgf {

namespace {

// Calls `visit(source, branch, target)` for each way from a place to another that takes no word. A call leads to
// the place behind it.
template <typename Visit>
void for_each_edge(const Program &program, const Visit &visit) {
  for (uint32_t source = 0; source < program.places.size(); ++source) {
    const Place &place = program.places[source];
    switch (static_cast<PlaceKind>(place.kind)) {
      case PlaceKind::kAlternatives:
      case PlaceKind::kEntry: {
        const uint32_t count = static_cast<PlaceKind>(place.kind) == PlaceKind::kEntry ? 1 : place.next;
        for (uint32_t branch = 0; branch < count; ++branch) {
          visit(source, branch, program.branches[place.value + branch].place);
        }
        break;
      }
      case PlaceKind::kJump:
        visit(source, 0U, place.next);
        break;
      case PlaceKind::kCall:
        visit(source, 0U, program.calls[place.value].back.place);
        break;
      case PlaceKind::kWord:
      case PlaceKind::kEnd:
        break;
    }
  }
}

void build_edges(Program &program) {
  std::vector<uint32_t> &begin = program.edges_begin;
  begin.assign(program.places.size() + 2, 0);
  for_each_edge(program, [&](uint32_t, uint32_t, uint32_t target) {
    if (target != kNowhere) {
      ++begin[target + 2];
    }
  });
  for (size_t i = 2; i < begin.size(); ++i) {
    begin[i] += begin[i - 1];
  }
  program.edges.resize(begin.back());
  for_each_edge(program, [&](uint32_t source, uint32_t branch, uint32_t target) {
    if (target != kNowhere) {
      program.edges[begin[target + 1]++] = {source, branch};
    }
  });
  begin.pop_back();
}

// Finds the callees that can be spoken by saying nothing. A component's callees come before those that call them.
void find_empty_callees(Program &program) {
  std::vector<bool> reached(program.places.size(), false);
  std::vector<uint32_t> open;
  size_t callee = 0;
  for (uint32_t component = 1; component < program.ends.size(); ++component) {
    bool has_tags = false;
    open.assign(1, program.ends[component]);
    while (!open.empty()) {
      const uint32_t target = open.back();
      open.pop_back();
      for (uint32_t i = program.edges_begin[target]; i < program.edges_begin[target + 1]; ++i) {
        const uint32_t source = program.edges[i].source;
        const Place &place = program.places[source];
        const auto kind = static_cast<PlaceKind>(place.kind);
        if (kind == PlaceKind::kCall) {
          const Callee &called = program.callees[program.calls[place.value].callee];
          if (!called.can_be_empty) {
            continue;
          }
          has_tags = has_tags || called.empty_has_tags || program.calls[place.value].back.tags != 0;
        } else {
          has_tags = has_tags ||
                     (kind == PlaceKind::kJump ? place.value
                                               : program.branches[place.value + program.edges[i].branch].tags) != 0;
        }
        if (!reached[source]) {
          reached[source] = true;
          open.push_back(source);
        }
      }
    }
    for (; callee < program.callees.size() && program.callees[callee].component == component; ++callee) {
      program.callees[callee].can_be_empty = reached[program.callees[callee].entry];
      program.callees[callee].empty_has_tags = has_tags;
    }
  }
}

// Removes places that no open one leads to until none is left (A. Kahn, Topological sorting of large networks, 1962).
void find_empty_cycles(Program &program) {
  const auto is_open = [&](uint32_t source) {
    const Place &place = program.places[source];
    return static_cast<PlaceKind>(place.kind) != PlaceKind::kCall ||
           program.callees[program.calls[place.value].callee].can_be_empty;
  };
  std::vector<uint32_t> ways_out(program.places.size(), 0);
  for (const Edge &edge : program.edges) {
    ways_out[edge.source] += is_open(edge.source) ? 1 : 0;
  }
  std::vector<uint32_t> removable;
  for (uint32_t place = 0; place < program.places.size(); ++place) {
    if (ways_out[place] == 0) {
      removable.push_back(place);
    }
  }
  for (size_t i = 0; i < removable.size(); ++i) {
    const uint32_t target = removable[i];
    for (uint32_t edge = program.edges_begin[target]; edge < program.edges_begin[target + 1]; ++edge) {
      const uint32_t source = program.edges[edge].source;
      if (is_open(source) && --ways_out[source] == 0) {
        removable.push_back(source);
      }
    }
  }
  program.has_empty_cycles = removable.size() < program.places.size();
}

void number_backs(Program &program) {
  std::vector<uint32_t> numbers(program.places.size(), kNowhere);
  for (Call &call : program.calls) {
    uint32_t &number = numbers[call.back.place];
    if (number == kNowhere) {
      number = program.back_count++;
    }
    call.back_number = number;
  }
}

// Ranks places in the order in which a search in depth leaves them.
class Ranking {
public:
  explicit Ranking(Program &program) : program_(program) {}

  void run() {
    program_.ranks.assign(program_.places.size(), kNowhere);
    for (uint32_t place = 0; place < program_.places.size(); ++place) {
      enter(place);
      while (!visits_.empty()) {
        Visit &visit = visits_.back();
        const uint32_t target = way_out(visit.place, visit.ways++);
        if (target == kNowhere) {
          program_.ranks[visit.place] = next_rank_++;
          visits_.pop_back();
        } else {
          enter(target);
        }
      }
    }
  }

private:
  struct Visit {
    uint32_t place;
    uint32_t ways;  // tried so far
  };

  static constexpr uint32_t kEntered = kNowhere - 1;

  void enter(uint32_t place) {
    if (program_.ranks[place] == kNowhere) {
      program_.ranks[place] = kEntered;
      visits_.push_back({place, 0});
    }
  }

  // kNowhere behind the last one. (A branch that leads nowhere is the only one of its place.)
  uint32_t way_out(uint32_t from, uint32_t number) const {
    const Place &place = program_.places[from];
    switch (static_cast<PlaceKind>(place.kind)) {
      case PlaceKind::kAlternatives:
        return number < place.next ? program_.branches[place.value + number].place : kNowhere;
      case PlaceKind::kEntry:
        return number == 0 ? program_.branches[place.value].place : kNowhere;
      case PlaceKind::kJump:
        return number == 0 ? place.next : kNowhere;
      case PlaceKind::kCall: {
        const Call &call = program_.calls[place.value];
        const Callee &callee = program_.callees[call.callee];
        return number == 0 ? callee.entry : number == 1 && callee.can_be_empty ? call.back.place : kNowhere;
      }
      case PlaceKind::kWord:
      case PlaceKind::kEnd:
        break;
    }
    return kNowhere;
  }

  Program &program_;
  std::vector<Visit> visits_;
  uint32_t next_rank_ = 0;
};

}  // namespace

void build_reverse_tables(Program &program) {
  build_edges(program);
  find_empty_callees(program);
  find_empty_cycles(program);
  if (!program.calls.empty()) {
    number_backs(program);
    Ranking(program).run();
  }
}

}  // namespace quillbrook::jsgf
