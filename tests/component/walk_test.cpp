// Random walks of a session. A failure prints the seed; QUILLBROOK_THOROUGH in the environment asks for more of them.
#include <random>

#include "walk.h"

namespace {

class WalkTest : public Walk {
protected:
  unsigned choose(unsigned count) override { return random() % count; }
  std::mt19937 random;
};

TEST_F(WalkTest, NoCallerIsTrappedAndNothingIsLeft) {
  const int walks = getenv("QUILLBROOK_THOROUGH") ? 20000 : 1100;
  constexpr int kSteps = 30;
  std::thread([] {}).join();  // a sanitizer adds one of its own with the first
  const int threads_before = threads();
  for (int seed = 1; seed <= walks && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    random.seed(seed);
    walk(kBehaviours[seed % std::size(kBehaviours)], kSteps, threads_before);
  }
}

}  // namespace
