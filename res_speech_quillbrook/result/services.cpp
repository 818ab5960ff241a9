#include "services.h"

#include "../record/session.h"
#include "../support/guard.h"
#include "../support/monotonic.h"
#include "../support/printable.h"

namespace {

int milliseconds_to_timer(const quillbrook_context *context) {
  const auto &run = *reinterpret_cast<const quillbrook_run_t *>(context);
  const int64_t next = shared_load(run.next_timer);
  if (next == kNoTimer) {
    return INT_MAX;
  }
  return static_cast<int>(std::clamp<int64_t>(next - monotonic_ms(), 0, INT_MAX));
}

constexpr int kMostComplaints = 20;  // of a recognition

void complain(quillbrook_context *context, const char *sentence) {
  guarded("complain", 0, [=] {
    quillbrook_run_t &run = *quillbrook_run_of(context);
    MutexLock passing(run.gate);
    if (!run.session || ++run.complaints > kMostComplaints + 1) {
      return 0;
    }
    const bool last = run.complaints > kMostComplaints;
    session_log(LOG_WARNING, run.session, "The plugin %s says: %s\n", shown(run.session->engine->plugin_name),
                last ? "(there is more, which is not shown)" : Printable(sentence).text());
    return 0;
  });
}

}  // namespace

const quillbrook_services quillbrook_services_offered = {sizeof(quillbrook_services), milliseconds_to_timer, complain};
