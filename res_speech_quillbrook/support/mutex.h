// A lock and its holder, with the annotations by which clang checks who holds what (-Wthread-safety; other compilers
// see plain code).
#pragma once

#include "../host.h"

#ifdef __clang__
#define QUILLBROOK_ANNOTATION(x) __attribute__((x))
#else
#define QUILLBROOK_ANNOTATION(x)
#endif
#define QUILLBROOK_GUARDED_BY(lock) QUILLBROOK_ANNOTATION(guarded_by(lock))
#define QUILLBROOK_REQUIRES(...) QUILLBROOK_ANNOTATION(requires_capability(__VA_ARGS__))
#define QUILLBROOK_EXCLUDES(...) QUILLBROOK_ANNOTATION(locks_excluded(__VA_ARGS__))

class QUILLBROOK_ANNOTATION(capability("mutex")) Mutex {
public:
  void lock() QUILLBROOK_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  bool try_lock() QUILLBROOK_ANNOTATION(try_acquire_capability(true)) { return mutex_.try_lock(); }
  void unlock() QUILLBROOK_ANNOTATION(release_capability()) { mutex_.unlock(); }

private:
  std::mutex mutex_;
};

class QUILLBROOK_ANNOTATION(scoped_lockable) MutexLock {
public:
  explicit MutexLock(Mutex &mutex) QUILLBROOK_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() QUILLBROOK_ANNOTATION(release_capability()) { mutex_.unlock(); }
  MutexLock(const MutexLock &) = delete;
  MutexLock &operator=(const MutexLock &) = delete;

private:
  Mutex &mutex_;
};

// Holds one of the host's mutexes for a scope.
class HostMutexLock {
public:
  explicit HostMutexLock(ast_mutex_t &mutex) : mutex_(mutex) { ast_mutex_lock(&mutex_); }
  ~HostMutexLock() { ast_mutex_unlock(&mutex_); }
  HostMutexLock(const HostMutexLock &) = delete;
  HostMutexLock &operator=(const HostMutexLock &) = delete;

private:
  ast_mutex_t &mutex_;
};
