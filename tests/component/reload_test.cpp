// `quillbrook reload`: what sessions of before and after it have, and that a reload that comes to nothing changes
// nothing.
#include "session_fixture.h"

namespace {

using stand_in::Fault;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kBefore[] =
    "[general]\nplugin=good.so\ncompletetimeout=500\nprofiles=digits,names\n"
    "[digits]\nmodel=old\nplugin=old.so\n[names]\n";
constexpr char kAfter[] =
    "[general]\nplugin=good.so\ncompletetimeout=900\nverbose=yes\nweb=no\n"
    "profiles=digits,cities\n[digits]\nmodel=new\n[cities]\n";

class ReloadTest : public testing::Test {
protected:
  ReloadTest() {
    stand_in::reset();
    for (const char *name : {"good", "old"}) {
      stand_in::add_plugin("/usr/lib/quillbrook/" + std::string(name) + ".so",
                           {{"quillbrook_init", reinterpret_cast<void *>(FakePlugin::init)},
                            {"quillbrook_loop", reinterpret_cast<void *>(FakePlugin::loop)},
                            {"quillbrook_stop", reinterpret_cast<void *>(FakePlugin::stop)}});
    }
    folder_ = stand_in::real_path("/etc/asterisk/");
    folder_.pop_back();
    ast_config_AST_CONFIG_DIR = folder_.c_str();
    write(kBefore);
  }

  static void write(const std::string &text) { stand_in::write_config("quillbrook.conf", text); }
  static std::string reload() { return stand_in::run_command("quillbrook reload"); }

  // What sessions that begin now would have.
  static std::string now() {
    const EngineTable engines = quillbrook_engines();
    std::string text = std::to_string(engines[0].completetimeout);
    for (const std::string &name : stand_in::engine_names()) text += " " + name;
    quillbrook_for_each_profile(engines, [&text](const quillbrook_engine_t &engine) {
      text += std::string(" ") + engine.name + "=" + engine.ws_model;
    });
    return text + (quillbrook_webregged ? " web" : "") + (verbose ? " verbose" : "");
  }

  struct Call {
    explicit Call(const char *engine) : found(stand_in::find_engine(engine)) {}
    bool create() { return stand_in::create_speech(speech, found) == 0; }
    void start() { found->start(&speech); }
    void destroy() { found->destroy(&speech); }
    const quillbrook_engine_t &engine() { return *quillbrook_session_of(&speech)->engine; }
    ast_speech_engine *found;
    ast_speech speech{};
  };

  FakePlugin plugin;
  std::string folder_;
};

constexpr char kNowBefore[] = "500 quillbrook quillbrook:digits quillbrook:names digits=old names= web";
constexpr char kNowAfter[] = "900 quillbrook quillbrook:digits quillbrook:cities digits=new cities= verbose";

TEST_F(ReloadTest, SessionsKeepWhatTheyBeganWith) {
  ASSERT_EQ(stand_in::load_module(), 0);
  ASSERT_EQ(now(), kNowBefore);
  Call running("quillbrook:digits"), late("quillbrook:names");
  ASSERT_TRUE(running.create());
  running.start();
  ASSERT_TRUE(eventually([&] { return plugin.loops == 1; }));
  EXPECT_EQ(stand_in::open_plugins(), 3);

  write(kAfter);
  EXPECT_EQ(reload(),
            "The configuration was read: 3 engines\nAdded: quillbrook:cities\nRemoved: quillbrook:names\n"
            "1 session keeps the settings that it began with\n");
  EXPECT_EQ(now(), kNowAfter);
  EXPECT_EQ(stand_in::open_plugins(), 6);
  EXPECT_STREQ(running.engine().ws_model, "old");
  EXPECT_FALSE(late.create());  // had found its engine before the reload
  Call fresh("quillbrook:digits");
  ASSERT_TRUE(fresh.create());
  EXPECT_STREQ(fresh.engine().ws_model, "new");

  // A name that comes back, while what was of it before still lasts.
  write(kBefore);
  EXPECT_THAT(reload(), HasSubstr("Added: quillbrook:names\nRemoved: quillbrook:cities\n1 session keeps"));
  EXPECT_EQ(now(), kNowBefore);
  EXPECT_EQ(stand_in::open_plugins(), 9);
  running.start();  // goes on
  running.destroy();
  EXPECT_EQ(stand_in::open_plugins(), 6);
  fresh.destroy();
  EXPECT_EQ(stand_in::open_plugins(), 3);
  ASSERT_TRUE(late.create());
  late.destroy();

  EXPECT_EQ(stand_in::unload_module(), 0);
  EXPECT_EQ(stand_in::open_plugins(), 0);
  EXPECT_EQ(stand_in::format_caps(), 0);
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, "Failed to unregister module quillbrook:names\n"), 0);
}

