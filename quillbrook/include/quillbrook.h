/*
 * The interface between res_speech_quillbrook and its plugins, for C (C99 and later) and C++.
 *
 * A plugin is a shared object that recognises speech. The module opens it once for each engine of its configuration
 * and runs it once for each recognition:
 *
 *   host's thread       plugin_init(context)      prepare; the record is complete; return 0, or anything else to refuse
 *   streaming thread    plugin_loop(context)      recognise: read the file, report through context->callback
 *   host's thread       plugin_stop(context)      end the loop: set hangup to 2 and raise finalize
 *   host's thread       joins the streaming thread, deletes the stream file, frees the record
 *
 * A plugin exports each of the three functions under either of two names (the first one wins):
 *
 *   plugin_init   quillbrook_init   or  init
 *   plugin_loop   quillbrook_loop   or  loop
 *   plugin_stop   quillbrook_stop   or  hangup
 *
 * Rules that keep a phone call alive:
 *
 * - plugin_init holds up the caller: keep it under 50 ms and leave connections and models to plugin_loop.
 * - plugin_loop calls back at least every 100 ms, also with no text: the module has no timer of its own, and its
 *   timeouts are looked at only inside the callback. A timeout acts as late as the next call comes, so either call
 *   every 20 to 30 ms, or ask next_timer of quillbrook_services. After the first words, silence for the key
 * plugintimeout (10 s) ends the recognition with "error". One thread at a time calls back for one record.
 * - plugin_stop is called right before the streaming thread is joined. It sets hangup to 2, and raises finalize, which
 *   also ends a streaming thread that still waits for audio. It may come on a record whose plugin_init refused, whose
 *   plugin_loop was never entered or has already returned, and twice. A loop that does not return after it holds up
 *   the caller for the key stoptimeout (5 s); then its thread is left behind, and every call of its record is refused.
 * - All functions run at the same time for different records. What belongs to one recognition lives in its record.
 * - The record is the module's: a plugin never frees it and never uses it after plugin_loop has returned.
 * - Two threads share finalize, hangup, quantum, completetimeout, incompletetimeout and *silence. They are plain
 *   variables because the record is a binary contract: read and write them with the compiler's atomic built-ins
 *   (__atomic_load_n, __atomic_store_n).
 *
 * Two more functions may be exported: quillbrook_check (see quillbrook_function_check), and quillbrook_attach, which
 * gets what else the module offers (see quillbrook_services).
 *
 * A failure is reported by text: leave "ERROR:" and a sentence for the operator in extra, and return from
 * plugin_loop. The dialplan then gets the result "error".
 */
#ifndef QUILLBROOK_H
#define QUILLBROOK_H

#include <pthread.h>
#include <stddef.h>
#include <stdio.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Size in bytes of the record's text buffers, the terminating zero included. */
#define QUILLBROOK_TEXT_SIZE 2048
/* Size in bytes of streaming_format, the terminating zero included. */
#define QUILLBROOK_STREAMING_FORMAT_SIZE 256

/* Scores with a meaning of their own in a call of the callback. Above 0: a final piece with its confidence, 1 to 100.
 * Any other negative value is refused. */
#define QUILLBROOK_SCORE_NO_CONFIDENCE 0 /* one byte of text that is no blank: nothing was understood */
#define QUILLBROOK_SCORE_INTERIM (-1)    /* text is the present hypothesis and replaces the one before */
#define QUILLBROOK_SCORE_FINISH (-2)     /* close the text and deliver it; the text of this call is not stored */
#define QUILLBROOK_SCORE_END (-200)      /* the provider's session has ended */

/* The value of hangup that plugin_stop leaves. */
#define QUILLBROOK_HANGUP_STOPPED 2

typedef struct quillbrook_context quillbrook_context;

typedef int quillbrook_function_init(quillbrook_context *context);
typedef void *quillbrook_function_loop(quillbrook_context *context);
typedef void quillbrook_function_stop(quillbrook_context *context);

