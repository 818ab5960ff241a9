// The input decides each step of a walk: entries of the host, messages of the plugin, the clock.

#include "component/walk.h"
#include "fuzzed_session.h"

namespace {

class FuzzedWalk : public fuzzed::Fuzzed<Walk> {
public:
  FuzzedWalk(const uint8_t *data, size_t size) : next_(data), end_(data + size) {
    static const int threads_before = [] {
      std::thread([] {}).join();  // a sanitizer adds one of its own with the first
      return threads();
    }();
    constexpr size_t kBytesPerStep = 3;
    walk(one_of(kBehaviours), static_cast<int>(size / kBytesPerStep), threads_before);
  }

private:
  unsigned choose(unsigned count) override { return next_ == end_ ? 0 : *next_++ % count; }

  const uint8_t *next_, *end_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedWalk(data, size).require_success();
  return 0;
}
