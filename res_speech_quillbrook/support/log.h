// The module's log lines. Warnings and errors go straight to ast_log; what is written only under a flag of the
// configuration goes through these. Macros, so that the log names the file and line of the caller, and so that the
// arguments are not worked out when nothing is written.
#pragma once

#include "../host.h"
#include "shared_flag.h"

// The flags of the configuration: written by the load and by a reload, shared with all threads.
extern int debug;    // 0 off, 1 on, 2 on with the plugins' debug switch
extern int verbose;  // 0 or 1: NOTICE lines about sessions

// NOTICE, under the flag `verbose`.
#define notice(...)                     \
  do {                                  \
    if (shared_load(verbose)) {         \
      ast_log(LOG_NOTICE, __VA_ARGS__); \
    }                                   \
  } while (0)

// NOTICE, under the flag `verbose`, beginning with "(name) ".
#define session_notice(session, format, ...) notice("(%s) " format, (session)->name, ##__VA_ARGS__)

// NOTICE, under the flag `debug`.
#define debug_notice(...)               \
  do {                                  \
    if (shared_load(debug)) {           \
      ast_log(LOG_NOTICE, __VA_ARGS__); \
    }                                   \
  } while (0)

// DEBUG, under the flag `debug`.
#define debug_log(...)                 \
  do {                                 \
    if (shared_load(debug)) {          \
      ast_log(LOG_DEBUG, __VA_ARGS__); \
    }                                  \
  } while (0)

// Verbose output of the host at a level, under the flag `debug` and when the host's verbosity reaches the level.
#define trace(level, ...)                                                           \
  do {                                                                              \
    if (shared_load(debug) && host_verbosity_at_least(level)) {                     \
      __ast_verbose(__FILE__, __LINE__, __PRETTY_FUNCTION__, (level), __VA_ARGS__); \
    }                                                                               \
  } while (0)

// Verbose output that the host always writes, under the flag `debug`.
#define trace_always(...)                                                      \
  do {                                                                         \
    if (shared_load(debug)) {                                                  \
      __ast_verbose(__FILE__, __LINE__, __PRETTY_FUNCTION__, -1, __VA_ARGS__); \
    }                                                                          \
  } while (0)

// A text for %s, where the pointer may be null.
inline const char *shown(const char *text) {
  return text ? text : "(null)";
}