/*
 * What a plugin thinks of the settings of an engine: texts and numbers stand in the record as a recognition would get
 * them, everything else is zero. Called when somebody checks the configuration, outside of any call, perhaps in a
 * program without a PBX. Returns 0, or anything else and a sentence on each line of errors;
 * one that begins with a key ("phrases: ...") is shown with the line of that key, others with that of configuration.
 */
typedef int quillbrook_function_check(quillbrook_context *context);

/*
 * The plugin's way back to the module. text is zero-terminated or NULL; with NULL or "" the call is a tick, which only
 * gives the timeouts their turn. The module copies what it keeps: text, api_pointer and extra_pointer need to stay
 * valid during the call only.
 * Returns 0 when the message was taken, and -1 when it was refused: a result is already out, the score is none of the
 * above, or the call is over. No value asks the plugin to stop; finalize and plugin_stop do.
 */
typedef int quillbrook_function_callback(quillbrook_context *context, const char *text, int score);

/*
 * What the module offers beside the callback. It grows at its end: use an entry only when size reaches behind it.
 * The functions are called from plugin_loop with the record of that recognition, and from any number of recognitions
 * at a time.
 */
typedef struct quillbrook_services {
  size_t size; /* of the table that the module has, in bytes */
  /* Milliseconds from now until a call of the callback can find a timeout expired; 0 when it may have, and INT_MAX
   * while none runs, as before the first words. Each call of the callback may change it; and it is no promise that
   * something happens then. Costs no more than reading a variable. */
  int (*next_timer)(const quillbrook_context *context);
  /* Writes a sentence for the operator to the PBX's log, as a WARNING with the engine and the session: what the plugin
   * cannot use of the settings or phrases, and goes on without. For a failure see extra. Control characters become "?",
   * and a long sentence is cut; a recognition has 20 lines. Also from plugin_init. */
  void (*complain)(quillbrook_context *context, const char *sentence);
} quillbrook_services;

/*
 * Called each time that the module has opened the plugin for an engine, which may be while it recognises for others,
 * and always with the same table, which stays as it is as long as the plugin is open.
 */
typedef void quillbrook_function_attach(const quillbrook_services *services);

/*
 * One running recognition. Plugins compile this record into themselves: no field may be moved, widened or dropped.
 * Texts are zero-terminated. "Plugin's own": zero at first, and neither written nor read by the module.
 */
