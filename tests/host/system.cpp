// Failures, the clock, memory, locks, threads, references, and plugins as shared objects.
#include "state.h"

#undef pthread_create
#undef pthread_mutex_init
#undef pthread_mutex_destroy
#undef pthread_mutex_lock
#undef pthread_mutex_unlock
#undef pthread_rwlock_init
#undef pthread_rwlock_destroy
#undef pthread_rwlock_rdlock
#undef pthread_rwlock_wrlock
#undef pthread_rwlock_unlock

extern "C" {
int __real_clock_gettime(clockid_t clock, struct timespec *now);
void *__real_dlsym(void *handle, const char *symbol);
}

namespace {

using stand_in::Fault;
using stand_in::Guard;

struct Plan {
  int before = 0;  // uses that pass before the failing ones
  int failing = 0;
  int error = EACCES;
};
using Symbols = std::map<std::string, void *>;
struct System {
  Plan plans[static_cast<size_t>(Fault::kCount)];
  int failures = 0;
  size_t failing_size = 0;
  std::map<std::string, Symbols> plugins;
  int open_plugins = 0;
};
System &state() {
  static System system;
  return system;
}

std::atomic<bool> failures_planned{false};
constexpr int64_t kClockStartUs = 1'700'000'000'000'000;
// Read and written relaxed, for the reason that Guard has.
std::atomic<int64_t> clock_us{kClockStartUs};
std::atomic<int64_t> monotonic_us{0};
std::atomic<int64_t> slept{0};

bool allocation_fails(size_t size) {
  if (!failures_planned) return false;
  if (stand_in::fails(Fault::kAllocation)) return true;
  Guard guard(stand_in::state_lock());
  return state().failing_size == size && ++state().failures;
}

void *tested(void *memory, size_t size) {
  if (memory && allocation_fails(size)) {
    free(memory);
    return nullptr;
  }
  return memory;
}

}  // namespace

namespace stand_in {

std::recursive_mutex &state_lock() {
  static std::recursive_mutex lock;
  return lock;
}

void fail(Fault fault, int nth, int times, int error) {
  Guard guard(state_lock());
  state().plans[static_cast<size_t>(fault)] = {nth - 1, times, error};
  failures_planned = true;
}

void fail_allocations_of(size_t size) {
  Guard guard(state_lock());
  state().failing_size = size;
  failures_planned = true;
}

int stop_failing() {
  Guard guard(state_lock());
  for (Plan &plan : state().plans) {
    plan = {};
  }
  state().failing_size = 0;
  failures_planned = false;
  return std::exchange(state().failures, 0);
}

bool fails(Fault fault) {
  if (!failures_planned) return false;
  Guard guard(state_lock());
  Plan &plan = state().plans[static_cast<size_t>(fault)];
  if (plan.before > 0) {
    --plan.before;
    return false;
  }
  if (plan.failing == 0) return false;
  --plan.failing;
  ++state().failures;
  errno = plan.error;
  return true;
}

namespace {
thread_local bool inside = false;
}  // namespace

Inside::Inside(bool now) : before_(std::exchange(inside, now)) {}
Inside::~Inside() { inside = before_; }

bool fails_inside(Fault fault) { return inside && fails(fault); }

void set_clock_ms(int64_t milliseconds) { clock_us.store(milliseconds * 1000, std::memory_order_relaxed); }
void advance_ms(int64_t milliseconds) {
  clock_us.fetch_add(milliseconds * 1000, std::memory_order_relaxed);
  monotonic_us.fetch_add(milliseconds * 1000, std::memory_order_relaxed);
}
int64_t clock_ms() { return clock_us.load(std::memory_order_relaxed) / 1000; }
int64_t slept_us() { return slept.load(std::memory_order_relaxed); }

void reset() {
  stop_failing();
  clock_us = kClockStartUs;
  slept = 0;
  state().plugins.clear();
  reset_log();
  reset_files();
  reset_services();
}

void add_plugin(const std::string &path, std::map<std::string, void *> symbols) {
  Guard guard(state_lock());
  state().plugins[path] = std::move(symbols);
}

int open_plugins() {
  Guard guard(state_lock());
  return state().open_plugins;
}

}  // namespace stand_in

