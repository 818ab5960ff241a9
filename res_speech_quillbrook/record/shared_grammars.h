// Compiled grammars, which all sessions share that load the same file: a list of two megabytes takes as long to
// compile, and as much memory, for a thousand calls as for one.
//
// A file is the same when path, device, inode, size and the times of its content and its inode are, to the nanosecond,
// and so are those of all files that it imports. What was changed while it was read, or right before, is compiled for
// its session alone: the kernel's clock is coarse, and a second change might bear the same times. A grammar stays while
// a session has it, and for a minute after that, so that the next call finds it; of the unused ones only so many.
//
// Any thread.
#pragma once

#include "../host.h"

class Grammar;

// What is kept of grammars that nobody uses: for how long, in ms, and how many.
constexpr int kUnusedGrammarTime = 60000;
constexpr size_t kMostUnusedGrammars = 16;

// A grammar file that cannot be opened or read; `error` is the system's errno.
class GrammarFileError : public std::runtime_error {
public:
  GrammarFileError(const std::string &filename, int error);
  int error() const { return error_; }

private:
  int error_;
};

// The grammar of a file and of those that it imports, without the accents in it if so wanted. It is in use as long as
// the pointer or a copy of it stands. Throws GrammarFileError when the file is no readable regular file, and
// std::runtime_error, which tells line and column, when it does not parse. Who asks for a file that is being compiled
// waits for it.
std::shared_ptr<const Grammar> quillbrook_shared_grammar(const std::string &filename, bool without_accents);

// Drops unused grammars whose time is over. Gives the milliseconds until there are more, -1 when none is unused.
int quillbrook_look_at_unused_grammars();

// How many are kept, used or not.
size_t quillbrook_count_shared_grammars();

// Drops all. No session is left. Load and unload.
void quillbrook_forget_shared_grammars();
