// The entry points that the host's module loader calls.

#include "../host.h"
#include "../ops/cli_commands.h"
#include "../ops/http_jsgf.h"
#include "../ops/http_metrics.h"
#include "../observe/reporter.h"
#include "../ops/statistics.h"
#include "../support/guard.h"
#include "../session/watch.h"
#include "../support/module_use.h"
#include "../support/own_files.h"
#include "cli_configuration.h"
#include "cli_recognize.h"
#include "config.h"
#include "config_reload.h"
#include "../record/engine.h"
#include "../record/engine_statistics.h"
#include "../record/shared_grammars.h"
#include "engine_plugin.h"
#include "engine_tables.h"
#include "plugin_library.h"
#include "speech_engines.h"

namespace {

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
  const auto open_and_register = [](quillbrook_engine_t &engine) {
    return quillbrook_plugin_open(engine) && quillbrook_register_engine(engine);
  };
  if (quillbrook_engine_wanted(quillbrook_engine[0]) && !open_and_register(quillbrook_engine[0])) {
    return false;
  }
  for (int index = 1; index < kEngines && quillbrook_engine[index].name[0]; ++index) {
    debug_notice("Add profile = %s\n", quillbrook_engine[index].name);
    if (!open_and_register(quillbrook_engine[index])) {
      return false;
    }
  }
  quillbrook_watch_start();
  quillbrook_reporter_start();
  quillbrook_http_update();
  quillbrook_jsgf_uri_link();
  if (!register_commands()) {
    ast_log(LOG_ERROR, "Failed to register QuillBrook CLI commands\n");
    return false;
  }
  quillbrook_engines_exchange(quillbrook_own_engines(quillbrook_engine));
  return true;
}

void unlink_uris() {
  quillbrook_webenabled = 0;
  quillbrook_http_update();
  quillbrook_jsgf_uri_unlink();
}

bool any_engine(const char *) {
  return true;
}

// Takes back all that a failed load had done: an engine left registered would lead calls into a module that is gone.
// What had not been done yet is passed over.
void withdraw() {
  unlink_uris();
  unregister_commands();
  const bool was_offered = quillbrook_withdraw_engines(any_engine);
  // Who has found an engine is turned away, and gone in the end.
  while (was_offered && !quillbrook_module_at_rest()) {
  }
  quillbrook_watch_stop();
  quillbrook_reporter_stop();
  quillbrook_forget_shared_grammars();
  quillbrook_close_own_files();
  quillbrook_release_engines();
  quillbrook_end_engines(quillbrook_engine);
  quillbrook_engine_statistics_clear();
  quillbrook_statistics_destroy();
}

// Gives whether the metrics were wanted.
int withdraw_for_unload() {
  const int webenabled = quillbrook_webenabled;
  unlink_uris();
  unregister_commands();
  quillbrook_withdraw_engines(any_engine);
  return webenabled;
}

void give_back(int webenabled) {
  quillbrook_webenabled = webenabled;
  quillbrook_http_update();
  quillbrook_jsgf_uri_link();
  if (!register_commands()) {
    ast_log(LOG_ERROR, "Failed to register QuillBrook CLI commands\n");
  }
  quillbrook_offer_engines_again();
}

void unload_profile(quillbrook_engine_t &engine) {
  debug_notice("Remove profile = %s\n", engine.name);
  quillbrook_close_plugin(engine);
  if (!quillbrook_engine_was_withdrawn(engine)) {
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
  const ReloadTurn turn;
  if (!turn.taken()) {
    ast_log(LOG_NOTICE, "The configuration is being read: the module stays loaded.\n");
    return -1;
  }
  const int webenabled = withdraw_for_unload();
  if (!quillbrook_module_at_rest()) {
    give_back(webenabled);
    ast_log(LOG_NOTICE, "A session began meanwhile: the module stays loaded.\n");
    return -1;
  }
  quillbrook_module_set_open(false);
  EngineTable engines = quillbrook_engines();
  quillbrook_for_each_profile(engines, unload_profile);
  // Entries behind a hole in the list of profiles have texts, but neither plugin nor engine.
  for (int index = 0; index < kEngines; ++index) {
    quillbrook_engine_release_texts(engines[index]);
  }
  if (!quillbrook_close_plugin(engines[0])) {
    // The default engine stays, and refuses every session.
    quillbrook_offer_engine_again(engines[0]);
    return -1;
  }
  debug_notice("Unload res_speech_quillbrook module\n");
  if (!quillbrook_engine_was_withdrawn(engines[0])) {
    ast_log(LOG_ERROR, "Failed to unregister module\n");
  }
  quillbrook_release_engines();
  quillbrook_watch_stop();
  quillbrook_reporter_stop();
  quillbrook_forget_shared_grammars();
  quillbrook_close_own_files();
  quillbrook_engines_reset();
  engines = nullptr;
  quillbrook_engine_statistics_clear();
  quillbrook_statistics_destroy();
  return 0;
}

int unload_module() {
  return guarded("unload_module", -1, unload);
}

// Nothing is read again: that is what the command `quillbrook reload` is for, which says what it finds.
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