extern "C" {

int __wrap_gettimeofday(struct timeval *now, void *) {
  int64_t us = clock_us.load(std::memory_order_relaxed);
  *now = {us / 1'000'000, us % 1'000'000};
  return 0;
}

// The wall clock by this name is the one of whoever runs the program: the module takes gettimeofday.
int __wrap_clock_gettime(clockid_t clock, struct timespec *now) {
  if (clock == CLOCK_REALTIME) return __real_clock_gettime(clock, now);
  int64_t us = monotonic_us.load(std::memory_order_relaxed);
  *now = {us / 1'000'000, us % 1'000'000 * 1000};
  return 0;
}

time_t __wrap_time(time_t *) { return clock_us.load(std::memory_order_relaxed) / 1'000'000; }

int __wrap_usleep(useconds_t microseconds) {
  slept.fetch_add(microseconds, std::memory_order_relaxed);
  stand_in::reached("usleep");
  struct timespec instant = {0, 50'000};
  return nanosleep(&instant, nullptr);
}

struct timeval ast_tvsub(struct timeval a, struct timeval b) {
  timeval difference;
  timersub(&a, &b, &difference);
  return difference;
}

void *__ast_calloc(size_t count, size_t size, const char *, int, const char *) {
  return tested(calloc(count, size), count * size);
}
void *__ast_malloc(size_t size, const char *, int, const char *) { return tested(malloc(size), size); }
void *__ast_realloc(void *old, size_t size, const char *, int, const char *) {
  return allocation_fails(size) ? nullptr : realloc(old, size);
}
char *__ast_strdup(const char *text, const char *, int, const char *) {
  return text ? static_cast<char *>(tested(strdup(text), strlen(text) + 1)) : nullptr;
}
void __ast_free(void *memory, const char *, int, const char *) { free(memory); }

int __ast_pthread_mutex_init(int, const char *, int, const char *, const char *, ast_mutex_t *mutex) {
  mutex->mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
  return 0;
}
#define MUTEX_CALL(call) \
  int __ast_##call(const char *, int, const char *, const char *, ast_mutex_t *mutex) { return call(&mutex->mutex); }
MUTEX_CALL(pthread_mutex_destroy)
MUTEX_CALL(pthread_mutex_lock)
MUTEX_CALL(pthread_mutex_unlock)

int __ast_rwlock_init(int, const char *, int, const char *, const char *, ast_rwlock_t *lock) {
  return pthread_rwlock_init(&lock->lock, nullptr);
}
int __ast_rwlock_destroy(const char *, int, const char *, const char *, ast_rwlock_t *lock) {
  return pthread_rwlock_destroy(&lock->lock);
}
#define RWLOCK_CALL(call)                                                                      \
  int __ast_rwlock_##call(const char *, int, const char *, ast_rwlock_t *lock, const char *) { \
    return pthread_rwlock_##call(&lock->lock);                                                 \
  }
RWLOCK_CALL(rdlock)
RWLOCK_CALL(wrlock)
RWLOCK_CALL(unlock)

// The sanitizers need more stack than the host gives, so the size is not kept to.
int ast_pthread_create_stack(pthread_t *thread, pthread_attr_t *, void *(*start)(void *), void *data, size_t,
                             const char *, const char *, int, const char *) {
  const stand_in::Outside outside;
  if (stand_in::fails(Fault::kThread)) return EAGAIN;
  using Start = std::pair<void *(*)(void *), void *>;
  return pthread_create(
      thread, nullptr,
      [](void *given) {
        const Start begin = *std::unique_ptr<Start>(static_cast<Start *>(given));
        const stand_in::Inside inside;
        return begin.first(begin.second);
      },
      new Start(start, data));
}

int __ao2_ref(void *object, int delta, const char *, const char *, int, const char *) {
  auto *counted = static_cast<stand_in::Object *>(object);
  int before = counted->references.fetch_add(delta);
  if (before + delta == 0) delete counted;
  return before;
}
void __ao2_cleanup_debug(void *object, const char *, const char *, int, const char *) {
  if (object) ao2_ref(object, -1);
}

void *__wrap_dlopen(const char *path, int) {
  const stand_in::Outside outside;
  Guard guard(stand_in::state_lock());
  auto found = state().plugins.find(path);
  if (found == state().plugins.end()) return nullptr;
  ++state().open_plugins;
  return &found->second;
}
void *__wrap_dlsym(void *handle, const char *symbol) {
  // A sanitizer, before anything has begun.
  if (handle == RTLD_NEXT || handle == RTLD_DEFAULT) return __real_dlsym(handle, symbol);
  const stand_in::Outside outside;
  const Symbols &symbols = *static_cast<Symbols *>(handle);
  return symbols.count(symbol) ? symbols.at(symbol) : nullptr;
}
char *__wrap_dlerror() {
  static char text[] = "cannot open shared object";
  return text;
}
int __wrap_dlclose(void *) {
  Guard guard(stand_in::state_lock());
  --state().open_plugins;
  return stand_in::fails(Fault::kClosePlugin) ? -1 : 0;
}

}  // extern "C"
