/*
 * plugin_example.so: speech or silence. It listens to how loud a caller is, reports "speech" when somebody begins to
 * talk, and "speech 1240" when the talk of 1240 ms is over. The confidence is the share of its blocks that were loud.
 *
 * configuration=level=N   a block is loud from this mean magnitude on, 1 to 32767; 300 without it
 */
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "quillbrook.h"

enum {
  BLOCK = 160,      /* samples: 20 ms at 8 kHz */
  BLOCK_MS = 20,    /* also how long we sleep when there is no new audio */
  BEGIN_BLOCKS = 3, /* loud blocks that make a click into speech */
  END_BLOCKS = 25,  /* quiet blocks that end it */
  LONGEST_MS = 80,  /* between two calls of the module, which asks for 100 */
  WAV_HEADER = 44,  /* bytes */
  DEFAULT_LEVEL = 300
};

/* All that belongs to one recognition: many calls run in here at the same time. */
struct listener {
  quillbrook_context *context;
  int file;
  int level;
  int loud;   /* blocks of the present talk; 0 in silence */
  int pauses; /* quiet blocks between them */
  int quiet;  /* quiet blocks after them */
  int untold; /* ms since the latest tick */
};

/* What else the module offers; NULL with one that offers nothing. */
static const quillbrook_services *services;

static int stopped(const quillbrook_context *context) {
  return __atomic_load_n(&context->hangup, __ATOMIC_ACQUIRE) == QUILLBROOK_HANGUP_STOPPED;
}

/* The module reads this when the loop has returned: it logs the text, and the dialplan gets the result "error". */
static int fail(quillbrook_context *context, const char *what, const char *why) {
  snprintf(context->extra, sizeof(context->extra), "ERROR: %.1000s: %.1000s", what, why);
  return -1;
}

static void debug(const quillbrook_context *context, const char *text) {
  if (context->debug && context->filelog) fprintf(context->filelog, "%s: %s\n", context->uniqueid, text);
}

/* -1 when the settings or the file are none that we can work with; the reason is left for the module then. */
static int open_stream(struct listener *listener) {
  quillbrook_context *context = listener->context;
  const char *settings = context->configuration;
  const int is_wav = strcmp(context->format, "wav") == 0;
  listener->level = DEFAULT_LEVEL;
  if (settings[0] && (sscanf(settings, "level=%d", &listener->level) != 1 || listener->level < 1))
    return fail(context, "configuration is not level=NUMBER", settings);
  if (!is_wav && strcmp(context->format, "sln") != 0)
    return fail(context, "this plugin reads the formats wav and sln, not", context->format);
  context->position = is_wav ? WAV_HEADER : 0;
  /* The file lies in a folder that everybody can write to: a link in its place is not followed. */
  listener->file = open(context->filename, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  return listener->file < 0 ? fail(context, context->filename, strerror(errno)) : 0;
}

/* 0 when the file does not hold another whole block yet: it grows while the call runs, and has no end mark. */
static int read_block(struct listener *listener, int16_t *block) {
  const size_t size = BLOCK * sizeof(*block);
  if (pread(listener->file, block, size, listener->context->position) != (ssize_t)size) return 0;
  listener->context->position += (long)size;
  return 1;
}

static int is_loud(const struct listener *listener, const int16_t *block) {
  long sum = 0;
  for (int i = 0; i < BLOCK; ++i) sum += abs(block[i]);
  return sum / BLOCK >= listener->level;
}

static int talking(const struct listener *listener) {
  return listener->loud >= BEGIN_BLOCKS;
}

static int length_ms(const struct listener *listener) {
  return (listener->loud + listener->pauses) * BLOCK_MS;
}

/* Reports the talk, if it was one, and is ready for the next. */
static void conclude(struct listener *listener) {
  if (talking(listener)) {
    char text[40];
    snprintf(text, sizeof(text), "speech %d", length_ms(listener));
    listener->context->callback(listener->context, text, 100 * listener->loud / (listener->loud + listener->pauses));
    debug(listener->context, text);
  }
  listener->loud = listener->pauses = listener->quiet = 0;
}

static void hear(struct listener *listener, int loud) {
  quillbrook_context *context = listener->context;
  if (loud) {
    listener->pauses += listener->quiet;
    listener->quiet = 0;
    if (++listener->loud == BEGIN_BLOCKS) {
      /* A continuous recognition may have been wound up before: this is a new utterance. */
      if (!stopped(context)) __atomic_store_n(&context->finalize, 0, __ATOMIC_RELEASE);
      context->callback(context, "speech", QUILLBROOK_SCORE_INTERIM);
    }
  } else if (listener->loud > 0 && ++listener->quiet == END_BLOCKS) {
    conclude(listener);
  }
}

/* A tick: the timeouts run in here. One that no timer waits for is left out, up to a limit. */
static void tick(struct listener *listener) {
  const int next = services ? services->next_timer(listener->context) : 0;
  listener->untold += BLOCK_MS;
  if (next > BLOCK_MS && listener->untold < LONGEST_MS) return;
  listener->untold = 0;
  listener->context->callback(listener->context, NULL, QUILLBROOK_SCORE_INTERIM);
}

static void listen_until_stopped(struct listener *listener) {
  quillbrook_context *context = listener->context;
  int16_t block[BLOCK];
  while (!stopped(context)) {
    if (read_block(listener, block)) {
      hear(listener, is_loud(listener, block));
    } else {
      usleep(BLOCK_MS * 1000);
      tick(listener);
    }
    const int asked = __atomic_load_n(&context->finalize, __ATOMIC_ACQUIRE) > 0;
    if (talking(listener) && (asked || length_ms(listener) > context->maxspeechtimeout)) {
      conclude(listener);
      context->callback(context, NULL, QUILLBROOK_SCORE_FINISH);
    }
  }
}

void quillbrook_attach(const quillbrook_services *offered) {
  services = offered;
}

int quillbrook_init(quillbrook_context *context) {
  context->quantum = 1; /* we can be asked for what we have */
  return 0;
}

void *quillbrook_loop(quillbrook_context *context) {
  struct listener listener = {.context = context, .file = -1};
  if (open_stream(&listener) != 0) return NULL;
  listen_until_stopped(&listener);
  conclude(&listener);
  context->callback(context, NULL, QUILLBROOK_SCORE_END);
  close(listener.file);
  return NULL;
}

void quillbrook_stop(quillbrook_context *context) {
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
}