TEST_F(ReloadTest, AFileWithAMistakeChangesNothing) {
  ASSERT_EQ(stand_in::load_module(), 0);
  const std::string after = kAfter;
  const std::pair<std::string, const char *> mistakes[] = {
      {after + "completetimout=1\n", "quillbrook.conf:10: [cities] has no key \"completetimout\""},
      {after + "plugin=missing.so\n", "quillbrook.conf:10: Failed to load the plugin"},
      {"[general\n", "does not load with this file\nNothing was changed.\n"}};
  for (const auto &[text, line] : mistakes) {
    write(text);
    EXPECT_THAT(reload(), HasSubstr(line));
    EXPECT_EQ(now(), kNowBefore);
    EXPECT_EQ(stand_in::open_plugins(), 3);
  }
  EXPECT_THAT(stand_in::run_command("quillbrook reload anyway"), HasSubstr("Nothing was changed"));
  write(mistakes[0].first);
  EXPECT_THAT(stand_in::run_command("quillbrook reload anyway"), HasSubstr("was read: 3 engines"));
  EXPECT_EQ(now(), kNowAfter);
  EXPECT_EQ(stand_in::unload_module(), 0);
}

TEST_F(ReloadTest, AFailureChangesNothing) {
  ast_speech_engine names = stand_in::foreign_engine("quillbrook:cities");
  ASSERT_EQ(ast_speech_register(&names), 0);
  ASSERT_EQ(stand_in::load_module(), 0);
  write(kAfter);
  EXPECT_EQ(reload(), "Nothing was changed: see the log.\n");
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, "Failed to register module quillbrook:cities\n"), 1);
  ast_speech_unregister("quillbrook:cities");
  EXPECT_EQ(now(), kNowBefore);

  for (int nth = 1;; ++nth) {
    stand_in::fail(Fault::kAllocation, nth);
    reload();
    const int failures = stand_in::stop_failing();
    if (!failures) break;
    // Without memory for its record a profile is passed over, as it is by the load.
    EXPECT_THAT(now(),
                testing::AnyOf(kNowBefore, kNowAfter, "900 quillbrook quillbrook:digits digits=new cities= verbose"));
    write(kBefore);
    reload();
    ASSERT_EQ(now(), kNowBefore) << nth;
    EXPECT_EQ(stand_in::open_plugins(), 3) << nth;
    write(kAfter);
  }
  EXPECT_EQ(stand_in::unload_module(), 0);
  EXPECT_EQ(stand_in::format_caps(), 0);
}

TEST_F(ReloadTest, TheUnloadAndAReloadDoNotMeet) {
  ASSERT_EQ(stand_in::load_module(), 0);
  std::string said;
  stand_in::during("usleep", [&] { said = stand_in::run_command("quillbrook reload"); });
  EXPECT_EQ(stand_in::unload_module(), 0);
  EXPECT_THAT(said, HasSubstr("No such command"));
}

// For the thread sanitizer: calls come and go, and everybody looks, while the configuration changes again and again.
TEST_F(ReloadTest, UnderCalls) {
  ASSERT_EQ(stand_in::load_module(), 0);
  std::atomic<bool> over{false};
  std::atomic<int> sessions{0};
  const auto call = [&](const char *engine) {
    while (!over) {
      Call each(engine);
      if (!each.found || !each.create()) continue;
      each.start();
      each.destroy();
      ++sessions;
    }
  };
  std::thread first(call, "quillbrook"), second(call, "quillbrook:digits"), third(call, "quillbrook:names");
  std::thread console([&] {
    while (!over) stand_in::run_command("quillbrook show plugins");
  });
  for (int round = 0; round < 20; ++round) {
    write(round % 2 ? kBefore : kAfter);
    EXPECT_THAT(reload(), HasSubstr("was read"));
    const int before = sessions;
    EXPECT_TRUE(eventually([&] { return sessions > before + 2; }));
  }
  over = true;
  for (std::thread *thread : {&first, &second, &third, &console}) thread->join();
  EXPECT_EQ(now(), kNowBefore);
  EXPECT_EQ(stand_in::open_plugins(), 3);
  EXPECT_EQ(stand_in::unload_module(), 0);
}

}  // namespace
