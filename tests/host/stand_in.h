// A stand-in for the PBX: just what the module calls, for tests that link the module's own objects.
//
// Include it after gtest; it takes in the module's host.h. Everything below may be called from any thread. Paths that
// begin with "/tmp/quillbrook_", "/tmp/quillbrook2_", "/tmp/quillbrook.", "/tmp/cli-" or "/etc/asterisk/" are kept in a
// folder of this process, for the module and for the tests that look at them through this header, so test programs can
// run side by side.
#pragma once

#include "host.h"

#include <functional>
#include <map>

namespace stand_in {

// Puts everything back to the beginning: nothing recorded, no failure planned, no channel, no files. What a loaded
// module has registered stays. Run it before each test.
void reset();

// What a test can make fail. Those marked * fail only for a thread that is Inside, because the test's own code uses
// them too.
enum class Fault {
  kNew,             // * operator new, in a program that replaces it
  kAllocation,      // of the host's allocators
  kOpen,            // open, opendir and fopen
  kWrite,           // the file opens, and has no room for any byte; also of ast_writefile
  kDescriptor,      // * fdopen
  kStat,            // * stat, fstat and lstat
  kRead,            // * read, fread, lseek
  kFlush,           // * fflush, fclose (which closes all the same)
  kUnlink,          // * unlink
  kFrame,           // ast_writestream
  kTemporaryFile,   // mkstemp
  kWriteStream,     // ast_writefile
  kReadStream,      // ast_readfile
  kRename,          // rename
  kPoll,            // stat, for any thread
  kDetector,        // ast_dsp_new
  kThread,          // ast_pthread_create_stack
  kFormatCap,       // ast_format_cap_alloc
  kEngineRegister,  // ast_speech_register
  kCliRegister,     // ast_cli_register_multiple
  kHttpLink,        // ast_http_uri_link
  kClosePlugin,     // dlclose, which closes it all the same
  kCount
};
// The `nth` use from now on fails, and the `times` - 1 uses behind it. System calls give `error` as the reason.
void fail(Fault fault, int nth = 1, int times = 1, int error = EACCES);
// Allocations of exactly `size` bytes fail from now on; 0 ends it.
void fail_allocations_of(size_t size);
// No failure is planned any more. Gives how many have happened since the last reset.
int stop_failing();

// The thread is in the module's code for as long as this lives. It leaves it by itself where the module calls the
// stand-in; what a test has the module call says so by Outside. Threads of the module begin inside.
class Inside {
public:
  explicit Inside(bool inside = true);
  ~Inside();
  Inside(const Inside &) = delete;
  Inside &operator=(const Inside &) = delete;

private:
  bool before_;
};
struct Outside : Inside {
  Outside() : Inside(false) {}
};
// Whether this use fails. Always false outside.
bool fails_inside(Fault fault);

// The wall clock: gettimeofday, ast_tvnow and time. It stands still unless a test moves it.
void set_clock_ms(int64_t milliseconds);
// The same, and the monotonic clock besides.
void advance_ms(int64_t milliseconds);
int64_t clock_ms();
// Sum of what was asked of usleep, which gives up the processor for an instant only.
int64_t slept_us();

// Lines of ast_log, and of the host's verbose output, since the last reset.
void reset_log();
struct Line {
  int level;
  std::string text;
};
std::vector<Line> log_lines();
std::vector<Line> verbose_lines();
// How many of the log lines have this level and this text, the line end included.
int logged(int level, const std::string &text);
// Lines of either kind that contain `part`.
int mentioned(const std::string &part);

// Names of noteworthy calls in their order: those of streams and detectors, "state N", "cli COMMAND", "register
// ENGINE", and what tests note themselves.
void note(const std::string &call);
std::vector<std::string> notes();
int noted(const std::string &call);
// Runs `action` once, in the middle of the next call of that name, on its thread: for what happens meanwhile on
// another. Calls of usleep count as "usleep", lines of the log as their format.
void during(const std::string &call, std::function<void()> action);

// Files of the module, by the path that the module knows; without the list of them that it keeps itself.
std::vector<std::string> files();
bool file_exists(const std::string &path);
std::string file_content(const std::string &path);
void write_file(const std::string &path, const std::string &content);
// Where the file really is, for what opens it by itself.
std::string real_path(const std::string &path);

// The configuration directory.
void write_config(const std::string &filename, const std::string &content);
std::string config_path(const std::string &filename);

// Channels that ast_channel_callback visits.
void add_channel(const std::string &uniqueid, bool hung_up = false);
// References on all channels that were handed out and not given back.
int channel_references();

// The command line. `answer_command` plays a command of another module, which prints `text` and results in `result`.
void answer_command(const std::string &command, const std::string &text, int result = 0);
// What the command prints, usage and refusals included.
std::string run_command(const std::string &line);
std::vector<std::string> command_names();

// Events of the manager interface since the last reset: the name, a line end, and the fields.
std::vector<std::string> manager_events();

// The HTTP server.
struct Response {
  int status = 0;  // 0 when no handler is linked
  std::string title, header, body;
};
using Variables = std::vector<std::pair<std::string, std::string>>;
// `body` is a decoded form body.
Response http_request(const std::string &uri, ast_http_method method, const Variables &query = {},
                      const Variables &body = {});
std::vector<std::string> http_uris();

// Shared objects that the module can open: symbols by name. Opening anything else fails.
void add_plugin(const std::string &path, std::map<std::string, void *> symbols);
int open_plugins();

// The module as the host drives it.
int load_module();
int unload_module();
int reload_module();
int module_references();
std::vector<std::string> engine_names();
ast_speech_engine *find_engine(const std::string &name);
// What the host does with an engine that it has found: looks at its formats and has it create a session. 0 or -1.
int create_speech(ast_speech &speech, ast_speech_engine *engine);
// An engine of another module, which can be registered and never used.
ast_speech_engine foreign_engine(const char *name);
// Format capabilities that exist.
int format_caps();

}  // namespace stand_in
