// The entry points that the host's module loader calls.

#include "../host.h"
#include "../ops/cli_commands.h"
#include "../ops/http_jsgf.h"
#include "../ops/http_metrics.h"
#include "../ops/statistics.h"
#include "../support/guard.h"
#include "../session/watch.h"
#include "config.h"
#include "../record/engine.h"
#include "plugin_library.h"
#include "speech_engines.h"

namespace {

// The key `plugin` of `general`, present with no value, asks for no default engine: only the profiles are offered.
bool default_engine_wanted() {
  return !quillbrook_engine[0].plugin_name || quillbrook_engine[0].plugin_name[0];
}

void close_log_file() {
  if (quillbrook_engine[0].log_file) {
    fclose(quillbrook_engine[0].log_file);
    quillbrook_engine[0].log_file = nullptr;
  }
}

// The steps of the load that can fail. What was done before a failure stands; `withdraw` undoes it.
bool load() {
  if (quillbrook_engine_config_load()) {
    ast_log(LOG_ERROR, "Error in the configuration file.\n");
    return false;
  }
  debug_notice(" Info : LD_LIBRARY_PATH =%s\n", shown(getenv("LD_LIBRARY_PATH")));
  if (default_engine_wanted() &&
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
  if (quillbrook_cli_register()) {
    ast_log(LOG_ERROR, "Failed to register QuillBrook CLI commands\n");
    return false;
  }
  return true;
}

// Takes back all that a failed load had done, the last step first: an engine left registered would lead calls into a
// module that is gone. What had not been done yet is passed over.
void withdraw() {
  quillbrook_watch_stop();
  quillbrook_jsgf_uri_unlink();
  quillbrook_webenabled = 0;
  quillbrook_http_update();
  for (int index = kEngines - 1; index > 0; --index) {
    quillbrook_engine_t &engine = quillbrook_engine[index];
    if (engine.plugin_handle) {
      quillbrook_unregister_profile_engine(index);
      quillbrook_plugin_close(engine);
    }
    quillbrook_engine_release_texts(engine);
  }
  if (ast_engine.formats) {
    quillbrook_unregister_default_engine();
    quillbrook_release_default_formats();
  }
  quillbrook_plugin_close(quillbrook_engine[0]);
  quillbrook_engine_release_texts(quillbrook_engine[0]);
  close_log_file();
  quillbrook_statistics_destroy();
}

void unload_profile(quillbrook_engine_t &engine, int index) {
  debug_notice("Remove profile = %s\n", engine.name);
  quillbrook_engine_release_texts(engine);
  if (const int result = quillbrook_plugin_close(engine)) {
    ast_log(LOG_ERROR, "Failed to unload the QuillBrook plugin : res=%d.\n", result);
  }
  if (!quillbrook_unregister_profile_engine(index)) {
    char name[kEngineNameSize];
    quillbrook_engine_host_name(engine, name, sizeof(name));
    ast_log(LOG_ERROR, "Failed to unregister module %s\n", name);
  }
}

enum ast_module_load_result load_module() {
  quillbrook_engine_table_init();
  quillbrook_statistics_init();
  if (guarded("load_module", false, load)) {
    return AST_MODULE_LOAD_SUCCESS;
  }
  withdraw();
  return AST_MODULE_LOAD_FAILURE;
}

int unload_module() {
  return guarded("unload_module", -1, [] {
    quillbrook_webenabled = 0;
    quillbrook_http_update();
    quillbrook_jsgf_uri_unlink();
    quillbrook_cli_unregister();
    quillbrook_for_each_profile(unload_profile);
    // Entries behind a hole in the list of profiles have texts, but neither plugin nor engine.
    for (quillbrook_engine_t &engine : quillbrook_engine) {
      quillbrook_engine_release_texts(engine);
    }
    quillbrook_release_default_formats();
    if (const int result = quillbrook_plugin_close(quillbrook_engine[0])) {
      ast_log(LOG_ERROR, "Failed to unload the QuillBrook plugin : res=%d.\n", result);
      return -1;
    }
    debug_notice("Unload res_speech_quillbrook module\n");
    if (!quillbrook_unregister_default_engine()) {
      ast_log(LOG_ERROR, "Failed to unregister module\n");
    }
    quillbrook_watch_stop();
    close_log_file();
    quillbrook_statistics_destroy();
    return 0;
  });
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
