// The entries of the host's speech API: what it calls for each speech object of ours. All run on the channel's dialplan
// thread. `write` and `get` are called with the host's lock of the speech object held, the others without. Those for
// grammars stand in grammar/grammar_commands.h.
//
// A non-zero result of the grammar commands hangs up the caller, so they and `start` always give 0: what went wrong
// shows in the log, and in the text that `get` returns.
#pragma once

#include "../host.h"

// create.cpp. 0, with the new session on the `data` field of `speech`; -1 when there is no memory. `format` is not
// looked at: the engines accept one format only.
int quillbrook_recog_create(struct ast_speech *speech, struct ast_format *format);

// destroy.cpp. Ends the session in whatever phase it is. Waits for the plugin's loop to return.
int quillbrook_recog_destroy(struct ast_speech *speech);

// audio.cpp. Takes `len` bytes of signed linear audio. Always 0.
int quillbrook_recog_write(struct ast_speech *speech, void *data, int len);

// start.cpp. Begins a recognition, or releases the prompting wait of one that runs. Always 0.
int quillbrook_recog_start(struct ast_speech *speech);

// get.cpp. One result, which the host owns from then on; the text is "error" when there is none. Ends a single-shot
// recognition, which waits for the plugin's loop to return. Null when there is no memory for the result.
struct ast_speech_result *quillbrook_recog_get(struct ast_speech *speech);

// settings.cpp. These log what they are told; `dtmf` also remembers that there were digits (start.cpp).
int quillbrook_recog_dtmf(struct ast_speech *speech, const char *dtmf);                                          // 0
int quillbrook_recog_change(struct ast_speech *speech, const char *name, const char *value);                     // 0
int quillbrook_recog_get_settings(struct ast_speech *speech, const char *name, char *buf, size_t len);           // -1
int quillbrook_recog_change_results_type(struct ast_speech *speech, enum ast_speech_results_type results_type);  // -1
