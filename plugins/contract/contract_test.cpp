// What the module relies on in any plugin: stopping in every phase, a call every 100 ms, records that do not mix, and
// the module's own fields left alone.
#include <cstring>
#include <memory>

#include "plugin_driver.h"

namespace {

using std::chrono::milliseconds;

// A call with hints. A plugin that wants a server is given a URL where nobody listens, and has to cope with that.
std::unique_ptr<Recognition> recognition(const std::string &audio = "") {
  auto made = std::make_unique<Recognition>();
  (void)std::snprintf(made->record.profile, sizeof made->record.profile, "%s", plugin_url().c_str());
  (void)std::strcpy(made->record.phrases, "yes,no");
  made->append(audio);
  return made;
}

TEST(PluginContract, IsStoppedBeforeItsLoopAndTwice) {
  const auto stopped = recognition();
  (void)plugin().init(&stopped->record);
  stopped->stop();
  stopped->stop();
}

TEST(PluginContract, IsStoppedJustWhenItsLoopBegins) {
  for (int delay = 0; delay < 20; ++delay) {
    const auto stopped = recognition(tone(200));
    stopped->start();
    std::this_thread::sleep_for(std::chrono::microseconds(delay * 50));
    stopped->stop();
    stopped->stop();  // and once more after its loop has returned
  }
}

TEST(PluginContract, CallsBackUntilItIsStoppedOrReportsAFailure) {
  const auto idle = recognition();
  idle->start();
  std::this_thread::sleep_for(milliseconds(2000));
  idle->stop();
  // 20 calls would be on time; the machine may be busy.
  if (std::strncmp(idle->record.extra, "ERROR:", 6) != 0) {
    EXPECT_GE(idle->calls(), 15);
  }
  idle->expect_untouched_fields();
}

TEST(PluginContract, CopesWithRefusedMessagesAGoneFileAndFinalize) {
  const auto refused = recognition(tone(1500));
  const auto gone = recognition(tone(1500));
  const auto finalized = recognition(tone(1500));
  refused->refusing = true;
  for (const auto &each : {&refused, &gone, &finalized}) (*each)->start();
  gone->remove_file();
  std::this_thread::sleep_for(milliseconds(100));
  finalized->finalize();
  refused->append(std::string(1001, '\x7f'));  // a sample that is half there
  std::this_thread::sleep_for(milliseconds(300));
}  // each is stopped and joined here

TEST(PluginContract, ServesManyCallsAtOnce) {
  std::vector<std::unique_ptr<Recognition>> calls;
  for (int i = 0; i < 12; ++i) {
    calls.push_back(recognition());
    calls.back()->start();
  }
  for (int round = 0; round < 10; ++round) {
    for (const auto &call : calls) call->append(tone(100));
    std::this_thread::sleep_for(milliseconds(30));
  }
  for (const auto &call : calls) call->stop();
}

TEST(PluginContract, IsGoneAfterItsUnload) {
  {
    const auto call = recognition(tone(200));
    call->start();
    call->stop();
  }
  plugin().close();
}

}  // namespace
