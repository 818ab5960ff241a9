// The watch: one thread for the whole module that looks after what no call of host or plugin would notice. It looks at
// a session only while a result waits there or words have come, and sleeps when there is neither.
//
// - A plugin that stops calling back once words came. On this host the first words switch off the dialplan's own
//   timeout, so only a result lets the caller go: after `plugintimeout` ms without a call, "error" is queued.
// - A result that the host has passed over. When keys arrive in mid-recognition the host puts the object to NOT_READY
//   without collecting what waits, and nothing tells the next start from an ordinary one; but between the host's own
//   NOT_READY and our start, or get, pass microseconds. So NOT_READY seen by two looks in a row means that the result
//   belongs to a question that is over, and the next start abandons it.
#pragma once

#include "../record/session.h"

// Time between two looks at a waiting result, in milliseconds.
constexpr int kWatchInterval = 20;

// One look at all sessions. Gives the milliseconds until the next one is wanted, or -1 when there is nothing to watch.
int quillbrook_watch_look();

// Start and end the thread. Loading thread. False when there is none to be had; the module then works without it.
bool quillbrook_watch_start();
void quillbrook_watch_stop();
