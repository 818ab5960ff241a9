// Creating a session: which engine it binds to, what it takes from there, and how it names itself.
#include "session_fixture.h"

namespace {

constexpr char UNIQUEID[] = "tandrel show session threadid uniqueid";
constexpr char REMOTE[] = "tandrel show session threadid remote";
constexpr char TAG[] = "tandrel show session threadid tag";
constexpr char PARAM[] = "tandrel show session threadid param";

class CreateTest : public SessionTest {
protected:
  std::string address_name() {
    char name[64];
    snprintf(name, sizeof(name), "QBK-%p", speech.data);
    return name;
  }
};

TEST_F(CreateTest, BindsToTheEntryThatTheEngineNames) {
  copy_text(quillbrook_engine[1].name, "Digits");
  copy_text(quillbrook_engine[2].name, "digits");
  copy_text(quillbrook_engine[3].name, "a:b");
  for (int index = 1; index <= 3; ++index) quillbrook_engine[index].plugin_init = FakePlugin::init;
  const std::pair<const char *, int> cases[] = {
      {"quillbrook", 0}, {"quillbrook:Digits", 1}, {"quillbrook:digits", 2}, {"quillbrook:a:b", 3}};
  for (auto [name, index] : cases) {
    copy_text(engine_name, name);
    create();
    EXPECT_EQ(session()->engine, &quillbrook_engine[index]) << name;
    destroy();
  }
  copy_text(engine_name, "quillbrook:DIGITS");
  EXPECT_EQ(quillbrook_recog_create(&speech, nullptr), -1);
  EXPECT_EQ(speech.data, nullptr);
  EXPECT_EQ(stand_in::module_references(), 0);
}

TEST_F(CreateTest, AsksTheCompanionWhoIsCalling) {
  stand_in::answer_command(UNIQUEID, "1700000000.1");
  stand_in::answer_command(REMOTE, "\033[1;31m+4930123\033[0m");
  stand_in::answer_command(TAG, "order-7");
  create();
  EXPECT_STREQ(session()->uniqueid, "1700000000.1");
  EXPECT_STREQ(session()->mark, "+4930123");
  EXPECT_EQ(session()->name, address_name()) << "the tag is asked for only with logtag";
  destroy();

  engine.logtag = 1;
  create();
  EXPECT_STREQ(session()->name, "QBK-order-7");
}

TEST_F(CreateTest, AValueThatIsNoneLeavesTheFieldEmpty) {
  engine.logtag = 1;
  struct Case {
    const char *why;
    std::string text;
    int result;
  };
  const Case cases[] = {
      {"refused, as the 16 series says it", "No such command\n", 2},
      {"refused, as the 13 series says it", "No such command 'x' (type 'core show help x')\n", 0},
      {"empty", "", 0},
      {"a byte too long for every field", std::string(151, 'x'), 0},
      {"with a control character", "a\tb", 0},
  };
  for (const Case &value : cases) {
    for (const char *command : {UNIQUEID, REMOTE, TAG}) {
      stand_in::answer_command(command, value.text, value.result);
    }
    create();
    EXPECT_STREQ(session()->uniqueid, "") << value.why;
    EXPECT_STREQ(session()->mark, "") << value.why;
    EXPECT_EQ(session()->name, address_name()) << value.why;
    destroy();
  }
  // The longest that fit.
  stand_in::answer_command(UNIQUEID, std::string(150, 'u'));
  stand_in::answer_command(REMOTE, std::string(148, 'r'));
  create();
  EXPECT_EQ(session()->uniqueid, std::string(150, 'u'));
  EXPECT_EQ(session()->mark, std::string(148, 'r'));
}

TEST_F(CreateTest, ALongTagIsCutBetweenCharacters) {
  engine.logtag = 1;
  stand_in::answer_command(TAG, std::string(144, 't') + "\xC3\xA9");
  create();
  EXPECT_EQ(session()->name, "QBK-" + std::string(144, 't'));
}

TEST_F(CreateTest, TheLoggingTagIsAWordOrAValueOfTheCall) {
  stand_in::answer_command(UNIQUEID, "u1");
  stand_in::answer_command(REMOTE, "r1");
  stand_in::answer_command(PARAM, "p1");
  const std::pair<const char *, const char *> cases[] = {
      {nullptr, ""}, {"uniqueid", "u1"}, {"remote", "r1"}, {"param", "p1"}, {"Remote", "Remote"}};
  for (auto [source, expected] : cases) {
    set(engine.loggingtag, source);
    create();
    EXPECT_STREQ(session()->loggingtag, expected);
    destroy();
  }
}

TEST_F(CreateTest, EveryAllocationMayFail) {
  engine.logtag = 1;
  set(engine.ws_phrases, "yes,no");
  set(engine.loggingtag, "param");
  for (const char *command : {UNIQUEID, REMOTE, TAG, PARAM}) {
    stand_in::answer_command(command, "value");
  }
  for (int nth = 1;; ++nth) {
    stand_in::fail(stand_in::Fault::Allocation, nth);
    const int result = quillbrook_recog_create(&speech, nullptr);
    const int failures = stand_in::stop_failing();
    if (result == 0) {
      destroy();
    } else {
      EXPECT_EQ(speech.data, nullptr);
      EXPECT_EQ(stand_in::logged(__LOG_ERROR, "Cannot allocate speech context!\n"), 1);
      EXPECT_EQ(quillbrook_statistics_read().stats.sessions_total, 0U);
    }
    EXPECT_EQ(result != 0, nth == 1);
    if (!failures) break;
  }
  stand_in::fail(stand_in::Fault::TemporaryFile);
  create();
  EXPECT_STREQ(session()->uniqueid, "");
}

}  // namespace
