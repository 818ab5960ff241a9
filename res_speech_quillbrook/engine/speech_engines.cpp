#include "speech_engines.h"

#include "../grammar/grammar_commands.h"
#include "../record/engine_statistics.h"
#include "../session/entries.h"

namespace {

// The host keeps names as char *, and never writes to them.
char default_engine_name[] = "quillbrook";

// The record of each engine by index of its entry, until it is released, and whether the host knows it. Entry 0 has
// `ast_engine`; the records of the profiles are on the heap: the host uses them but does not own them.
struct ast_speech_engine *engines[kEngines];
bool known[kEngines];

void discard(struct ast_speech_engine *engine) {
  host_format_cap_release(engine->formats);
  engine->formats = nullptr;
  if (engine != &ast_engine) {
    ast_free(engine->name);
    ast_free(engine);
  }
}

bool offer(int index, struct ast_speech_engine *engine) {
  if (ast_speech_register(engine)) {
    if (index == 0) {
      ast_log(LOG_ERROR, "Failed to register module\n");
    } else {
      ast_log(LOG_ERROR, "Failed to register module %s\n", engine->name);
    }
    return false;
  }
  quillbrook_statistics_of_engine(engine->name);  // shown from now on
  engines[index] = engine;
  known[index] = true;
  return true;
}

bool add_formats(struct ast_speech_engine *engine) {
  engine->formats = host_format_cap_slin();
  if (!engine->formats) {
    ast_log(LOG_ERROR, "Failed to alloc media format capabilities\n");
  }
  return engine->formats;
}

}  // namespace

struct ast_speech_engine ast_engine = {
    .name = default_engine_name,
    .create = quillbrook_recog_create,
    .destroy = quillbrook_recog_destroy,
    .load = quillbrook_recog_load_grammar,
    .unload = quillbrook_recog_unload_grammar,
    .activate = quillbrook_recog_activate_grammar,
    .deactivate = quillbrook_recog_deactivate_grammar,
    .write = quillbrook_recog_write,
    .dtmf = quillbrook_recog_dtmf,
    .start = quillbrook_recog_start,
    .change = quillbrook_recog_change,
    .get_setting = quillbrook_recog_get_settings,
    .change_results_type = quillbrook_recog_change_results_type,
    .get = quillbrook_recog_get,
    .formats = nullptr,
    .list = {},
};

bool quillbrook_register_default_engine() {
  if (add_formats(&ast_engine) && offer(0, &ast_engine)) {
    return true;
  }
  discard(&ast_engine);
  return false;
}

bool quillbrook_register_profile_engine(int index) {
  char name[kEngineNameSize];
  quillbrook_engine_host_name(quillbrook_engine[index], name, sizeof(name));
  auto *engine = host_calloc<struct ast_speech_engine>();
  if (!engine) {
    return true;
  }
  *engine = ast_engine;
  engine->name = ast_strdup(name);
  engine->formats = nullptr;
  if (!engine->name) {
    discard(engine);
    return true;
  }
  if (!add_formats(engine) || !offer(index, engine)) {
    discard(engine);
    return false;
  }
  debug_notice(" Registred plugin : %s.\n", name);
  return true;
}

bool quillbrook_withdraw_engine(int index) {
  return std::exchange(known[index], false) && ast_speech_unregister(engines[index]->name) == 0;
}

void quillbrook_offer_engine_again(int index) {
  if (engines[index]) {
    offer(index, engines[index]);
  }
}

void quillbrook_release_engine(int index) {
  if (engines[index]) {
    discard(engines[index]);
    engines[index] = nullptr;
  }
}
