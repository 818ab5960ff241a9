// What the module relies on in any plugin: stopping in every phase, a tick at least every 100 ms, records that do not
// mix, and the module's own fields left alone. Run as: plugin_contract_test PLUGIN.so
#include <cstring>

#include "recognition.h"

namespace {

TEST(PluginContract, ExportsTheThreeFunctions) {
  ASSERT_TRUE(plugin().library) << dlerror();
  ASSERT_TRUE(plugin().init && plugin().loop && plugin().stop);
}

TEST(PluginContract, IsStoppedBeforeItsLoopAndTwice) {
  Recognition recognition;
  (void)plugin().init(recognition.record());
  recognition.stop();
  recognition.stop();
  recognition.expect_module_s_fields_untouched();
}

TEST(PluginContract, IsStoppedJustWhenItsLoopBegins) {
  for (int delay = 0; delay < 20; ++delay) {
    Recognition recognition(tone(200, 3000));
    ASSERT_EQ(plugin().init(recognition.record()), 0);
    recognition.start();
    std::this_thread::sleep_for(std::chrono::microseconds(delay * 50));
    recognition.stop();
    ASSERT_TRUE(recognition.join());
    recognition.stop();  // and once more after its loop has returned
  }
}

TEST(PluginContract, TicksUntilItIsStoppedOrReportsAFailure) {
  Recognition recognition;
  ASSERT_EQ(plugin().init(recognition.record()), 0);
  recognition.start();
  sleep_ms(2000);
  recognition.stop();
  ASSERT_TRUE(recognition.join());
  // 20 calls would be on time; the machine may be busy.
  if (std::strncmp(recognition.record()->extra, "ERROR:", 6) != 0) {
    EXPECT_GE(recognition.calls(), 15);
  }
  recognition.expect_module_s_fields_untouched();
}

TEST(PluginContract, CopesWithRefusedMessagesAGoneFileAndFinalize) {
  Recognition refused(tone(1500, 3000), -1);
  Recognition gone(tone(1500, 3000));
  Recognition finalized(tone(1500, 3000));
  for (Recognition *recognition : {&refused, &gone, &finalized}) {
    ASSERT_EQ(plugin().init(recognition->record()), 0);
    recognition->start();
  }
  gone.remove_file();
  sleep_ms(100);
  __atomic_store_n(&finalized.record()->finalize, 1, __ATOMIC_RELEASE);
  refused.append(std::string(1001, '\x7f'));  // a sample that is half there
  sleep_ms(300);
}  // each is stopped and joined here

TEST(PluginContract, ServesManyCallsAtOnce) {
  std::vector<std::unique_ptr<Recognition>> recognitions;
  for (int i = 0; i < 12; ++i) {
    recognitions.push_back(std::make_unique<Recognition>());
    ASSERT_EQ(plugin().init(recognitions.back()->record()), 0);
    recognitions.back()->start();
  }
  for (int round = 0; round < 10; ++round) {
    for (auto &recognition : recognitions) recognition->append(tone(100, 3000));
    sleep_ms(30);
  }
  for (auto &recognition : recognitions) recognition->stop();
  for (auto &recognition : recognitions) EXPECT_TRUE(recognition->join());
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc != 2) {
    (void)std::fprintf(stderr, "usage: %s PLUGIN.so\n", argv[0]);
    return 2;
  }
  plugin_path = argv[1];
  return RUN_ALL_TESTS();
}
