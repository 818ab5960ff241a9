#include "config_keys.h"

namespace {

using engine = quillbrook_engine_t;
using kind = config_kind;

constexpr config_default stores(const char *value) {
  return {value, true};
}

constexpr config_default leaves(const char *value) {
  return {value, false};
}

constexpr config_default no_default() {
  return {};
}

}  // namespace

constexpr config_key config_keys[CONFIG_KEYS] = {
    {{"name"}, kind::label, &engine::name, leaves("")},
    {{"debug"}, kind::debug_level, &debug, leaves("no")},
    {{"loglevel"}, kind::number, &engine::log_level, leaves("0")},
    {{"logfile"}, kind::log_file, &engine::log_file, leaves("no")},
    {{"verbose"}, kind::boolean, &verbose, leaves("no")},
    {{"web", "webenabled"}, kind::boolean, &quillbrook_webenabled, stores("yes")},
    {{"logtag"}, kind::boolean, &engine::logtag, leaves("no"), 1},
    {{"loggingtag"}, kind::text, &engine::loggingtag, leaves(""), 2},
    // No key is not an empty one: without it the engine opens this file, with an empty value there is no such engine.
    {{"plugin"}, kind::text, &engine::plugin_name, leaves("plugin_dummy.so"), 3, {.echo = "plugin_name"}},
    {{"url"}, kind::text, &engine::ws_url, stores("ws://localhost:2700"), 4},
    {{"model", "parameters"}, kind::text, &engine::ws_model, stores(""), 5},
    {{"language", "lang"}, kind::text, &engine::ws_language, stores(""), 6},
    {{"voice"}, kind::text, &engine::ws_voice, stores(""), 7},
    {{"configuration", "config"}, kind::text, &engine::ws_configuration, stores(""), 8},
    {{"context"}, kind::text, &engine::ws_context, leaves(""), 9, {.in_general = false}},
    {{"phrases"}, kind::text, &engine::ws_phrases, stores(""), 10},
    {{"extra"}, kind::text, &engine::ws_extra, leaves(""), 11, {.in_general = false}},
    {{"normalize_phrases"}, kind::normalization, &engine::normalize_phrases, stores("no"), 29},
    {{"format"}, kind::text, &engine::ws_format, stores("wav"), 12},
    {{"buffersize"}, kind::number, &engine::ws_buffer_size, stores("4000"), 13, {.echo = "buffer"}},
    {{"dsp"}, kind::boolean, &engine::dsp, stores("no"), 14},
    // The loader takes the module's setting of the same name, which begins with this value.
    {{"threshold"}, kind::silence_threshold, &engine::threshold, leaves("150"), 15},
    {{"timeouts"}, kind::boolean, &engine::timeouts, stores("yes"), 16},
    {{"speedvsaccuracy"}, kind::decimal, &engine::speedvsaccuracy, stores("-1.0")},
    {{"minspeechtimeout"}, kind::milliseconds, &engine::minspeechtimeout, stores("0")},
    {{"maxspeechtimeout"}, kind::milliseconds, &engine::maxspeechtimeout, stores("60000"), 27},
    {{"completetimeout"}, kind::milliseconds, &engine::completetimeout, stores("0"), 25},
    {{"incompletetimeout"}, kind::milliseconds, &engine::incompletetimeout, stores("0"), 26},
    {{"speechtimeout"}, kind::milliseconds, &engine::speechtimeout, stores("0")},
    {{"extendedtimeout"}, kind::milliseconds, &engine::extendedtimeout, stores("0")},
    {{"earlyspeechtimeout"}, kind::milliseconds, &engine::earlyspeechtimeout, stores("0"), 24},
    {{"providertimeout"}, kind::milliseconds, &engine::providertimeout, stores("0"), 28},
    {{"endpointing"}, kind::boolean, &engine::endpointing, stores("no"), 17},
    {{"returnjson"}, kind::boolean, &engine::returnjson, stores("no"), 18, {.excludes = &engine::returnnlsml}},
    {{"returnnlsml"}, kind::boolean, &engine::returnnlsml, stores("no"), 19, {.excludes = &engine::returnjson}},
    {{"keepfiles"}, kind::boolean, &engine::keepfiles, stores("no"), 20},
    {{"waitclose"}, kind::boolean, &engine::waitclose, stores("no"), 21},
    {{"closetimeout"}, kind::milliseconds, &engine::closetimeout, stores("10000"), 22, {.least = 1}},
    {{"twin"}, kind::boolean, &twin, stores("no")},
    {{"continuous"}, kind::boolean, &engine::continuous, stores("no"), 23, {.warn_in_profile = true}},
    {{"profiles", "modules", "plugins"}, kind::text, &profiles, no_default()},
};

namespace {

constexpr const config_key *find_profile_key(int place) {
  const config_key *found = nullptr;
  for (const config_key &key : config_keys) {
    if (key.profile_place == place) {
      if (found) {
        return nullptr;
      }
      found = &key;
    }
  }
  return found;
}

// Every place of a profile is taken once, by a key whose field a profile can have of its own.
constexpr bool profile_places_are_complete() {
  for (int place = 1; place <= CONFIG_PROFILE_KEYS; ++place) {
    const config_key *key = find_profile_key(place);
    if (!key ||
        !(std::holds_alternative<engine_text>(key->field) || std::holds_alternative<engine_number>(key->field))) {
      return false;
    }
  }
  for (const config_key &key : config_keys) {
    if (key.profile_place > CONFIG_PROFILE_KEYS || (!key.rules.in_general && !key.profile_place)) {
      return false;
    }
  }
  return true;
}
static_assert(profile_places_are_complete());

}  // namespace

const config_key &config_profile_key(int place) {
  return *find_profile_key(place);
}

int *config_number(const config_key &key, quillbrook_engine_t &engine) {
  if (const auto member = std::get_if<engine_number>(&key.field)) {
    return &(engine.**member);
  }
  const auto global = std::get_if<int *>(&key.field);
  return global ? *global : nullptr;
}

char **config_text(const config_key &key, quillbrook_engine_t &engine) {
  if (const auto member = std::get_if<engine_text>(&key.field)) {
    return &(engine.**member);
  }
  const auto global = std::get_if<char **>(&key.field);
  return global ? *global : nullptr;
}
