#include "engine_plugin.h"

#include "../result/services.h"
#include "../support/guard.h"
#include "plugin_library.h"

namespace {

// What the fixed texts of the errors leave out: whose plugin it is, and where plugins are looked for.
void say_where_to_look(const quillbrook_engine_t &engine, const char *path) {
  ast_log(LOG_NOTICE, "%s is asked for by the key plugin of the section %s: the name of a plugin in %s, or a path.\n",
          path, engine.index == 0 ? "general" : engine.name, kPluginDirectory);
}

void attach(const quillbrook_engine_t &engine) {
  if (void *symbol = dlsym(engine.plugin_handle, "quillbrook_attach")) {
    auto *function = reinterpret_cast<quillbrook_function_attach *>(symbol);
    guarded("quillbrook_attach", 0, [function] {
      function(&quillbrook_services_offered);
      return 0;
    });
  }
}

}  // namespace

bool quillbrook_plugin_open(quillbrook_engine_t &engine) {
  char path[kPluginPathSize];
  const bool fits = quillbrook_plugin_filename(path, sizeof(path), engine.plugin_name);
  if (fits) {
    debug_notice(" Try to open plugin : %s.\n", path);
  }
  const std::string failure = quillbrook_plugin_try(engine);
  if (failure.empty()) {
    attach(engine);
    return true;
  }
  if (fits) {
    say_where_to_look(engine, path);
  }
  ast_log(LOG_ERROR, "%s", failure.c_str());
  return false;
}
