// The streaming thread: waits until the stream file holds enough audio and the prompts have ended, cuts the file down
// to the early speech if the session asks for that, and then stays in the plugin's loop. When the loop returns, it
// turns the plugin's failure report into a result, or, in a single-shot recognition, the words that never became one:
// on this host the first words switch off every other way in which the caller gets on.
#pragma once

#include "../record/session.h"

// Make the plugin ready for the first or the second run (twin mode) and start its thread. Dialplan thread, no lock
// held. 0; -1 when the plugin refuses; or the error of the thread's creation. There is no thread then.
int launch_quillbrook_thread(quillbrook_speech_t *session);
int launch_quillbrook_thread2(quillbrook_speech_t *session);

// The threads' entries, with the run as their argument. They use neither the session nor the recognition once they have
// said that they are at their end, nor when the gate was shut while they were in the plugin's loop.
void *quillbrook_thread(void *data);
void *quillbrook_thread2(void *data);
