// Settings that fit together so badly that callers are not understood, though each is fine by itself.
// docs/endpointing.md tells what comes of them.
#pragma once

#include "../record/engine.h"

struct ConfigConflict {
  const char *key;   // the one to change, as a rule
  std::string text;  // what is wrong, for the operator
};

// Those of an engine, with what it has taken over from `general`.
std::vector<ConfigConflict> conflicts_of(const quillbrook_engine_t &engine);
