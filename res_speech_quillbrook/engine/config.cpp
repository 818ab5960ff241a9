#include "config.h"

#include "../ops/statistics.h"
#include "../support/mutex.h"
#include "config_conflicts.h"
#include "config_table.h"
#include "config_unread.h"

namespace {

constexpr const char *kConfigFile = "quillbrook.conf";
constexpr const char *kConfigFileOther = "res-speech-quillbrook.conf";
// The date that operators see is of the usual place, also when the host keeps its configuration elsewhere.
constexpr const char *kConfigPaths[] = {"/etc/asterisk/quillbrook.conf", "/etc/asterisk/res-speech-quillbrook.conf"};

using Config = std::unique_ptr<ast_config, decltype(&ast_config_destroy)>;

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

const char *without_folder(const char *path) {
  const char *slash = strrchr(path, '/');
  return slash ? slash + 1 : path;
}

// The host tells no lines of sections, and the name of included files only.
ConfigFile copy_of(ast_config *config) {
  ConfigFile file;
  for (const char *name = ast_category_browse(config, nullptr); name; name = ast_category_browse(config, name)) {
    ConfigBlock &block = file.blocks.emplace_back();
    block.name = name;
    for (const ast_variable *line = ast_variable_browse(config, name); line; line = line->next) {
      const char *name_of_file = line->file[0] ? without_folder(line->file) : kConfigFile;
      block.entries.push_back({line->name, line->value, {name_of_file, line->lineno}});
    }
    block.place.file = block.entries.empty() ? kConfigFile : block.entries.front().place.file;
  }
  return file;
}

void say_conflicts(const quillbrook_engine_t &engine, const char *section) {
  for (const ConfigConflict &conflict : conflicts_of(engine)) {
    ast_log(LOG_WARNING, "[%s] %s\n", section, conflict.text.c_str());
  }
}

// What loses results, of the engines that there are and of the host.
void say_conflicts(const ConfigTable &table) {
  if (quillbrook_engine_wanted(table.engines[0])) {
    say_conflicts(table.engines[0], kGeneralSection);
  }
  for (int index = 1; index < kEngines && table.engines[index].name[0]; ++index) {
    say_conflicts(table.engines[index], table.engines[index].name);
  }
  if (host_caches_record_files()) {
    ast_log(LOG_WARNING,
            "asterisk.conf has cache_record_files = yes: the audio of calls is kept elsewhere, and nothing is heard\n");
  }
}

bool read(ast_config *config, ConfigTable &table, ConfigReading reading) {
  const ConfigFile file = copy_of(config);
  if (!fill_config_table(file, table, reading)) {
    return false;
  }
  for (const ConfigFinding &finding : find_unread(file, profile_names(table.profiles))) {
    ast_log(LOG_WARNING, "%s\n", sentence_of(finding).c_str());
  }
  say_conflicts(table);
  return true;
}

// Null after a message.
Config open_config_or_tell() {
  Config config(open_config(), ast_config_destroy);
  if (!config) {
    ast_log(LOG_WARNING, "No such configuration file %s\n", kConfigFile);
    ast_log(
        LOG_NOTICE,
        "If %s is there, the PBX cannot read it: see its own message above. Else copy quillbrook.conf.sample to it; "
        "everything in it may stay commented out.\n",
        kConfigFile);
  }
  return config;
}

}  // namespace

int quillbrook_engine_config_load() {
  const Config config = open_config_or_tell();
  if (!config) {
    return -1;
  }
  quillbrook_config_record_date();
  ConfigTable table;
  const bool loaded = read(config.get(), table, ConfigReading::kLoad);
  // Also when the reading came to an early end: the module's owner releases it.
  quillbrook_config_move_engines(table, quillbrook_engine);
  quillbrook_config_apply(table);
  return loaded ? 0 : -1;
}

bool quillbrook_config_read_again(ConfigTable &table) {
  const Config config = open_config_or_tell();
  return config && read(config.get(), table, ConfigReading::kReload);
}

void quillbrook_config_move_engines(ConfigTable &table, quillbrook_engine_t *engines) {
  std::copy(std::begin(table.engines), std::end(table.engines), engines);
  quillbrook_engine_clear(table.engines);
}

void quillbrook_config_apply(const ConfigTable &table) {
  shared_store(debug, table.debug);
  shared_store(verbose, table.verbose);
  shared_store(twin, table.twin);
  quillbrook_webenabled = table.webenabled;
}

void quillbrook_config_record_date() {
  for (const char *path : kConfigPaths) {
    struct stat status;
    if (stat(path, &status) == 0) {
      HostMutexLock lock(quillbrook_stat_lock);
      quillbrook_dates[kDateFile] = status.st_mtime;
      return;
    }
  }
}
