#include "engine.h"

int debug;
int verbose;
int twin;
int threshold = kDefaultThreshold;
int quillbrook_webenabled = 1;
int quillbrook_webregged;

quillbrook_engine_t quillbrook_engine[kEngines];

void quillbrook_engine_table_init() {
  std::fill(std::begin(quillbrook_engine), std::end(quillbrook_engine), quillbrook_engine_t{});
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
                      &engine.ws_format, &engine.loggingtag}) {
    ast_free(*text);
    *text = nullptr;
  }
}

void quillbrook_engine_host_name(const quillbrook_engine_t &engine, char *name, size_t size) {
  if (&engine == &quillbrook_engine[0]) {
    snprintf(name, size, "%s", kEngineName);
  } else {
    snprintf(name, size, "%s:%s", kEngineName, engine.name);
  }
}
