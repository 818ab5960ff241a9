// The one door through which plugins report (quillbrook.h tells the messages). All decisions of a recognition are made
// inside this call, on the stack of the plugin's thread: there is no timer thread.
#pragma once

#include "quillbrook.h"

// 0: the message was taken. -1: it was refused, and changed nothing but `plugin_closed`. Any thread; calls for one
// session pass one after the other. Also called by quillbrook_recog_get, with a score of -2, to force a finish.
// A null `context` is refused.
int quillbrook_callback(quillbrook_context *context, const char *text, int score);

// Messages with a score that does not exist have one line a second for each session: tells how many the last line left
// out. At the end of the session.
void quillbrook_report_more_bad_scores(struct quillbrook_speech_t *session);
