#include "speech_engines.h"

#include "../grammar/grammar_commands.h"
#include "../session/entries.h"

namespace {

// The host keeps names as char *, and never writes to them.
char default_engine_name[] = "quillbrook";

// The records of the profiles' engines, by index of their entry: the host uses them but does not own them.
struct ast_speech_engine *profile_engines[kEngines];

void release_profile_engine(struct ast_speech_engine *engine) {
  host_format_cap_release(engine->formats);
  ast_free(engine->name);
  ast_free(engine);
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
  ast_engine.formats = host_format_cap_slin();
  if (!ast_engine.formats) {
    ast_log(LOG_ERROR, "Failed to alloc media format capabilities\n");
    return false;
  }
  if (ast_speech_register(&ast_engine)) {
    ast_log(LOG_ERROR, "Failed to register module\n");
    quillbrook_release_default_formats();
    return false;
  }
  return true;
}

bool quillbrook_register_profile_engine(int index) {
  char name[kEngineNameSize];
  quillbrook_engine_host_name(quillbrook_engine[index], name, sizeof(name));
  auto *ast_engine_profile = host_calloc<struct ast_speech_engine>();
  if (!ast_engine_profile) {
    return true;
  }
  *ast_engine_profile = ast_engine;
  ast_engine_profile->name = ast_strdup(name);
  ast_engine_profile->formats = nullptr;
  if (!ast_engine_profile->name) {
    release_profile_engine(ast_engine_profile);
    return true;
  }
  ast_engine_profile->formats = host_format_cap_slin();
  if (!ast_engine_profile->formats) {
    ast_log(LOG_ERROR, "Failed to alloc media format capabilities\n");
    release_profile_engine(ast_engine_profile);
    return false;
  }
  if (ast_speech_register(ast_engine_profile)) {
    ast_log(LOG_ERROR, "Failed to register module %s\n", name);
    release_profile_engine(ast_engine_profile);
    return false;
  }
  profile_engines[index] = ast_engine_profile;
  debug_notice(" Registred plugin : %s.\n", name);
  return true;
}

bool quillbrook_unregister_default_engine() {
  return ast_speech_unregister(ast_engine.name) == 0;
}

bool quillbrook_unregister_profile_engine(int index) {
  char name[kEngineNameSize];
  quillbrook_engine_host_name(quillbrook_engine[index], name, sizeof(name));
  const bool known = ast_speech_unregister(name) == 0;
  if (profile_engines[index]) {
    release_profile_engine(profile_engines[index]);
    profile_engines[index] = nullptr;
  }
  return known;
}

void quillbrook_release_default_formats() {
  host_format_cap_release(ast_engine.formats);
  ast_engine.formats = nullptr;
}
