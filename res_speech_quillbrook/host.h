// The PBX as this module and the companion see it: the only file that includes its headers and knows that it comes in
// several series. What was tried with which of them stands in docs/which-asterisk.md.
//
// Include it first in every file: it takes in the system's and the language's headers before the PBX's, because those
// turn names such as pthread_mutex_lock, free and localtime_r into errors.
#pragma once

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <climits>
#include <condition_variable>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

// Leaves malloc, free and strdup alone: here free and ast_free are the same.
#define ASTMM_LIBC ASTMM_IGNORE

extern "C" {
#include "asterisk.h"
#include "asterisk/module.h"
#include "asterisk/lock.h"
#include "asterisk/linkedlists.h"
#include "asterisk/channel.h"
#include "asterisk/format.h"
#include "asterisk/format_cap.h"
#include "asterisk/format_cache.h"
#include "asterisk/speech.h"
// A parameter in file.h of 16 has the name of a C++ keyword.
#define template template_
#include "asterisk/file.h"
#include "asterisk/mod_format.h"
#undef template
#include "asterisk/dsp.h"
#include "asterisk/frame.h"
#include "asterisk/cli.h"
#include "asterisk/http.h"
#include "asterisk/config.h"
#include "asterisk/utils.h"
#include "asterisk/strings.h"
#include "asterisk/term.h"
#include "asterisk/paths.h"
#include "asterisk/ast_version.h"
#include "asterisk/build.h"
#include "asterisk/buildinfo.h"
#include "asterisk/pbx.h"
#include "asterisk/logger.h"
#include "asterisk/options.h"
#include "asterisk/astobj2.h"
#include "asterisk/time.h"
#include "asterisk/localtime.h"
#include "asterisk/manager.h"
}

// The module's handle in the host, for references. In C++ it exists only behind the module record, so it is defined
// in the file of that record.
struct ast_module *host_module_self();

// Whether the host's verbosity, or its debug level for this module, is at least `level`.
inline bool host_verbosity_at_least(int level) {
  return VERBOSITY_ATLEAST(level);
}
inline bool host_debug_at_least(int level) {
  return DEBUG_ATLEAST(level);
}

// Whether the host keeps the files that it writes in another place until they are closed.
inline bool host_caches_record_files() {
  return ast_opt_cache_record_files;
}

// Memory from the host's allocators, which log a failure and give null. It goes back with ast_free.
template <typename T>
T *host_calloc() {
  return static_cast<T *>(ast_calloc(1, sizeof(T)));
}
inline char *host_alloc_text(size_t size) {
  return static_cast<char *>(ast_malloc(size));
}
inline char *host_realloc_text(char *text, size_t size) {
  return static_cast<char *>(ast_realloc(text, size));
}

// Releases the reference of a channel that ast_channel_callback gave.
inline void host_channel_release(struct ast_channel *channel) {
  ao2_ref(channel, -1);
}

// Which call a thread or a channel belongs to, as the host counts them; empty when to none. 13 hands out a reference to
// a counted object, which is given back here, the later series a number: so the host's type is not named.
class HostCallId {
public:
  // The call that the calling thread is bound to.
  static HostCallId of_this_thread() { return HostCallId(ast_read_threadstorage_callid()); }
  static HostCallId of(struct ast_channel *channel) { return HostCallId(ast_channel_callid(channel)); }

  HostCallId(const HostCallId &) = delete;
  HostCallId &operator=(const HostCallId &) = delete;
  ~HostCallId() { release(id_); }

  // The calling thread is of this call from now on, in the log as elsewhere, until it ends. For threads of ours, which
  // begin with none.
  void bind_this_thread() const {
    if (*this) ast_callid_threadassoc_add(id_);
  }

  explicit operator bool() const { return id_ != Id{}; }
  bool operator==(const HostCallId &other) const { return id_ == other.id_; }

private:
  using Id = decltype(ast_read_threadstorage_callid());

  explicit HostCallId(Id id) : id_(id) {}

  // A template, because one of the two branches does not compile with the type of the other series.
  template <typename T>
  static void release(T id) {
    if constexpr (std::is_pointer_v<T>) {
      if (id) ao2_ref(id, -1);
    }
  }

  Id id_;
};

// The channel whose dialplan runs under a call id, or null. Channels without a dialplan, such as the far legs of a
// dial, may share the id. It comes with a reference, which goes back with host_channel_release.
inline struct ast_channel *host_channel_of_call(const HostCallId &call) {
  const auto is_wanted = [](void *object, void *, void *data, int) {
    auto *channel = static_cast<struct ast_channel *>(object);
    const auto &wanted = *static_cast<const HostCallId *>(data);
    return ast_channel_pbx(channel) && HostCallId::of(channel) == wanted ? CMP_MATCH | CMP_STOP : 0;
  };
  return call ? ast_channel_callback(is_wanted, nullptr, const_cast<HostCallId *>(&call), 0) : nullptr;
}

// Formats of our own, holding one: signed linear at 8 kHz. Null when the host has no memory. Given back with
// host_format_cap_release.
inline struct ast_format_cap *host_format_cap_slin() {
  struct ast_format_cap *formats = ast_format_cap_alloc(AST_FORMAT_CAP_FLAG_DEFAULT);
  if (formats) {
    ast_format_cap_append(formats, ast_format_slin, 0);
  }
  return formats;
}
inline void host_format_cap_release(struct ast_format_cap *formats) {
  ao2_cleanup(formats);
}

// Sends an event to the manager interface's users who may read events of calls. `fields` are lines, each with its end.
inline void host_manager_event(const char *event, const char *fields) {
  manager_event(EVENT_FLAG_CALL, event, "%s", fields);
}

// Bytes of stack for a thread of ours: 496 KiB, or the platform's minimum when that is larger.
inline size_t host_stack_size() {
  return static_cast<size_t>(std::max(507904L, sysconf(_SC_THREAD_STACK_MIN)));
}
