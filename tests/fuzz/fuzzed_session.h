// A fixture of the component tests without a test around it.
#pragma once

#include "component/session_fixture.h"
#include "fuzzed.h"
#include "host/state.h"

namespace fuzzed {

template <typename Fixture>
class Fuzzed : public Fixture {
public:
  Fuzzed() {
    static const int registered = atexit([] {
      stand_in::reset();
      stand_in::remove_sandbox();
    });
    require(registered == 0, "nobody would clean up");
  }
  // The expectations have said what is wrong.
  static void require_success() {
    if (testing::Test::HasFailure()) std::abort();
  }

private:
  void TestBody() override {}
};

}  // namespace fuzzed
