#include "config_conflicts.h"

namespace {

// The silences that complete an utterance. 0 is off.
struct CompletingSilence {
  const char *key;
  int quillbrook_engine_t::*field;
};
constexpr CompletingSilence kCompletingSilences[] = {
    {"completetimeout", &quillbrook_engine_t::completetimeout},
    {"extendedtimeout", &quillbrook_engine_t::extendedtimeout},
};

std::string setting(const char *key, int value) {
  return std::string(key) + " = " + std::to_string(value);
}

}  // namespace

std::vector<ConfigConflict> conflicts_of(const quillbrook_engine_t &engine) {
  std::vector<ConfigConflict> conflicts;
  if (!engine.timeouts) {
    return conflicts;
  }
  const auto add = [&conflicts](const char *key, int value, const std::string &fault, const char *effect) {
    conflicts.push_back({key, setting(key, value) + fault + ": " + effect});
  };
  // The outer limit gives up the words that are there when it comes first, or alone.
  constexpr const char *kLimit = "incompletetimeout";
  constexpr const char *kGivenUp = "silence makes words an \"error\"";
  const int limit = engine.incompletetimeout;
  if (limit > 0 && engine.completetimeout == 0) {
    add(kLimit, limit, " and no completetimeout", kGivenUp);
  }
  for (const auto &[key, field] : kCompletingSilences) {
    const int silence = engine.*field;
    if (limit > 0 && limit <= silence) {
      add(kLimit, limit, " is not above " + setting(key, silence), kGivenUp);
    }
    // A final text then brings so much silence along that the utterance is complete before it is taken in.
    if (engine.providertimeout > 0 && silence > 0 && engine.providertimeout >= silence) {
      add("providertimeout", engine.providertimeout, " is not below " + setting(key, silence), "final texts are lost");
    }
  }
  return conflicts;
}
