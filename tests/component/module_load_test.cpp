// Loading and unloading the module: what it offers the host, and that a failed load takes all of it back.
#include "session_fixture.h"

namespace {

using stand_in::Fault;

const std::map<std::string, void *> kSymbols = {{"quillbrook_init", reinterpret_cast<void *>(FakePlugin::init)},
                                                {"quillbrook_loop", reinterpret_cast<void *>(FakePlugin::loop)},
                                                {"quillbrook_stop", reinterpret_cast<void *>(FakePlugin::stop)}};

class LoadTest : public testing::Test {
protected:
  LoadTest() {
    stand_in::reset();
    stand_in::add_plugin("/usr/lib/quillbrook/good.so", kSymbols);
    stand_in::write_config("quillbrook.conf",
                           "[general]\nplugin=good.so\nprofiles=digits,names\nloggingtag=x\n"
                           "[digits]\nmodel=d\n[names]\nloggingtag=y\n");
  }
  static void expect_nothing_left() {
    EXPECT_THAT(stand_in::engine_names(), testing::IsEmpty());
    EXPECT_THAT(stand_in::http_uris(), testing::IsEmpty());
    EXPECT_THAT(stand_in::command_names(), testing::IsEmpty());
    EXPECT_EQ(stand_in::open_plugins(), 0);
    EXPECT_EQ(stand_in::format_caps(), 0);
  }
  FakePlugin plugin;
};

TEST_F(LoadTest, PathsOfPlugins) {
  const std::pair<const char *, const char *> cases[] = {{"plugin=other.so", "/usr/lib/quillbrook/other.so"},
                                                         {"plugin=/opt/p.so", "/opt/p.so"},
                                                         {"plugin=./p.so", "./p.so"},
                                                         {"", "/usr/lib/quillbrook/plugin_dummy.so"}};
  for (auto [line, path] : cases) {
    stand_in::write_config("quillbrook.conf", std::string("[general]\n") + line + "\n");
    EXPECT_EQ(stand_in::load_module(), -1) << line;
    stand_in::add_plugin(path, kSymbols);
    EXPECT_EQ(stand_in::load_module(), 0) << line;
    EXPECT_EQ(stand_in::unload_module(), 0) << line;
  }
  // An empty value asks for no default engine.
  stand_in::write_config("quillbrook.conf", "[general]\nplugin=\nprofiles=digits\n[digits]\nplugin=good.so\n");
  ASSERT_EQ(stand_in::load_module(), 0);
  EXPECT_THAT(stand_in::engine_names(), testing::ElementsAre("quillbrook:digits"));
  EXPECT_EQ(stand_in::unload_module(), 0);
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, "Failed to unregister module\n"), 1);
  expect_nothing_left();
}

TEST_F(LoadTest, EachFunctionHasTwoNamesAndTheFirstWins) {
  void *wrong = reinterpret_cast<void *>(+[] {});
  stand_in::add_plugin("/usr/lib/quillbrook/good.so", {{"init", kSymbols.at("quillbrook_init")},
                                                       {"quillbrook_loop", kSymbols.at("quillbrook_loop")},
                                                       {"loop", wrong},
                                                       {"hangup", kSymbols.at("quillbrook_stop")}});
  ASSERT_EQ(stand_in::load_module(), 0);
  EXPECT_EQ(quillbrook_engine[0].plugin_init, FakePlugin::init);
  EXPECT_EQ(quillbrook_engine[1].plugin_loop, FakePlugin::loop);
  EXPECT_EQ(quillbrook_engine[2].plugin_stop, FakePlugin::stop);
  EXPECT_EQ(stand_in::unload_module(), 0);

  for (const char *role : {"init", "loop", "stop"}) {
    std::map<std::string, void *> symbols = kSymbols;
    symbols.erase("quillbrook_" + std::string(role));
    stand_in::add_plugin("/usr/lib/quillbrook/good.so", symbols);
    EXPECT_EQ(stand_in::load_module(), -1);
    const std::string second = role == std::string("stop") ? "hangup" : role;
    EXPECT_EQ(stand_in::logged(__LOG_ERROR,
                               "Failed to load the plugin function : quillbrook_" + std::string(role) + " / " + second),
              1);
    expect_nothing_left();
  }
}

