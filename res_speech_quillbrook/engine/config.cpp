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

// Makes the table the module's, also when its reading came to an early end: the module's owner releases it.
void adopt(ConfigTable &table) {
  std::copy(std::begin(table.engines), std::end(table.engines), std::begin(quillbrook_engine));
  std::fill(std::begin(table.engines), std::end(table.engines), quillbrook_engine_t{});
  debug = table.debug;
  verbose = table.verbose;
  twin = table.twin;
  quillbrook_webenabled = table.webenabled;
}

void say_conflicts(const quillbrook_engine_t &engine, const char *section) {
  for (const ConfigConflict &conflict : conflicts_of(engine)) {
    ast_log(LOG_WARNING, "[%s] %s\n", section, conflict.text.c_str());
  }
}

// What loses results, of the engines that there are and of the host.
void say_conflicts() {
  if (quillbrook_default_engine_wanted()) {
    say_conflicts(quillbrook_engine[0], kGeneralSection);
  }
  quillbrook_for_each_profile([](const quillbrook_engine_t &engine, int) { say_conflicts(engine, engine.name); });
  if (host_caches_record_files()) {
    ast_log(LOG_WARNING,
            "asterisk.conf has cache_record_files = yes: the audio of calls is kept elsewhere, and nothing is heard\n");
  }
}

bool load(const ConfigFile &file) {
  ConfigTable table;
  const bool loaded = fill_config_table(file, table, ConfigReading::kLoad);
  adopt(table);
  if (loaded) {
    for (const ConfigFinding &finding : find_unread(file, profile_names(table.profiles))) {
      ast_log(LOG_WARNING, "%s\n", sentence_of(finding).c_str());
    }
    say_conflicts();
  }
  return loaded;
}

}  // namespace

int quillbrook_engine_config_load() {
  const Config config(open_config(), ast_config_destroy);
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
  return load(copy_of(config.get())) ? 0 : -1;
}
