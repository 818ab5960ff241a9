#include "result.h"

namespace {

struct Cause {
  const char *name;
  const char *advice;
};

constexpr Cause kCauseTable[] = {
    {"understood", ""},
    {"nomatch", ""},
    {"nothing", ""},
    {"incomplete", "set incompletetimeout above completetimeout, or to 0"},
    {"provider", "look after the server, the model or the settings that the plugin names"},
    {"storage", "make room in /tmp and let the PBX write there; the key format has to name a format of the PBX"},
    {"memory", "the machine has no memory or threads left: look for what takes them"},
    {"plugin", "the plugin is at fault or its configuration is: ask its author"},
    {"grammar", "try the text with jsgf-match, and make the rules simpler that allow the same words in many ways"},
};
static_assert(std::size(kCauseTable) == kCauses);

}  // namespace

const char *quillbrook_cause_name(quillbrook_cause cause) {
  return kCauseTable[cause].name;
}

const char *quillbrook_cause_advice(quillbrook_cause cause) {
  return kCauseTable[cause].advice;
}
