#include "reporter.h"

#include "../support/bell.h"
#include "../support/guard.h"
#include "../support/monotonic.h"
#include "../support/mutex.h"
#include "observer.h"

namespace {

// Time between two lines about lost records.
constexpr int64_t kLossInterval = 60000;
// When something unforeseen went wrong the thread tries again.
constexpr int kRetry = 1000;

// An interim that was held back, and when it is due.
using Due = std::pair<int64_t, std::shared_ptr<Observer>>;

struct Queue {
  Bell bell;
  Mutex lock;  // a leaf
  std::vector<quillbrook_report> waiting QUILLBROOK_GUARDED_BY(lock);
  unsigned long long lost QUILLBROOK_GUARDED_BY(lock) = 0;
  // The thread's own.
  std::vector<Due> held_back;
  int64_t told_of_losses = 0;
};

// Never destroyed: a PBX that ends without unloading its modules leaves the thread asleep on it.
alignas(Queue) char queue_storage[sizeof(Queue)];
Queue &queue = *new (queue_storage) Queue();

pthread_t reporter_thread;  // loading thread
bool running = false;       // loading thread
std::atomic<bool> ending{false};

void send_interim(const std::shared_ptr<Observer> &observer) {
  const int64_t due = observer->send_interim();
  if (due) {
    queue.held_back.emplace_back(due, observer);
  }
}

void handle(quillbrook_report &report) {
  switch (report.kind) {
    case quillbrook_report::kEvent:
      host_manager_event(report.event, report.text.c_str());
      break;
    case quillbrook_report::kInterim:
      send_interim(report.observer);
      break;
    case quillbrook_report::kTrace:
      report.observer->file().open(report.observer->identity(), report.text);
      break;
    case quillbrook_report::kTraceLine:
      report.observer->file().write(report.text);
      break;
    case quillbrook_report::kTraceEnd:
      report.observer->file().write(report.text);
      report.observer->file().close();
      break;
  }
}

// Milliseconds until the next one, or -1.
int send_due_interims() {
  std::vector<Due> all;
  all.swap(queue.held_back);
  const int64_t now = monotonic_ms();
  for (const auto &[due, observer] : all) {
    if (due <= now) {
      send_interim(observer);
    } else {
      queue.held_back.emplace_back(due, observer);
    }
  }
  int64_t next = -1;
  for (const auto &[due, observer] : queue.held_back) {
    const int64_t left = std::max<int64_t>(due - now, 1);
    next = next < 0 ? left : std::min(next, left);
  }
  return static_cast<int>(next);
}

std::vector<quillbrook_report> take_all() {
  std::vector<quillbrook_report> reports;
  MutexLock held(queue.lock);
  reports.swap(queue.waiting);
  return reports;
}

// One line for many: the machine that cannot follow has enough to do.
void tell_losses() {
  unsigned long long lost = 0;
  {
    MutexLock held(queue.lock);
    const int64_t now = monotonic_ms();
    if (!queue.lost || (queue.told_of_losses && now - queue.told_of_losses < kLossInterval)) {
      return;
    }
    queue.told_of_losses = now;
    lost = std::exchange(queue.lost, 0);
  }
  ast_log(LOG_WARNING, "%llu events and lines of traces were lost: they came faster than they could be reported\n",
          lost);
}

void *quillbrook_reporter(void *) {
  while (!ending) {
    const int next = guarded("quillbrook_reporter", kRetry, quillbrook_report_all);
    queue.bell.wait(next);
  }
  guarded("quillbrook_reporter", 0, quillbrook_report_all);
  return nullptr;
}

}  // namespace

void quillbrook_report_push(quillbrook_report report) {
  {
    MutexLock held(queue.lock);
    bool taken = queue.waiting.size() < kReportsMax;
    try {
      if (taken) {
        queue.waiting.push_back(std::move(report));
      }
    } catch (const std::bad_alloc &) {
      taken = false;
    }
    queue.lost += !taken;
  }
  queue.bell.ring();
}

int quillbrook_report_all() {
  for (quillbrook_report &report : take_all()) {
    guarded("quillbrook_reporter", 0, [&report] {
      handle(report);
      return 0;
    });
  }
  const int next = send_due_interims();
  tell_losses();
  return next;
}

bool quillbrook_reporter_start() {
  ending = false;
  const int result =
      ast_pthread_create_stack(&reporter_thread, nullptr, quillbrook_reporter, nullptr, host_stack_size(), __FILE__,
                               __FUNCTION__, __LINE__, "quillbrook_reporter");
  running = result == 0;
  if (!running) {
    ast_log(LOG_WARNING, "The reporting thread cannot run (%s): there are no events and no traces\n", strerror(result));
  }
  return running;
}

void quillbrook_reporter_stop() {
  if (std::exchange(running, false)) {
    ending = true;
    queue.bell.ring();
    pthread_join(reporter_thread, nullptr);
  }
  take_all();
  queue.held_back.clear();
}
