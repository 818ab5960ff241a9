#include "config.h"

#include "../ops/statistics.h"
#include "../support/bounded_text.h"
#include "../support/mutex.h"
#include "config_conflicts.h"
#include "config_keys.h"

#include <cfloat>

namespace {

constexpr const char *kConfigFile = "quillbrook.conf";
constexpr const char *kConfigFileOther = "res-speech-quillbrook.conf";
// The date that operators see is of the usual place, also when the host keeps its configuration elsewhere.
constexpr const char *kConfigPaths[] = {"/etc/asterisk/quillbrook.conf", "/etc/asterisk/res-speech-quillbrook.conf"};

constexpr const char *kGeneral = "general";
constexpr const char *kLogPath = "/var/log/quillbrook/debug.log";

struct Section {
  ast_config *config;
  const char *name;
  ConfigSection kind;
  quillbrook_engine_t &engine;
};

// Null when neither file can be used. A malformed first file does not make way for the second: that may be a forgotten
// one, with settings that nobody expects any more. The host has named the malformed line in its log.
ast_config *open_config() {
  const struct ast_flags flags = {};
  ast_config *config = ast_config_load2(kConfigFile, AST_MODULE, flags);
  if (!config) {
    config = ast_config_load2(kConfigFileOther, AST_MODULE, flags);
  }
  return config == CONFIG_STATUS_FILEINVALID ? nullptr : config;
}

void record_file_date() {
  for (const char *path : kConfigPaths) {
    struct stat status;
    if (stat(path, &status) == 0) {
      HostMutexLock lock(quillbrook_stat_lock);
      quillbrook_dates[kDateFile] = status.st_mtime;
      return;
    }
  }
}

bool is(const char *value, const char *word) {
  return strcmp(value, word) == 0;
}

// atoi, but defined for every text.
int to_int(const char *value) {
  return static_cast<int>(std::clamp<long>(strtol(value, nullptr, 10), INT_MIN, INT_MAX));
}

float to_float(const char *value) {
  return static_cast<float>(std::clamp<double>(strtod(value, nullptr), -FLT_MAX, FLT_MAX));
}

// The host's word for true is -1.
int to_flag(const char *value) {
  return ast_true(value) ? 1 : 0;
}

int to_number(const ConfigKey &key, ConfigSection section, const char *value) {
  switch (key.kind) {
    case ConfigKind::kBoolean:
      return to_flag(value);
    case ConfigKind::kDebugLevel:
      return strncmp(value, "plugin", 6) == 0 ? 2 : to_flag(value);
    case ConfigKind::kNormalization:
      return is(value, "yes") || is(value, "both") ? 2 : is(value, "phrases") ? 1 : 0;
    case ConfigKind::kWord:
      return is(value, key.rules.word) ? 1 : 0;
    case ConfigKind::kSilenceThreshold:
      if (section == ConfigSection::kGeneral && (is(value, "dsp") || is(value, "default"))) {
        return ast_dsp_get_threshold_from_settings(THRESHOLD_SILENCE);
      }
      return to_int(value);
    default:
      return to_int(value);
  }
}

// In the functions below `value` is null when the section does not have the key.

void load_number(const Section &section, const ConfigKey &key, const char *value, int &number) {
  const int given = value ? to_number(key, section.kind, value) : 0;
  if (value && given >= key.rules.least) {
    number = given;
    if (given && key.rules.excludes) {
      section.engine.*key.rules.excludes = 0;
    }
  } else if (section.kind == ConfigSection::kProfile) {
    number = *config_number(key, quillbrook_engine[0]);
  } else if (key.kind == ConfigKind::kSilenceThreshold) {
    number = threshold;
  } else if (key.absent.stored) {
    number = to_number(key, section.kind, key.absent.value);
  }
}

bool load_text(const Section &section, const ConfigKey &key, const char *value, char *&text) {
  const char *source = value;
  if (!source) {
    source = section.kind == ConfigSection::kProfile ? *config_text(key, quillbrook_engine[0])
             : key.absent.stored                     ? key.absent.value
                                                     : nullptr;
  }
  if (!source) {
    return true;
  }
  text = ast_strdup(source);
  if (!text) {
    ast_log(LOG_ERROR, "No memory for the key %s of the section %s\n", key.names[0], section.name);
    return false;
  }
  return true;
}

bool load_log_file(const char *value, FILE *&file) {
  if (file) {
    fclose(file);
    file = nullptr;
  }
  if (!value || is(value, "no")) {
    return true;
  }
  const char *path = is(value, "yes") ? kLogPath : value;
  file = fopen(path, "wbe");
  if (!file) {
    ast_log(LOG_ERROR, "Failed to open log file : %s.\n", path);
    return false;
  }
  return true;
}

// Of `general` what the file says, of a profile what its engine has in the end.
void echo(const Section &section, const ConfigKey &key, const char *value) {
  const char *word = key.rules.echo ? key.rules.echo : key.names[0];
  if (section.kind == ConfigSection::kGeneral) {
    if (value) {
      debug_log("general.%s=%s\n", word, value);
    }
  } else if (const int *number = config_number(key, section.engine)) {
    debug_log("%s.%s=%d\n", section.name, word, *number);
  } else if (char *const *text = config_text(key, section.engine)) {
    debug_log("%s.%s=%s\n", section.name, word, shown(*text));
  }
}

const char *find_value(const Section &section, const ConfigKey &key) {
  const char *value = nullptr;
  for (const char *name : key.names) {
    if (value || !name) {
      break;
    }
    value = ast_variable_retrieve(section.config, section.name, name);
  }
  return value;
}

bool load_key(const Section &section, const ConfigKey &key) {
  const char *value = find_value(section, key);
  bool loaded = true;
  if (int *number = config_number(key, section.engine)) {
    load_number(section, key, value, *number);
    if (value && key.rules.warn_in_profile && section.kind == ConfigSection::kProfile) {
      ast_log(LOG_WARNING, "Profile %s with %s = %d!\n", section.name, key.names[0], *number);
    }
  } else if (char **text = config_text(key, section.engine)) {
    loaded = load_text(section, key, value, *text);
  } else if (key.kind == ConfigKind::kLogFile) {
    loaded = load_log_file(value, section.engine.log_file);
  } else if (value && key.kind == ConfigKind::kLabel) {
    copy_text(section.engine.name, value);
  } else if (key.kind == ConfigKind::kDecimal) {
    section.engine.speedvsaccuracy = to_float(value ? value : key.absent.value);
  }
  if (loaded) {
    echo(section, key, value);
  }
  return loaded;
}

bool load_general(ast_config *config) {
  const Section section = {config, kGeneral, ConfigSection::kGeneral, quillbrook_engine[0]};
  for (const ConfigKey &key : kConfigKeys) {
    if (key.rules.in_general && !load_key(section, key)) {
      return false;
    }
  }
  return true;
}

bool load_profile(ast_config *config, const char *name, quillbrook_engine_t &engine) {
  copy_text(engine.name, name);
  const Section section = {config, name, ConfigSection::kProfile, engine};
  for (int place = 1; place <= kConfigProfileKeyCount; ++place) {
    if (!load_key(section, config_profile_key(place))) {
      return false;
    }
  }
  return true;
}

// The host finds a section with an empty name in every file, and a name that is too long has no engine to serve.
bool section_exists(ast_config *config, const char *name) {
  return name[0] && strlen(name) <= kProfileNameMax && ast_category_exist(config, name, nullptr);
}

// Walks the list in `profiles` and cuts it up. A name that gives no profile still takes its place in the table.
bool load_profiles(ast_config *config) {
  char *rest = profiles;
  for (int index = 1; rest && index < kEngines; ++index) {
    const char *name = strsep(&rest, ",");
    debug_notice("Profile = %s\n", name);
    if (strcasecmp(name, kGeneral) == 0) {
      continue;
    }
    if (!section_exists(config, name)) {
      ast_log(LOG_WARNING, "Profile %s not found!\n", name);
    } else if (!load_profile(config, name, quillbrook_engine[index])) {
      return false;
    }
  }
  if (rest) {
    const auto left_out = 1 + std::count(rest, rest + strlen(rest), ',');
    ast_log(LOG_WARNING, "Too many profiles: %d are read, %zd left out\n", kEngines - 1,
            static_cast<ssize_t>(left_out));
  }
  return true;
}

void say_conflicts(const quillbrook_engine_t &engine, const char *section) {
  for (const ConfigConflict &conflict : conflicts_of(engine)) {
    ast_log(LOG_WARNING, "[%s] %s\n", section, conflict.text.c_str());
  }
}

// What loses results, of the engines that there are and of the host.
void say_conflicts() {
  if (quillbrook_default_engine_wanted()) {
    say_conflicts(quillbrook_engine[0], kGeneral);
  }
  quillbrook_for_each_profile([](const quillbrook_engine_t &engine, int) { say_conflicts(engine, engine.name); });
  if (host_caches_record_files()) {
    ast_log(LOG_WARNING,
            "asterisk.conf has cache_record_files = yes: the audio of calls is kept elsewhere, and nothing is heard\n");
  }
}

}  // namespace

int quillbrook_engine_config_load() {
  ast_config *config = open_config();
  if (!config) {
    ast_log(LOG_WARNING, "No such configuration file %s\n", kConfigFile);
    ast_log(
        LOG_NOTICE,
        "If %s is there, the PBX cannot read it: see its own message above. Else copy quillbrook.conf.sample to it; "
        "everything in it may stay commented out.\n",
        kConfigFile);
    return -1;
  }
  record_file_date();
  const bool loaded = load_general(config) && load_profiles(config);
  ast_free(profiles);
  profiles = nullptr;
  ast_config_destroy(config);
  if (!loaded) {
    return -1;
  }
  say_conflicts();
  return 0;
}
