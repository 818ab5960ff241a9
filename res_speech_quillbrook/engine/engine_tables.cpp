#include "engine_tables.h"

#include "plugin_library.h"

void quillbrook_end_engines(quillbrook_engine_t *engines) {
  for (int index = 0; index < kEngines; ++index) {
    quillbrook_close_plugin(engines[index]);
    quillbrook_engine_release_texts(engines[index]);
  }
  if (engines[0].log_file) {
    fclose(engines[0].log_file);
  }
  if (engines == quillbrook_engine) {
    quillbrook_engine_clear(engines);
  } else {
    delete[] engines;
  }
}

EngineTable quillbrook_own_engines(quillbrook_engine_t *engines) {
  return {engines, quillbrook_end_engines};
}

bool quillbrook_close_plugin(quillbrook_engine_t &engine) {
  const int result = quillbrook_plugin_close(engine);
  if (result) {
    ast_log(LOG_ERROR, "Failed to unload the QuillBrook plugin : res=%d.\n", result);
  }
  return result == 0;
}
