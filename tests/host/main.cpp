// The entry of each test program: after the last test nothing of the module may be left.
#include <gtest/gtest.h>

#include "state.h"

namespace {

class NothingIsLeft : public testing::Environment {
  void SetUp() override { stand_in::reset(); }
  void TearDown() override {
    EXPECT_EQ(stand_in::module_references(), 0);
    EXPECT_EQ(stand_in::channel_references(), 0);
    EXPECT_EQ(stand_in::open_plugins(), 0);
    EXPECT_TRUE(stand_in::engine_names().empty());
    EXPECT_TRUE(stand_in::files().empty()) << stand_in::files().front();
    stand_in::reset();
    stand_in::remove_sandbox();
  }
};

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::AddGlobalTestEnvironment(new NothingIsLeft);
  return RUN_ALL_TESTS();
}
