// The engines of the module: one record of settings and one plugin each, in a fixed table.
//
// Entry 0 holds the section `general` of the configuration and serves the host engine "quillbrook"; entries 1 to 99
// hold the profiles, in the order of the configuration's list, and serve "quillbrook:NAME". An empty name ends every
// walk over the profiles. A table is written before it becomes the one of now, and when nobody holds it any more; it is
// only read in between, so it has no lock. The load fills `quillbrook_engine`, and each reload of the configuration
// makes another table: sessions hold the one that they began with for their whole life.
#pragma once

#include "../host.h"
#include "../support/log.h"
#include "quillbrook.h"

// Texts are heap copies owned by the table, or null. Flags are 0 or 1. Times are milliseconds.
struct quillbrook_engine_t {
  char name[100];     // the profile's name; in entry 0 a label that may be empty
  char *plugin_name;  // file name or path of the plugin
  void *plugin_handle;
  quillbrook_function_init *plugin_init;
  quillbrook_function_loop *plugin_loop;
  quillbrook_function_stop *plugin_stop;
  int log_level;   // stored only
  FILE *log_file;  // for plugins, entry 0 only
  char *ws_url;
  char *ws_model;
  char *ws_language;
  char *ws_voice;
  char *ws_context;  // profiles only
  char *ws_configuration;
  char *ws_phrases;
  char *ws_format;  // format and file extension of the stream
  char *ws_key;     // not used
  char *ws_extra;   // profiles only
  int ws_buffer_size;
  int dsp;  // flag: measure silence in the audio
  int threshold;
  int both_silences;  // flag: the audio has to be silent too, not only the words
  int endpointing;    // flag: the pieces of a text are sentences
  int returnjson;
  int returnnlsml;
  int jsonpieces;  // flag: the JSON of an utterance is that of all its pieces
  int logtag;
  int keepfiles;
  int continuous;  // flag: one plugin context for all results of a session
  int separate;    // flag: each result of a continuous session is an utterance of its own
  int waitclose;   // flag: the end of a recognition waits for the plugin's session end
  int closetimeout;
  float speedvsaccuracy;
  int minspeechtimeout;
  int normalize_phrases;  // 0 no, 1 phrases, 2 phrases and grammars
  int maxspeechtimeout;
  int timeouts;  // flag: the complete and incomplete timeouts run
  int completetimeout;
  int incompletetimeout;
  int speechtimeout;
  int extendedtimeout;
  int earlyspeechtimeout;
  int providertimeout;
  int plugintimeout;  // how long a plugin may be silent once words came; 0 is for ever
  int stoptimeout;    // how long a plugin has to return from its loop; 0 is for ever
  char *loggingtag;
  int index;            // place in the table
  int grammartimeouts;  // flag: what the grammars say to a text chooses the limit of its silence
  int matchtimeout;     // that limit behind what nothing may follow; 0: completetimeout
  int events;           // quillbrook_events
  char *trace;          // folder, null or empty for none
};

// Whether the results of the engine's sessions are utterances of their own. Of a single-shot session there is one.
inline bool quillbrook_utterances_are_separate(const quillbrook_engine_t &engine) {
  return engine.continuous && engine.separate;
}

constexpr int kEngines = 100;
// The default engine's name in the host; a profile's is "quillbrook:NAME".
inline constexpr char kEngineName[] = "quillbrook";
// Bytes for the name of a host engine, its zero included; it bounds a profile's name.
constexpr int kEngineNameSize = 100;
constexpr int kProfileNameMax = kEngineNameSize - 1 - static_cast<int>(sizeof(kEngineName));
constexpr int kDefaultThreshold = 150;

extern quillbrook_engine_t quillbrook_engine[kEngines];

// The kEngines entries of one reading of the configuration. Who holds it keeps its texts and its plugins.
using EngineTable = std::shared_ptr<quillbrook_engine_t[]>;

// The table of now; that of the load at first. Any thread.
EngineTable quillbrook_engines();

// Makes another table the one of now, and gives the former. Sessions that begin bind to the new one.
EngineTable quillbrook_engines_exchange(EngineTable engines);

// Makes the table of the load the one of now, held by nobody.
void quillbrook_engines_reset();

// The key `plugin` of `general`, present with no value, asks for no default engine: only the profiles are offered.
inline bool quillbrook_engine_wanted(const quillbrook_engine_t &general) {
  return !general.plugin_name || general.plugin_name[0];
}

// Settings of the whole module, from the section `general`: written by the load and by a reload, and shared
// (support/shared_flag.h). `debug` and `verbose` stand in support/log.h.
extern int twin;                   // a second plugin record for each recognition
extern int threshold;              // the default of the key `threshold`
extern int quillbrook_webenabled;  // the metrics URI is wanted
extern int quillbrook_webregged;   // the metrics URI is linked

// Zeroes the table of the load, which becomes the one of now, and gives the module's settings their initial values.
// Done at each load and not only by the loader of shared objects: the library may have stayed in memory since an
// earlier load.
void quillbrook_engine_table_init();

// Zeroes the entries of a table and gives them their places.
void quillbrook_engine_clear(quillbrook_engine_t *engines);

// Releases the texts of an entry and clears them.
void quillbrook_engine_release_texts(quillbrook_engine_t &engine);

// The name by which the host knows the engine of an entry of the table.
void quillbrook_engine_host_name(const quillbrook_engine_t &engine, char *name, size_t size);

// The same for one log line.
struct EngineHostName {
  explicit EngineHostName(const quillbrook_engine_t &engine) {
    quillbrook_engine_host_name(engine, text, sizeof(text));
  }
  char text[kEngineNameSize];
};

// Calls `visit(engine)` for the entries from 1 up to the first empty name.
template <typename Visit>
void quillbrook_for_each_profile(const EngineTable &engines, Visit &&visit) {
  for (int index = 1; index < kEngines && engines[index].name[0]; ++index) {
    visit(engines[index]);
  }
}