struct quillbrook_context {
  int initialize;         /* 0 before plugin_init; then plugin's own */
  int debug;              /* 1: the configuration asks plugins for debug output */
  int finalize;           /* above 0: wind the recognition up. Raised by the module's timeouts and by plugin_stop */
  int hangup;             /* plugin writes. Not 0: the call is ending, and each final piece becomes a result */
  int thread_started;     /* plugin's own */
  int session;            /* 0 before plugin_init; then plugin's own */
  int score;              /* plugin's own */
  float speedvsaccuracy;  /* 0.0 fast to 1.0 accurate; -1.0 when not set */
  int noinputtimeout;     /* plugin's own */
  int completetimeout;    /* ms of silence after which the utterance is complete, 0 off; rewritten by the module */
  int incompletetimeout;  /* ms, the outer limit of silence, 0 off; rewritten by the module */
  int maxspeechtimeout;   /* ms of speech that the plugin should accept */
  int earlyspeechtimeout; /* always 0: the module deals with early speech before plugin_loop */
  int minspeechtimeout;   /* always 0: the module waits for this audio before plugin_loop */
  char streaming_format[QUILLBROOK_STREAMING_FORMAT_SIZE]; /* plugin's own */
  char configuration[QUILLBROOK_TEXT_SIZE];                /* the plugin's parameters */
  char model[QUILLBROOK_TEXT_SIZE];                        /* name or path of the model */
  char language[QUILLBROOK_TEXT_SIZE];
  char voice[QUILLBROOK_TEXT_SIZE];
  char profile[QUILLBROOK_TEXT_SIZE];       /* the provider's URL, not the profile's name */
  char param[QUILLBROOK_TEXT_SIZE];         /* logging tag of the call */
  char authorization[QUILLBROOK_TEXT_SIZE]; /* plugin's own */
  char proxy[QUILLBROOK_TEXT_SIZE];         /* plugin's own */
  char context[QUILLBROOK_TEXT_SIZE];       /* context text for the provider */
  char extra[QUILLBROOK_TEXT_SIZE];         /* in: further settings. Out: "ERROR:" and the reason of a failure */
  char phrases[QUILLBROOK_TEXT_SIZE];       /* words and phrases to expect, separated by commas */
  int buffer_size;                          /* bytes to read or send at a time, a proposal */
  long position;                            /* plugin's own, as the two below */
  long audio_read_offset;
  long audio_write_offset;
  int quantum;             /* plugin writes. Not 0: raising finalize brings a final piece; 0: the module just ends */
  char *uniqueid;          /* unique id of the call's channel. The module's */
  char *mark;              /* remote party of the call. The module's */
  int direction;           /* always 0 */
  int *silence;            /* ms of silence in the audio up to now, 0 with no detector. The module's; read only */
  char *filename;          /* path of the stream file, which grows while the call runs. The module's */
  const char *format;      /* format of the stream file, by its extension: "wav", "ulaw". The module's */
  void *config_pointer;    /* configuration loaded by the dialplan, with a zero byte behind it; or NULL. The module's */
  void *asterisk_pointer;  /* the module's way from the record to the call: leave as it is */
  const void *api_pointer; /* plugin writes: NULL, or the interpretation that belongs to the next text */
  const void *extra_pointer; /* plugin writes: NULL, or the provider's JSON that belongs to the next text */
  quillbrook_function_callback *callback;
  time_t lastResult;      /* plugin's own */
  int interims;           /* always 1: interim texts are wanted */
  int reconnect_attempts; /* plugin's own */
  FILE *filelog;          /* open log file for plugins, shared by all calls of the engine, or NULL. The module's */
  int filelogtry;         /* plugin's own */
  pthread_t thread;       /* the streaming thread. The module's */
  char errors[QUILLBROOK_TEXT_SIZE]; /* plugin's own; for a failure to act upon, see extra */
};

/* The binary contract, on 64-bit Linux: one field from each region, and the whole. */
#ifdef __cplusplus
#define QUILLBROOK_ASSERT(condition, name) static_assert(condition, #name)
#else
#define QUILLBROOK_ASSERT(condition, name) typedef char quillbrook_assert_##name[(condition) ? 1 : -1]
#endif
QUILLBROOK_ASSERT(offsetof(quillbrook_context, finalize) == 8, finalize);
QUILLBROOK_ASSERT(offsetof(quillbrook_context, minspeechtimeout) == 52, minspeechtimeout);
QUILLBROOK_ASSERT(offsetof(quillbrook_context, configuration) == 312, configuration);
QUILLBROOK_ASSERT(offsetof(quillbrook_context, phrases) == 20792, phrases);
QUILLBROOK_ASSERT(offsetof(quillbrook_context, position) == 22848, position);
QUILLBROOK_ASSERT(offsetof(quillbrook_context, uniqueid) == 22880, uniqueid);
QUILLBROOK_ASSERT(offsetof(quillbrook_context, callback) == 22960, callback);
QUILLBROOK_ASSERT(offsetof(quillbrook_context, thread) == 23000, thread);
QUILLBROOK_ASSERT(offsetof(quillbrook_context, errors) == 23008, errors);
QUILLBROOK_ASSERT(sizeof(quillbrook_context) == 25056, whole_size);
#undef QUILLBROOK_ASSERT

#ifdef __cplusplus
}
#endif

#endif
