#include "config_table.h"

#include "../support/bounded_text.h"
#include "config_keys.h"

#include <cfloat>

namespace {

// A section that is being read. `block` is null when the file does not have it.
struct Section {
  const ConfigBlock *block;
  const char *name;
  ConfigSection kind;
  ConfigTable &table;
  quillbrook_engine_t &engine;
  ConfigReading reading;

  bool tells() const { return reading != ConfigReading::kTry; }
};

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
      return is(value, key.rules.word) ? 1 : key.rules.second_word && is(value, key.rules.second_word) ? 2 : 0;
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
    number = *config_number(key, section.table, section.table.engines[0]);
  } else if (key.kind == ConfigKind::kSilenceThreshold) {
    number = threshold;
  } else if (key.absent.stored) {
    number = to_number(key, section.kind, key.absent.value);
  }
}

bool load_text(const Section &section, const ConfigKey &key, const char *value, char *&text) {
  const char *source = value;
  if (!source) {
    source = section.kind == ConfigSection::kProfile ? *config_text(key, section.table, section.table.engines[0])
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

// Calls that began before a reload write to the file too, so each line goes behind the last.
FILE *open_log_file(const char *path, ConfigReading reading) {
  FILE *file = fopen(path, reading == ConfigReading::kReload ? "abe" : "wbe");
  if (file) {
    fcntl(fileno(file), F_SETFL, O_APPEND);
  }
  return file;
}

bool load_log_file(const Section &section, const char *value, FILE *&file) {
  if (file) {
    fclose(file);
    file = nullptr;
  }
  if (!value || is(value, "no")) {
    return true;
  }
  const char *path = is(value, "yes") ? kLogPath : value;
  file = open_log_file(path, section.reading);
  if (!file) {
    ast_log(LOG_ERROR, "Failed to open log file : %s.\n", path);
    return false;
  }
  return true;
}

// Of `general` what the file says, of a profile what its engine has in the end.
void echo(const Section &section, const ConfigKey &key, const char *value) {
  const char *word = key.rules.echo ? key.rules.echo : key.names[0];
  if (!section.table.debug || !section.tells()) {
    return;
  }
  if (section.kind == ConfigSection::kGeneral) {
    if (value) {
      ast_log(LOG_DEBUG, "general.%s=%s\n", word, value);
    }
  } else if (const int *number = config_number(key, section.table, section.engine)) {
    ast_log(LOG_DEBUG, "%s.%s=%d\n", section.name, word, *number);
  } else if (char *const *text = config_text(key, section.table, section.engine)) {
    ast_log(LOG_DEBUG, "%s.%s=%s\n", section.name, word, shown(*text));
  }
}

const char *find_value(const Section &section, const ConfigKey &key) {
  for (const char *name : key.names) {
    if (const ConfigEntry *entry = name && section.block ? find_entry(*section.block, name) : nullptr) {
      return entry->value.c_str();
    }
  }
  return nullptr;
}

bool load_key(const Section &section, const ConfigKey &key) {
  const char *value = find_value(section, key);
  bool loaded = true;
  if (int *number = config_number(key, section.table, section.engine)) {
    load_number(section, key, value, *number);
    if (value && key.rules.warn_in_profile && section.kind == ConfigSection::kProfile && section.tells()) {
      ast_log(LOG_WARNING, "Profile %s with %s = %d!\n", section.name, key.names[0], *number);
    }
  } else if (char **text = config_text(key, section.table, section.engine)) {
    loaded = load_text(section, key, value, *text);
  } else if (key.kind == ConfigKind::kLogFile) {
    loaded = !section.tells() || load_log_file(section, value, section.engine.log_file);
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

bool load_general(const ConfigFile &file, ConfigTable &table, ConfigReading reading) {
  const Section section = {
      find_block(file, kGeneralSection), kGeneralSection, ConfigSection::kGeneral, table, table.engines[0], reading};
  for (const ConfigKey &key : config_keys()) {
    if (key.rules.in_general && !load_key(section, key)) {
      return false;
    }
  }
  return true;
}

bool load_profile(const ConfigFile &file, const std::string &name, ConfigTable &table, quillbrook_engine_t &engine,
                  ConfigReading reading) {
  copy_text(engine.name, name.c_str());
  const Section section = {find_block(file, name), engine.name, ConfigSection::kProfile, table, engine, reading};
  for (const ConfigKey *key : config_profile_keys()) {
    if (!load_key(section, *key)) {
      return false;
    }
  }
  return true;
}

// A name that gives no profile still takes its place in the table.
bool load_profiles(const ConfigFile &file, ConfigTable &table, ConfigReading reading) {
  const std::vector<std::string> names = profile_names(table.profiles);
  const bool tells = reading != ConfigReading::kTry;
  for (size_t index = 1; index <= names.size() && index < kEngines; ++index) {
    const std::string &name = names[index - 1];
    if (tells && table.debug) {
      ast_log(LOG_NOTICE, "Profile = %s\n", name.c_str());
    }
    if (equal_names(name, kGeneralSection)) {
      continue;
    }
    if (has_profile_section(file, name)) {
      if (!load_profile(file, name, table, table.engines[index], reading)) {
        return false;
      }
    } else if (tells) {
      ast_log(LOG_WARNING, "Profile %s not found!\n", name.c_str());
    }
  }
  if (tells && names.size() >= kEngines) {
    ast_log(LOG_WARNING, "Too many profiles: %d are read, %zu left out\n", kEngines - 1, names.size() + 1 - kEngines);
  }
  return true;
}

}  // namespace

ConfigTable::~ConfigTable() {
  ast_free(profiles);
  for (quillbrook_engine_t &engine : engines) {
    quillbrook_engine_release_texts(engine);
    if (engine.log_file) {
      fclose(engine.log_file);
    }
  }
}

std::vector<std::string> profile_names(const char *list) {
  std::vector<std::string> names;
  while (list) {
    const char *comma = strchr(list, ',');
    names.emplace_back(list, comma ? comma : list + strlen(list));
    list = comma ? comma + 1 : nullptr;
  }
  return names;
}

// The host finds a section with an empty name in every file, and a name that is too long has no engine to serve.
bool has_profile_section(const ConfigFile &file, const std::string &name) {
  return !name.empty() && name.size() <= kProfileNameMax && find_block(file, name);
}

bool fill_config_table(const ConfigFile &file, ConfigTable &table, ConfigReading reading) {
  return load_general(file, table, reading) && load_profiles(file, table, reading);
}