TEST_F(LoadTest, AnUnloadThatFailsHalfWayLeavesNoEngineThatRuns) {
  ASSERT_EQ(stand_in::load_module(), 0);
  stand_in::fail(Fault::kClosePlugin, 3);
  EXPECT_EQ(stand_in::unload_module(), -1);
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, "Failed to unload the QuillBrook plugin : res=-1.\n"), 1);
  ast_speech speech{};
  ASSERT_THAT(stand_in::engine_names(), testing::ElementsAre("quillbrook"));
  EXPECT_EQ(stand_in::create_speech(speech, stand_in::find_engine("quillbrook")), -1);
  EXPECT_EQ(stand_in::unload_module(), 0);
  expect_nothing_left();
}

// A call had found its engine when the unload began, or was in the middle of its creation.
TEST_F(LoadTest, AnUnloadGivesWayToASessionThatBegins) {
  for (const char *moment : {"usleep", "cli tandrel show session threadid uniqueid"}) {
    ASSERT_EQ(stand_in::load_module(), 0);
    const std::vector<std::string> commands = stand_in::command_names();
    ast_speech_engine *found = stand_in::find_engine("quillbrook:digits");
    ast_speech speech{};
    int unloaded = 0;
    const auto create = [&] { EXPECT_EQ(stand_in::create_speech(speech, found), 0); };
    const auto unload = [&] { unloaded = stand_in::unload_module(); };
    const bool unload_is_first = moment == std::string("usleep");
    stand_in::during(moment, unload_is_first ? std::function<void()>(create) : unload);
    unload_is_first ? unload() : create();
    EXPECT_EQ(unloaded, -1) << moment;
    EXPECT_THAT(stand_in::engine_names(), testing::ElementsAre("quillbrook", "quillbrook:digits", "quillbrook:names"));
    EXPECT_EQ(stand_in::http_uris().size(), 3U);
    EXPECT_EQ(stand_in::command_names(), commands);
    ASSERT_NE(speech.data, nullptr) << moment;

    // The session ends as the next unload looks: that one waits a second time, for the last steps of the destruction.
    const int64_t slept = stand_in::slept_us();
    stand_in::during("usleep", [&] { found->destroy(&speech); });
    EXPECT_EQ(stand_in::unload_module(), 0);
    EXPECT_EQ(stand_in::slept_us() - slept, 2 * 200000);
    expect_nothing_left();
  }
}

TEST_F(LoadTest, TheAudioThatAKilledPbxLeftGoes) {
  for (int time = 0; time < 2; ++time) {
    if (time == 0) stand_in::write_file("/tmp/quillbrook_0x55.wav", "audio");
    ASSERT_EQ(stand_in::load_module(), 0);
    EXPECT_THAT(stand_in::files(), testing::IsEmpty());
    EXPECT_EQ(stand_in::logged(__LOG_NOTICE, "Removed 1 files that a PBX which is gone had left in /tmp\n"), 1);
    EXPECT_EQ(stand_in::unload_module(), 0);
  }
}

TEST_F(LoadTest, NoSessionBeginsBeforeTheLoadIsWhole) {
  ast_speech speech{};
  stand_in::during("register quillbrook:names",
                   [&] { EXPECT_EQ(stand_in::create_speech(speech, stand_in::find_engine("quillbrook")), -1); });
  stand_in::fail(Fault::kEngineRegister, 3);
  EXPECT_EQ(stand_in::load_module(), -1);
  EXPECT_EQ(stand_in::noted("register quillbrook:names"), 1);
  expect_nothing_left();
}

TEST_F(LoadTest, EnginesOfOtherModulesStay) {
  ast_speech_engine names = stand_in::foreign_engine("quillbrook:names");
  ASSERT_EQ(ast_speech_register(&names), 0);
  EXPECT_EQ(stand_in::load_module(), -1);
  EXPECT_THAT(stand_in::engine_names(), testing::ElementsAre("quillbrook:names"));
  ast_speech_unregister("quillbrook:names");

  ast_speech_engine main = stand_in::foreign_engine("quillbrook");
  ASSERT_EQ(ast_speech_register(&main), 0);
  stand_in::write_config("quillbrook.conf", "[general]\nplugin=\nprofiles=digits\n[digits]\nplugin=good.so\n");
  EXPECT_EQ(stand_in::load_module(), 0);
  EXPECT_EQ(stand_in::unload_module(), 0);
  EXPECT_THAT(stand_in::engine_names(), testing::ElementsAre("quillbrook"));
  ast_speech_unregister("quillbrook");
  expect_nothing_left();
}

}  // namespace
