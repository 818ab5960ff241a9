#include "speech_engines.h"

#include "../grammar/grammar_commands.h"
#include "../record/engine_statistics.h"
#include "../session/entries.h"

namespace {

// The host keeps names as char *, and never writes to them.
char default_engine_name[] = "quillbrook";

struct Record {
  struct ast_speech_engine *engine;  // `ast_engine`, or on the heap: the host uses it and does not own it
  bool known;                        // the host has it
  bool withdrawn;                    // by the latest withdrawal
};
std::vector<Record> records;

Record *find_record(const char *name) {
  for (Record &record : records) {
    if (strcmp(record.engine->name, name) == 0) {
      return &record;
    }
  }
  return nullptr;
}

Record *find_record(const quillbrook_engine_t &engine) {
  char name[kEngineNameSize];
  quillbrook_engine_host_name(engine, name, sizeof(name));
  return find_record(name);
}

void discard(struct ast_speech_engine *engine) {
  host_format_cap_release(engine->formats);
  engine->formats = nullptr;
  if (engine != &ast_engine) {
    ast_free(engine->name);
    ast_free(engine);
  }
}

bool offer(Record &record) {
  if (ast_speech_register(record.engine)) {
    if (record.engine == &ast_engine) {
      ast_log(LOG_ERROR, "Failed to register module\n");
    } else {
      ast_log(LOG_ERROR, "Failed to register module %s\n", record.engine->name);
    }
    return false;
  }
  quillbrook_statistics_of_engine(record.engine->name);  // shown from now on
  record.known = true;
  return true;
}

bool add_formats(struct ast_speech_engine *engine) {
  engine->formats = host_format_cap_slin();
  if (!engine->formats) {
    ast_log(LOG_ERROR, "Failed to alloc media format capabilities\n");
  }
  return engine->formats;
}

// Null when there is no memory.
struct ast_speech_engine *make_profile_engine(const char *name) {
  auto *engine = host_calloc<struct ast_speech_engine>();
  if (!engine) {
    return nullptr;
  }
  *engine = ast_engine;
  engine->name = ast_strdup(name);
  engine->formats = nullptr;
  if (!engine->name) {
    discard(engine);
    return nullptr;
  }
  return engine;
}

// A new record has its place before the host gets the engine. It goes again when the host refuses.
bool register_new(struct ast_speech_engine *engine) {
  try {
    records.push_back({engine, false, false});
  } catch (const std::bad_alloc &) {
    discard(engine);
    throw;
  }
  if (add_formats(engine) && offer(records.back())) {
    return true;
  }
  discard(engine);
  records.pop_back();
  return false;
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

bool quillbrook_register_engine(const quillbrook_engine_t &entry) {
  if (Record *record = find_record(entry)) {
    return record->known || offer(*record);
  }
  if (entry.index == 0) {
    return register_new(&ast_engine);
  }
  char name[kEngineNameSize];
  quillbrook_engine_host_name(entry, name, sizeof(name));
  struct ast_speech_engine *engine = make_profile_engine(name);
  if (!engine) {
    return true;
  }
  if (!register_new(engine)) {
    return false;
  }
  debug_notice(" Registred plugin : %s.\n", name);
  return true;
}

bool quillbrook_engine_is_registered(const quillbrook_engine_t &engine) {
  const Record *record = find_record(engine);
  return record && record->known;
}

bool quillbrook_withdraw_engines(const std::function<bool(const char *name)> &which) {
  bool any = false;
  for (Record &record : records) {
    record.withdrawn = record.known && which(record.engine->name);
    if (record.withdrawn) {
      record.known = false;
      record.withdrawn = ast_speech_unregister(record.engine->name) == 0;
    }
    any = any || record.withdrawn;
  }
  return any;
}

void quillbrook_offer_engines_again() {
  for (Record &record : records) {
    if (std::exchange(record.withdrawn, false)) {
      offer(record);
    }
  }
}

void quillbrook_offer_engine_again(const quillbrook_engine_t &engine) {
  Record *record = find_record(engine);
  if (record && std::exchange(record->withdrawn, false)) {
    offer(*record);
  }
}

bool quillbrook_engine_was_withdrawn(const quillbrook_engine_t &engine) {
  const Record *record = find_record(engine);
  return record && record->withdrawn;
}

void quillbrook_release_engines() {
  for (const Record &record : records) {
    discard(record.engine);
  }
  records.clear();
}
