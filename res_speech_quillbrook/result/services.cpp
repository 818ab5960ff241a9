#include "services.h"

#include "../record/recognition.h"
#include "../support/guard.h"
#include "../support/monotonic.h"

namespace {

int milliseconds_to_timer(const quillbrook_context *context) {
  const auto &run = *reinterpret_cast<const quillbrook_run_t *>(context);
  const int64_t next = shared_load(run.next_timer);
  if (next == kNoTimer) {
    return INT_MAX;
  }
  return static_cast<int>(std::clamp<int64_t>(next - monotonic_ms(), 0, INT_MAX));
}

}  // namespace

const quillbrook_services quillbrook_services_offered = {sizeof(quillbrook_services), milliseconds_to_timer};
