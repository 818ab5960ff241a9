#include "cli_plugins.h"

namespace {

const char *text_or_nothing(const char *text) {
  return text ? text : "";
}

const char *yes_or_no(bool flag) {
  return flag ? "yes" : "no";
}

// A default engine without a name is shown all the same, as long as there is a plugin to it.
bool default_engine_in_use(const quillbrook_engine_t &engine) {
  return engine.name[0] || !ast_strlen_zero(engine.plugin_name) || engine.plugin_handle;
}

}  // namespace

void quillbrook_cli_show_plugin(int fd, int index, const quillbrook_engine_t *engine) {
  // Keeps the colons in one column.
  const int blanks = index < 10 ? 6 : 5;
  const auto text = [fd](const char *format, const char *value) { ast_cli(fd, format, text_or_nothing(value)); };
  const auto flag = [fd](const char *format, bool value) { ast_cli(fd, format, yes_or_no(value)); };

  ast_cli(fd, "Plugin[%d]%*s: %s\n", index, blanks, "", engine->name[0] ? engine->name : "default");
  flag(" Loaded       : %s\n", engine->plugin_handle != nullptr);
  text(" Provider     : %s\n", engine->plugin_name);
  ast_cli(fd, "Configuration\n");
  text(" url          : %s\n", engine->ws_url);
  text(" model        : %s\n", engine->ws_model);
  text(" language     : %s\n", engine->ws_language);
  text(" voice        : %s\n", engine->ws_voice);
  text(" context      : %s\n", engine->ws_context);
  text(" configuration: %s\n", engine->ws_configuration);
  text(" format       : %s\n", engine->ws_format);
  ast_cli(fd, " buffer_size  : %d\n", engine->ws_buffer_size);
  flag(" endpointing  : %s\n", engine->endpointing);
  flag(" continuous   : %s\n", engine->continuous);
  flag(" return_json  : %s\n", engine->returnjson);
  flag(" return_nlsml : %s\n", engine->returnnlsml);
  flag(" keep_files   : %s\n", engine->keepfiles);
  ast_cli(fd, " wait_close   : %s (%d ms)\n", yes_or_no(engine->waitclose), engine->closetimeout);
  flag(" timeouts     : %s\n", engine->timeouts);
  ast_cli(fd, " complete     : %d\n", engine->completetimeout);
  ast_cli(fd, " incomplete   : %d\n", engine->incompletetimeout);
  ast_cli(fd, " speech       : %d\n", engine->speechtimeout);
  ast_cli(fd, " extended     : %d\n", engine->extendedtimeout);
  ast_cli(fd, " provider     : %d\n", engine->providertimeout);
  text(" phrases      : %s\n", engine->ws_phrases);
  text(" extra        : %s\n", engine->ws_extra);
  ast_cli(fd, "\n");
}

void quillbrook_cli_show_plugins(int fd) {
  ast_cli(fd, "QuillBrook plugins\n");
  ast_cli(fd, "==================\n");
  const EngineTable engines = quillbrook_engines();
  bool any = default_engine_in_use(engines[0]);
  if (any) {
    quillbrook_cli_show_plugin(fd, 0, &engines[0]);
  }
  quillbrook_for_each_profile(engines, [fd, &any](const quillbrook_engine_t &engine) {
    quillbrook_cli_show_plugin(fd, engine.index, &engine);
    any = true;
  });
  if (!any) {
    ast_cli(fd, "No QuillBrook plugin configured.\n");
  }
}
