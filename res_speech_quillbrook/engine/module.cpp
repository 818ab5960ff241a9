// The entry points that the host's module loader calls.

#include "../host.h"
#include "../ops/cli_commands.h"
#include "../ops/http_jsgf.h"
#include "../ops/http_metrics.h"
#include "../ops/statistics.h"
#include "../support/guard.h"
#include "../session/watch.h"
#include "../support/module_use.h"
#include "../support/own_files.h"
#include "cli_configuration.h"
#include "cli_recognize.h"
#include "config.h"
#include "../record/engine.h"
#include "../record/engine_statistics.h"
#include "engine_plugin.h"
#include "plugin_library.h"
#include "speech_engines.h"

namespace {

void close_log_file() {
  if (quillbrook_engine[0].log_file) {
    fclose(quillbrook_engine[0].log_file);
    quillbrook_engine[0].log_file = nullptr;
  }
}

// What was not registered is passed over.
void unregister_commands() {
  quillbrook_cli_unregister();
  quillbrook_cli_configuration_unregister();
  quillbrook_cli_recognize_unregister();
}

bool register_commands() {
  if (quillbrook_cli_register() || quillbrook_cli_configuration_register() || quillbrook_cli_recognize_register()) {
    unregister_commands();
    return false;
  }
  return true;
}

// The steps of the load that can fail. What was done before a failure stands; `withdraw` undoes it.
bool load() {
  if (quillbrook_engine_config_load()) {
    ast_log(LOG_ERROR, "Error in the configuration file.\n");
    return false;
  }
  if (const int removed = quillbrook_remove_stale_files()) {
    ast_log(LOG_NOTICE, "Removed %d files that a PBX which is gone had left in /tmp\n", removed);
  }
  debug_notice(" Info : LD_LIBRARY_PATH =%s\n", shown(getenv("LD_LIBRARY_PATH")));
  if (quillbrook_default_engine_wanted() &&
      !(quillbrook_plugin_open(quillbrook_engine[0]) && quillbrook_register_default_engine())) {
    return false;
  }
  for (int index = 1; index < kEngines && quillbrook_engine[index].name[0]; ++index) {
    debug_notice("Add profile = %s\n", quillbrook_engine[index].name);
    if (!quillbrook_plugin_open(quillbrook_engine[index]) || !quillbrook_register_profile_engine(index)) {
      return false;
    }
  }
  quillbrook_watch_start();
  quillbrook_http_update();
  quillbrook_jsgf_uri_link();
  if (!register_commands()) {
    ast_log(LOG_ERROR, "Failed to register QuillBrook CLI commands\n");
    return false;
  }
  return true;
}

void unlink_uris() {
  quillbrook_webenabled = 0;
  quillbrook_http_update();
  quillbrook_jsgf_uri_unlink();
}

// Takes back all that a failed load had done: an engine left registered would lead calls into a module that is gone.
// What had not been done yet is passed over.
void withdraw() {
  unlink_uris();
  bool was_offered = false;
  for (int index = 0; index < kEngines; ++index) {
    was_offered = quillbrook_withdraw_engine(index) || was_offered;
  }
  // Who has found an engine is turned away, and gone in the end.
  while (was_offered && !quillbrook_module_at_rest()) {
  }
  quillbrook_watch_stop();
  quillbrook_close_own_files();
  for (int index = 0; index < kEngines; ++index) {
    quillbrook_release_engine(index);
    quillbrook_plugin_close(quillbrook_engine[index]);
    quillbrook_engine_release_texts(quillbrook_engine[index]);
  }
  close_log_file();
  quillbrook_engine_statistics_clear();
  quillbrook_statistics_destroy();
}

// What the unload has taken from the host, to be given back when it cannot go on.
struct Withdrawn {
  int webenabled;
  bool engines[kEngines];
};

Withdrawn withdraw_for_unload() {
  Withdrawn withdrawn = {quillbrook_webenabled, {}};
  unlink_uris();
  unregister_commands();
  for (int index = 0; index < kEngines; ++index) {
    withdrawn.engines[index] = quillbrook_withdraw_engine(index);
  }
  return withdrawn;
}

void give_back(const Withdrawn &withdrawn) {
  quillbrook_webenabled = withdrawn.webenabled;
  quillbrook_http_update();
  quillbrook_jsgf_uri_link();
  if (!register_commands()) {
    ast_log(LOG_ERROR, "Failed to register QuillBrook CLI commands\n");
  }
  for (int index = 0; index < kEngines; ++index) {
    if (withdrawn.engines[index]) {
      quillbrook_offer_engine_again(index);
    }
  }
}

bool close_plugin(quillbrook_engine_t &engine) {
  const int result = quillbrook_plugin_close(engine);
  if (result) {
    ast_log(LOG_ERROR, "Failed to unload the QuillBrook plugin : res=%d.\n", result);
  }
  return result == 0;
}

void unload_profile(quillbrook_engine_t &engine, bool was_offered) {
  debug_notice("Remove profile = %s\n", engine.name);
  close_plugin(engine);
  if (!was_offered) {
    char name[kEngineNameSize];
    quillbrook_engine_host_name(engine, name, sizeof(name));
    ast_log(LOG_ERROR, "Failed to unregister module %s\n", name);
  }
}

enum ast_module_load_result load_module() {
  quillbrook_engine_table_init();
  quillbrook_statistics_init();
  quillbrook_module_set_open(false);
  if (guarded("load_module", false, load)) {
    quillbrook_module_set_open(true);
    return AST_MODULE_LOAD_SUCCESS;
  }
  withdraw();
  return AST_MODULE_LOAD_FAILURE;
}

int unload() {
  const Withdrawn withdrawn = withdraw_for_unload();
  if (!quillbrook_module_at_rest()) {
    give_back(withdrawn);
    ast_log(LOG_NOTICE, "A session began meanwhile: the module stays loaded.\n");
    return -1;
  }
  quillbrook_module_set_open(false);
  quillbrook_for_each_profile([&](quillbrook_engine_t &engine, int index) {
    unload_profile(engine, withdrawn.engines[index]);
    quillbrook_release_engine(index);
  });
  // Entries behind a hole in the list of profiles have texts, but neither plugin nor engine.
  for (quillbrook_engine_t &engine : quillbrook_engine) {
    quillbrook_engine_release_texts(engine);
  }
  if (!close_plugin(quillbrook_engine[0])) {
    // The default engine stays, and refuses every session.
    quillbrook_offer_engine_again(0);
    return -1;
  }
  debug_notice("Unload res_speech_quillbrook module\n");
  if (!withdrawn.engines[0]) {
    ast_log(LOG_ERROR, "Failed to unregister module\n");
  }
  quillbrook_release_engine(0);
  quillbrook_watch_stop();
  quillbrook_close_own_files();
  close_log_file();
  quillbrook_engine_statistics_clear();
  quillbrook_statistics_destroy();
  return 0;
}

int unload_module() {
  return guarded("unload_module", -1, unload);
}

// Nothing is read again: a change of the configuration takes effect when the module is unloaded and loaded.
int reload_module() {
  quillbrook_statistics_stamp(kDateReload);
  return 1;
}

}  // namespace

AST_MODULE_INFO(ASTERISK_GPL_KEY, AST_MODFLAG_DEFAULT, "QuillBrook Speech Engine", load_module, unload_module,
                reload_module, AST_MODPRI_APP_DEPEND, AST_MODULE_SUPPORT_CORE);

struct ast_module *host_module_self() {
  return ast_module_info->self;
}
