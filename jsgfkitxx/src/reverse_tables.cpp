#include <vector>

#include "compiler.h"

namespace jsgf {

namespace {

// Calls `visit(source, branch, target)` for each way from a place to another that takes no word. A call leads to
// the place behind it.
template <typename Visit>
void forEachEdge(const Program &program, const Visit &visit) {
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

void buildEdges(Program &program) {
  std::vector<uint32_t> &begin = program.edgesBegin;
  begin.assign(program.places.size() + 2, 0);
  forEachEdge(program, [&](uint32_t, uint32_t, uint32_t target) {
    if (target != kNowhere) {
      ++begin[target + 2];
    }
  });
  for (size_t i = 2; i < begin.size(); ++i) {
    begin[i] += begin[i - 1];
  }
  program.edges.resize(begin.back());
  forEachEdge(program, [&](uint32_t source, uint32_t branch, uint32_t target) {
    if (target != kNowhere) {
      program.edges[begin[target + 1]++] = {source, branch};
    }
  });
  begin.pop_back();
}

// Finds the callees that can be spoken by saying nothing. A component's callees come before those that call them.
void findEmptyCallees(Program &program) {
  std::vector<bool> reached(program.places.size(), false);
  std::vector<uint32_t> open;
  size_t callee = 0;
  for (uint32_t component = 1; component < program.ends.size(); ++component) {
    bool hasTags = false;
    open.assign(1, program.ends[component]);
    while (!open.empty()) {
      const uint32_t target = open.back();
      open.pop_back();
      for (uint32_t i = program.edgesBegin[target]; i < program.edgesBegin[target + 1]; ++i) {
        const uint32_t source = program.edges[i].source;
        const Place &place = program.places[source];
        const auto kind = static_cast<PlaceKind>(place.kind);
        if (kind == PlaceKind::kCall) {
          const Callee &called = program.callees[program.calls[place.value].callee];
          if (!called.canBeEmpty) {
            continue;
          }
          hasTags = hasTags || called.emptyHasTags || program.calls[place.value].back.tags != 0;
        } else {
          hasTags =
              hasTags || (kind == PlaceKind::kJump ? place.value
                                                   : program.branches[place.value + program.edges[i].branch].tags) != 0;
        }
        if (!reached[source]) {
          reached[source] = true;
          open.push_back(source);
        }
      }
    }
    for (; callee < program.callees.size() && program.callees[callee].component == component; ++callee) {
      program.callees[callee].canBeEmpty = reached[program.callees[callee].entry];
      program.callees[callee].emptyHasTags = hasTags;
    }
  }
}

// Removes places that no open one leads to until none is left (A. Kahn, Topological sorting of large networks, 1962).
void findEmptyCycles(Program &program) {
  const auto isOpen = [&](uint32_t source) {
    const Place &place = program.places[source];
    return static_cast<PlaceKind>(place.kind) != PlaceKind::kCall ||
           program.callees[program.calls[place.value].callee].canBeEmpty;
  };
  std::vector<uint32_t> waysOut(program.places.size(), 0);
  for (const Edge &edge : program.edges) {
    waysOut[edge.source] += isOpen(edge.source) ? 1 : 0;
  }
  std::vector<uint32_t> removable;
  for (uint32_t place = 0; place < program.places.size(); ++place) {
    if (waysOut[place] == 0) {
      removable.push_back(place);
    }
  }
  for (size_t i = 0; i < removable.size(); ++i) {
    const uint32_t target = removable[i];
    for (uint32_t edge = program.edgesBegin[target]; edge < program.edgesBegin[target + 1]; ++edge) {
      const uint32_t source = program.edges[edge].source;
      if (isOpen(source) && --waysOut[source] == 0) {
        removable.push_back(source);
      }
    }
  }
  program.hasEmptyCycles = removable.size() < program.places.size();
}

}  // namespace

void buildReverseTables(Program &program) {
  buildEdges(program);
  findEmptyCallees(program);
  findEmptyCycles(program);
}

}  // namespace jsgf
