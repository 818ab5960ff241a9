#include "plugin_library.h"

bool quillbrook_plugin_filename(char *path, size_t size, const char *plugin_name) {
  int length;
  if (!plugin_name) {
    length = snprintf(path, size, "%s/plugin_dummy.so", kPluginDirectory);
  } else if (plugin_name[0] == '/' || plugin_name[0] == '.') {
    length = snprintf(path, size, "%s", plugin_name);
  } else {
    length = snprintf(path, size, "%s/%s", kPluginDirectory, plugin_name);
  }
  return static_cast<size_t>(length) < size;
}

namespace {

// What the fixed texts of the errors leave out: whose plugin it is, and where plugins are looked for.
void say_where_to_look(const quillbrook_engine_t &engine, const char *path) {
  ast_log(LOG_NOTICE, "%s is asked for by the key plugin of the section %s: the name of a plugin in %s, or a path.\n",
          path, &engine == &quillbrook_engine[0] ? "general" : engine.name, kPluginDirectory);
}

// Looks a function up by its first and then its second name.
template <typename Function>
bool find_function(const quillbrook_engine_t &engine, const char *path, Function *&function, const char *first,
                   const char *second) {
  void *symbol = dlsym(engine.plugin_handle, first);
  if (!symbol) {
    symbol = dlsym(engine.plugin_handle, second);
  }
  if (!symbol) {
    // In front, because the error has no line end.
    say_where_to_look(engine, path);
    ast_log(LOG_ERROR, "Failed to load the plugin function : %s / %s", first, second);
    return false;
  }
  function = reinterpret_cast<Function *>(symbol);
  return true;
}

}  // namespace

bool quillbrook_plugin_open(quillbrook_engine_t &engine) {
  char path[kPluginPathSize];
  if (!quillbrook_plugin_filename(path, sizeof(path), engine.plugin_name)) {
    ast_log(LOG_ERROR, "Failed to load the plugin : %s: the path is longer than %zu bytes.\n", engine.plugin_name,
            sizeof(path) - 1);
    return false;
  }
  debug_notice(" Try to open plugin : %s.\n", path);
  engine.plugin_handle = dlopen(path, RTLD_LAZY);
  if (!engine.plugin_handle) {
    ast_log(LOG_ERROR, "Failed to load the plugin : %s.\n", shown(dlerror()));
    say_where_to_look(engine, path);
    return false;
  }
  if (find_function(engine, path, engine.plugin_init, "quillbrook_init", "init") &&
      find_function(engine, path, engine.plugin_loop, "quillbrook_loop", "loop") &&
      find_function(engine, path, engine.plugin_stop, "quillbrook_stop", "hangup")) {
    return true;
  }
  quillbrook_plugin_close(engine);
  return false;
}

int quillbrook_plugin_close(quillbrook_engine_t &engine) {
  if (!engine.plugin_handle) {
    return 0;
  }
  const int result = dlclose(engine.plugin_handle);
  engine.plugin_handle = nullptr;
  engine.plugin_init = nullptr;
  engine.plugin_loop = nullptr;
  engine.plugin_stop = nullptr;
  return result;
}
