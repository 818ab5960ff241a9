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

// Looks a function up by its first and then its second name.
template <typename Function>
void find_function(void *handle, Function *&function, const char *first, const char *second, std::string &failure) {
  void *symbol = dlsym(handle, first);
  if (!symbol) {
    symbol = dlsym(handle, second);
  }
  if (symbol) {
    function = reinterpret_cast<Function *>(symbol);
  } else if (failure.empty()) {
    // The error has no line end.
    failure = std::string("Failed to load the plugin function : ") + first + " / " + second;
  }
}

}  // namespace

std::string quillbrook_plugin_try(quillbrook_engine_t &engine) {
  char path[kPluginPathSize];
  if (!quillbrook_plugin_filename(path, sizeof(path), engine.plugin_name)) {
    return std::string("Failed to load the plugin : ") + engine.plugin_name + ": the path is longer than " +
           std::to_string(sizeof(path) - 1) + " bytes.\n";
  }
  engine.plugin_handle = dlopen(path, RTLD_LAZY);
  if (!engine.plugin_handle) {
    return std::string("Failed to load the plugin : ") + shown(dlerror()) + ".\n";
  }
  std::string failure;
  find_function(engine.plugin_handle, engine.plugin_init, "quillbrook_init", "init", failure);
  find_function(engine.plugin_handle, engine.plugin_loop, "quillbrook_loop", "loop", failure);
  find_function(engine.plugin_handle, engine.plugin_stop, "quillbrook_stop", "hangup", failure);
  if (!failure.empty()) {
    quillbrook_plugin_close(engine);
  }
  return failure;
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
