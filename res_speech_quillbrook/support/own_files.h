// The files that the module makes in /tmp, and what becomes of those that a killed PBX leaves there.
//
// Their names cannot tell whose they are, so each process keeps a list, /tmp/quillbrook.PID: one record of
// kOwnFileRecord bytes for each file, a letter (`u` in use, `k` to be kept; zero for a free record) and the path. The
// process holds a lock of the system on it while it lives, which ends with the process however that dies. A load then
// takes for left behind what has one of our names and is on no list of a living process, and was not to be kept.
//
// All may be called from any thread, and none fails: a file that could not be written on the list is made all the same.
#pragma once

#include "../host.h"

constexpr size_t kOwnFileRecord = 128;

// Puts a file on the list, ahead of its making, and takes it off, behind its removal. One that is to be kept stays on
// the list, so that no load takes it for left behind. The list itself is a file only while something is on it.
void quillbrook_claim_file(const char *path, bool keep);
void quillbrook_disclaim_file(const char *path);

// Removes a file that is to be gone. A WARNING says when it stays: it holds what callers say.
void quillbrook_remove_file(const char *path);

// Whether the file is on this process's list.
bool quillbrook_file_is_claimed(const char *path);

// Whether anything stands under the path, be it a link.
bool quillbrook_file_exists(const char *path);

// Removes the files that PBXs which do not live any more have left, if they are this user's and regular files, and
// takes over what they were to keep. Gives how many were removed. Only the load calls it.
int quillbrook_remove_stale_files();

// Closes the list, which stays behind when it has files to keep that are still there. Only the unload calls it.
void quillbrook_close_own_files();
