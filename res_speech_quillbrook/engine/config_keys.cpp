#include "config_keys.h"

#include <array>

#include "config_table.h"

namespace {

using Engine = quillbrook_engine_t;
using Kind = ConfigKind;

constexpr ConfigDefault stores(const char *value) {
  return {value, true};
}

constexpr ConfigDefault leaves(const char *value) {
  return {value, false};
}

constexpr ConfigDefault no_default() {
  return {};
}

constexpr ConfigKey kConfigKeys[] = {
    {{"name"}, Kind::kLabel, &Engine::name, leaves("")},
    {{"debug"}, Kind::kDebugLevel, &ConfigTable::debug, leaves("no")},
    {{"loglevel"}, Kind::kNumber, &Engine::log_level, leaves("0")},
    {{"logfile"}, Kind::kLogFile, &Engine::log_file, leaves("no")},
    {{"verbose"}, Kind::kBoolean, &ConfigTable::verbose, leaves("no")},
    {{"web", "webenabled"}, Kind::kBoolean, &ConfigTable::webenabled, stores("yes")},
    {{"logtag"}, Kind::kBoolean, &Engine::logtag, leaves("no"), 1},
    {{"loggingtag"}, Kind::kText, &Engine::loggingtag, leaves(""), 2},
    {{"events"},
     Kind::kWord,
     &Engine::events,
     stores("no"),
     kProfilePlaceLater,
     {.word = "results", .second_word = "interims"}},
    {{"trace"}, Kind::kFolder, &Engine::trace, stores(""), kProfilePlaceLater},
    // No key is not an empty one: without it the engine opens this file, with an empty value there is no such engine.
    {{"plugin"}, Kind::kText, &Engine::plugin_name, leaves("plugin_dummy.so"), 3, {.echo = "plugin_name"}},
    {{"url"}, Kind::kText, &Engine::ws_url, stores("ws://localhost:2700"), 4},
    {{"model", "parameters"}, Kind::kText, &Engine::ws_model, stores(""), 5},
    {{"language", "lang"}, Kind::kText, &Engine::ws_language, stores(""), 6},
    {{"voice"}, Kind::kText, &Engine::ws_voice, stores(""), 7},
    {{"configuration", "config"}, Kind::kText, &Engine::ws_configuration, stores(""), 8},
    {{"context"}, Kind::kText, &Engine::ws_context, leaves(""), 9, {.in_general = false}},
    {{"phrases"}, Kind::kText, &Engine::ws_phrases, stores(""), 10},
    {{"extra"}, Kind::kText, &Engine::ws_extra, leaves(""), 11, {.in_general = false}},
    {{"normalize_phrases"}, Kind::kNormalization, &Engine::normalize_phrases, stores("no"), 29},
    {{"format"}, Kind::kText, &Engine::ws_format, stores("wav"), 12},
    {{"buffersize"}, Kind::kNumber, &Engine::ws_buffer_size, stores("4000"), 13, {.echo = "buffer"}},
    {{"dsp"}, Kind::kBoolean, &Engine::dsp, stores("no"), 14},
    // The loader takes the module's setting of the same name, which begins with this value.
    {{"threshold"}, Kind::kSilenceThreshold, &Engine::threshold, leaves("150"), 15},
    {{"silences"}, Kind::kWord, &Engine::both_silences, stores("either"), kProfilePlaceLater, {.word = "both"}},
    {{"timeouts"}, Kind::kBoolean, &Engine::timeouts, stores("yes"), 16},
    {{"speedvsaccuracy"}, Kind::kDecimal, &Engine::speedvsaccuracy, stores("-1.0")},
    {{"minspeechtimeout"}, Kind::kMilliseconds, &Engine::minspeechtimeout, stores("0")},
    {{"maxspeechtimeout"}, Kind::kMilliseconds, &Engine::maxspeechtimeout, stores("60000"), 27},
    {{"completetimeout"}, Kind::kMilliseconds, &Engine::completetimeout, stores("0"), 25},
    {{"incompletetimeout"}, Kind::kMilliseconds, &Engine::incompletetimeout, stores("0"), 26},
    {{"speechtimeout"}, Kind::kMilliseconds, &Engine::speechtimeout, stores("0")},
    {{"extendedtimeout"}, Kind::kMilliseconds, &Engine::extendedtimeout, stores("0")},
    {{"earlyspeechtimeout"}, Kind::kMilliseconds, &Engine::earlyspeechtimeout, stores("0"), 24},
    {{"providertimeout"}, Kind::kMilliseconds, &Engine::providertimeout, stores("0"), 28},
    {{"grammartimeouts"}, Kind::kBoolean, &Engine::grammartimeouts, stores("no"), kProfilePlaceLater},
    {{"matchtimeout"}, Kind::kMilliseconds, &Engine::matchtimeout, stores("0"), kProfilePlaceLater, {.least = 0}},
    {{"endpointing"}, Kind::kBoolean, &Engine::endpointing, stores("no"), 17},
    {{"returnjson"}, Kind::kBoolean, &Engine::returnjson, stores("no"), 18, {.excludes = &Engine::returnnlsml}},
    {{"returnnlsml"}, Kind::kBoolean, &Engine::returnnlsml, stores("no"), 19, {.excludes = &Engine::returnjson}},
    {{"jsonpieces"}, Kind::kWord, &Engine::jsonpieces, stores("last"), kProfilePlaceLater, {.word = "all"}},
    {{"keepfiles"}, Kind::kBoolean, &Engine::keepfiles, stores("no"), 20},
    {{"waitclose"}, Kind::kBoolean, &Engine::waitclose, stores("no"), 21},
    {{"closetimeout"}, Kind::kMilliseconds, &Engine::closetimeout, stores("10000"), 22, {.least = 1}},
    {{"plugintimeout"}, Kind::kMilliseconds, &Engine::plugintimeout, stores("10000"), kProfilePlaceLater, {.least = 0}},
    {{"stoptimeout"}, Kind::kMilliseconds, &Engine::stoptimeout, stores("5000"), kProfilePlaceLater, {.least = 0}},
    {{"twin"}, Kind::kBoolean, &ConfigTable::twin, stores("no")},
    {{"continuous"}, Kind::kBoolean, &Engine::continuous, stores("no"), 23, {.warn_in_profile = true}},
    {{"utterances"}, Kind::kWord, &Engine::separate, stores("joined"), kProfilePlaceLater, {.word = "separate"}},
    {{"profiles", "modules", "plugins"}, Kind::kText, &ConfigTable::profiles, no_default()},
};

constexpr int count_profile_keys() {
  int count = 0;
  for (const ConfigKey &key : kConfigKeys) {
    count += key.profile_place != 0;
  }
  return count;
}

using ProfileKeys = std::array<const ConfigKey *, count_profile_keys()>;

constexpr ProfileKeys order_profile_keys() {
  ProfileKeys ordered{};
  std::size_t count = 0;
  for (int place = 1; place <= kProfilePlaceLater; ++place) {
    for (const ConfigKey &key : kConfigKeys) {
      if (key.profile_place == place) {
        ordered[count++] = &key;
      }
    }
  }
  return ordered;
}

constexpr ProfileKeys kProfileKeys = order_profile_keys();

// A profile's key has a field that a profile can have of its own, and no numbered place is taken twice.
constexpr bool profile_keys_are_sound() {
  for (std::size_t index = 0; index < kProfileKeys.size(); ++index) {
    const ConfigKey *key = kProfileKeys[index];
    if (!key || !(std::holds_alternative<EngineText>(key->field) || std::holds_alternative<EngineNumber>(key->field)) ||
        (key->profile_place != kProfilePlaceLater && key->profile_place != static_cast<int>(index) + 1)) {
      return false;
    }
  }
  for (const ConfigKey &key : kConfigKeys) {
    if (!key.rules.in_general && !key.profile_place) {
      return false;
    }
  }
  return true;
}
static_assert(profile_keys_are_sound());

}  // namespace

ConfigKeys config_keys() {
  return {std::begin(kConfigKeys), std::end(kConfigKeys)};
}

ConfigProfileKeys config_profile_keys() {
  return {kProfileKeys.data(), kProfileKeys.data() + kProfileKeys.size()};
}

int *config_number(const ConfigKey &key, ConfigTable &table, quillbrook_engine_t &engine) {
  if (const auto member = std::get_if<EngineNumber>(&key.field)) {
    return &(engine.**member);
  }
  const auto member = std::get_if<ModuleNumber>(&key.field);
  return member ? &(table.**member) : nullptr;
}

char **config_text(const ConfigKey &key, ConfigTable &table, quillbrook_engine_t &engine) {
  if (const auto member = std::get_if<EngineText>(&key.field)) {
    return &(engine.**member);
  }
  const auto member = std::get_if<ModuleText>(&key.field);
  return member ? &(table.**member) : nullptr;
}
