#include "engine.h"

#include "../support/mutex.h"

int debug;
int verbose;
int twin;
int threshold = kDefaultThreshold;
int quillbrook_webenabled = 1;
int quillbrook_webregged;

quillbrook_engine_t quillbrook_engine[kEngines];

namespace {

// A leaf: held for one assignment.
Mutex table_lock;

EngineTable table_of_load() {
  return {EngineTable(), quillbrook_engine};
}

// Never destroyed: a PBX that ends without unloading its modules may have calls on it.
alignas(EngineTable) char table_storage[sizeof(EngineTable)];
EngineTable &table QUILLBROOK_GUARDED_BY(table_lock) = *new (table_storage) EngineTable(table_of_load());

}  // namespace

EngineTable quillbrook_engines() {
  MutexLock held(table_lock);
  return table;
}

EngineTable quillbrook_engines_exchange(EngineTable engines) {
  MutexLock held(table_lock);
  table.swap(engines);
  return engines;
}

void quillbrook_engines_reset() {
  quillbrook_engines_exchange(table_of_load());
}

void quillbrook_engine_clear(quillbrook_engine_t *engines) {
  for (int index = 0; index < kEngines; ++index) {
    engines[index] = {};
    engines[index].index = index;
  }
}

void quillbrook_engine_table_init() {
  quillbrook_engine_clear(quillbrook_engine);
  quillbrook_engines_reset();
  debug = 0;
  verbose = 0;
  twin = 0;
  threshold = kDefaultThreshold;
  quillbrook_webenabled = 1;
  quillbrook_webregged = 0;
}

void quillbrook_engine_release_texts(quillbrook_engine_t &engine) {
  for (char **text : {&engine.plugin_name, &engine.ws_model, &engine.ws_language, &engine.ws_voice, &engine.ws_url,
                      &engine.ws_configuration, &engine.ws_context, &engine.ws_phrases, &engine.ws_extra,
                      &engine.ws_format, &engine.loggingtag, &engine.trace}) {
    ast_free(*text);
    *text = nullptr;
  }
}

void quillbrook_engine_host_name(const quillbrook_engine_t &engine, char *name, size_t size) {
  if (engine.index == 0) {
    snprintf(name, size, "%s", kEngineName);
  } else {
    snprintf(name, size, "%s:%s", kEngineName, engine.name);
  }
}
