// Creating a session: what it takes from the companion and the call, and how it names itself.
#include "session_fixture.h"

namespace {

constexpr char kUniqueid[] = "tandrel show session threadid uniqueid";
constexpr char kRemote[] = "tandrel show session threadid remote";
constexpr char kTag[] = "tandrel show session threadid tag";
constexpr char kParam[] = "tandrel show session threadid param";

class CreateTest : public SessionTest {
protected:
  std::string address_name() {
    char name[64];
    snprintf(name, sizeof(name), "QBK-%p", speech.data);
    return name;
  }
};

TEST_F(CreateTest, AsksTheCompanionWhoIsCalling) {
  // What it prints to each command (a tag is asked for last), and what is left of it.
  struct Case {
    std::string text;
    int result;
    std::string uniqueid, mark, tag;
  };
  const std::string most(148, 'x'), long_tag(144, 't');
  const Case cases[] = {
      {"order-7", 0, "order-7", "order-7", "order-7"},
      {"\033[1;31m+4930123\033[0m", 0, "+4930123", "+4930123", "+4930123"},
      {"No such command\n", 2, "", "", ""},                                // as the 16 series refuses
      {"No such command 'x' (type 'core show help x')\n", 0, "", "", ""},  // and the 13 series
      {"a\tb", 0, "", "", ""},
      {"", 0, "", "", ""},
      {most, 0, most, most, most.substr(3)},
      {most + "xx", 0, most + "xx", "", ""},
      {most + "xxx", 0, "", "", ""},
      {long_tag + "\xC3\xA9", 0, long_tag + "\xC3\xA9", long_tag + "\xC3\xA9", long_tag},
  };
  for (const int logtag : {0, 1}) {
    engine.logtag = logtag;
    for (const Case &test : cases) {
      for (const char *command : {kUniqueid, kRemote, kTag}) stand_in::answer_command(command, test.text, test.result);
      create();
      EXPECT_EQ(session()->uniqueid, test.uniqueid);
      EXPECT_EQ(session()->mark, test.mark);
      EXPECT_EQ(session()->name, logtag && !test.tag.empty() ? "QBK-" + test.tag : address_name());
      destroy();
    }
  }
}

TEST_F(CreateTest, TheLoggingTagIsAWordOrAValueOfTheCall) {
  stand_in::answer_command(kUniqueid, "u1");
  stand_in::answer_command(kRemote, "r1");
  stand_in::answer_command(kParam, "p1");
  const std::pair<const char *, const char *> cases[] = {
      {nullptr, ""}, {"uniqueid", "u1"}, {"remote", "r1"}, {"param", "p1"}, {"Remote", "Remote"}};
  for (auto [source, expected] : cases) {
    set(engine.loggingtag, source);
    create();
    EXPECT_STREQ(session()->loggingtag, expected);
    destroy();
  }
}

// Other threads read and write a channel's settings, also while it goes.
TEST_F(CreateTest, SettingsOfASessionThatIsGoneAreAnsweredAsAlways) {
  verbose = 1;
  for (const bool gone : {false, true}) {
    if (!gone) create();
    EXPECT_EQ(quillbrook_recog_change(&speech, "a", "b"), 0);
    EXPECT_EQ(quillbrook_recog_get_settings(&speech, "a", nullptr, 0), -1);
    EXPECT_EQ(quillbrook_recog_change_results_type(&speech, AST_SPEECH_RESULTS_TYPE_NORMAL), -1);
    EXPECT_EQ(stand_in::logged(__LOG_NOTICE, (gone ? "(?) " : named("")) + "Get settings name: a\n"), 1);
    if (!gone) destroy();
  }
}

}  // namespace
