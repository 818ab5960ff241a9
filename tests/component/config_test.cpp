// The configuration file: keys, their readings and defaults, profiles; and what people read about the keys.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "engine/config.h"
#include "engine/config_keys.h"
#include "ops/statistics.h"
#include "stand_in.h"

namespace {

using Engine = quillbrook_engine_t;
using testing::ElementsAre;
using testing::StartsWith;

void release_table() {
  for (Engine &entry : quillbrook_engine) {
    quillbrook_engine_release_texts(entry);
    if (entry.log_file) fclose(entry.log_file);
  }
  quillbrook_engine_table_init();
}

class Config : public testing::Test {
protected:
  void SetUp() override {
    stand_in::reset();
    quillbrook_engine_table_init();
    quillbrook_statistics_init();
  }
  void TearDown() override {
    release_table();
    quillbrook_statistics_destroy();
  }
  int load(const std::string &text) {
    release_table();
    stand_in::write_config("quillbrook.conf", text);
    return quillbrook_engine_config_load();
  }
  // The names of the entries from 1 to `last`.
  static std::vector<std::string> names(int last) {
    std::vector<std::string> found;
    for (int index = 1; index <= last; ++index) found.emplace_back(quillbrook_engine[index].name);
    return found;
  }
  static int warned(const std::string &text) { return stand_in::logged(__LOG_WARNING, text); }

  Engine &general = quillbrook_engine[0];
  Engine &profile = quillbrook_engine[1];
};

// By the names that the debug output gives them.
TEST_F(Config, NoKeyWritesTheFieldOfAnother) {
  const ConfigKeys keys = config_keys();
  for (const ConfigKey &key : keys) {
    const auto has_its_field = [&key](const ConfigKey &other) { return other.field == key.field; };
    EXPECT_EQ(std::count_if(keys.begin(), keys.end(), has_its_field), 1) << key.names[0];
  }
}

TEST_F(Config, ReadingsOfTheirOwn) {
  const struct {
    const char *general_lines, *profile_lines;
    const int *value;
    int expected;
  } readings[] = {{"debug=plugins", "", &debug, 2},
                  {"debug=Plugin", "", &debug, 0},
                  {"debug=Yes", "", &debug, 1},
                  {"web=no\nwebenabled=yes", "", &quillbrook_webenabled, 0},
                  {"webenabled=no", "", &quillbrook_webenabled, 0},
                  {"threshold=dsp", "", &general.threshold, 256},
                  {"threshold=default", "", &profile.threshold, 256},
                  {"threshold=DSP", "", &general.threshold, 0},
                  {"", "threshold=dsp", &profile.threshold, 0},
                  {"normalize_phrases=yes", "", &profile.normalize_phrases, 2},
                  {"normalize_phrases=both", "normalize_phrases=phrases", &profile.normalize_phrases, 1},
                  {"normalize_phrases=both", "normalize_phrases=true", &profile.normalize_phrases, 0},
                  {"utterances=separate", "", &profile.separate, 1},
                  {"utterances=separate", "utterances=joined", &profile.separate, 0},
                  {"silences=both", "", &profile.both_silences, 1},
                  {"utterances=Separate", "", &general.separate, 0},
                  {"events=interims", "", &profile.events, 2},
                  {"events=interims", "events=results", &profile.events, 1},
                  {"events=yes", "", &general.events, 0},
                  {"jsonpieces=all", "", &profile.jsonpieces, 1},
                  {"jsonpieces=all", "jsonpieces=last", &profile.jsonpieces, 0},
                  {"closetimeout=0", "", &general.closetimeout, 10000},
                  {"closetimeout=500", "closetimeout=-5", &profile.closetimeout, 500},
                  {"closetimeout=1", "", &general.closetimeout, 1},
                  {"completetimeout= 70x", "", &general.completetimeout, 70},
                  {"completetimeout=-1", "", &general.completetimeout, -1},
                  {"completetimeout=99999999999999999999", "", &general.completetimeout, INT_MAX},
                  {"completetimeout=-4294967296", "", &general.completetimeout, INT_MIN},
                  {"returnjson=yes\nreturnnlsml=yes", "", &general.returnjson, 0},
                  {"returnjson=yes\nreturnnlsml=no", "", &general.returnjson, 1},
                  {"returnnlsml=yes", "returnjson=yes", &profile.returnjson, 1},
                  {"returnnlsml=yes", "returnjson=yes", &profile.returnnlsml, 1},
                  {"returnnlsml=yes", "returnjson=yes\nreturnnlsml=no", &profile.returnnlsml, 0},
                  {"returnjson=yes", "returnnlsml=yes", &profile.returnjson, 0},
                  {"returnjson=yes", "returnnlsml=no", &profile.returnjson, 1}};
  for (const auto &reading : readings) {
    const std::string text = "[general]\nprofiles=p\n" + std::string(reading.general_lines) + "\n[p]\n";
    ASSERT_EQ(load(text + reading.profile_lines), 0);
    EXPECT_EQ(*reading.value, reading.expected) << text << reading.profile_lines;
  }
}

TEST_F(Config, FirstAliasThatIsPresentDecides) {
  for (const char *section : {"[general]\n", "[general]\nprofiles=p\nmodel=g\nlang=g\nconfig=g\n[p]\n"}) {
    ASSERT_EQ(load(std::string(section) + "parameters=text\nmodel=\nlang=a\nlanguage=b\nconfig=only\n"), 0);
    const Engine &read = profile.name[0] ? profile : general;
    EXPECT_STREQ(read.ws_model, "");
    EXPECT_STREQ(read.ws_language, "b");
    EXPECT_STREQ(read.ws_configuration, "only");
  }
  ASSERT_EQ(load("[general]\nplugins=c\nmodules=b\n[b]\n[c]\n"), 0);
  EXPECT_THAT(names(2), ElementsAre("b", ""));
}

TEST_F(Config, NamesThatGiveNoProfileKeepTheirPlace) {
  ASSERT_EQ(load("[general]\nprofiles=\n[]\n"), 0);
  EXPECT_EQ(warned("Profile  not found!\n"), 1);
  ASSERT_EQ(load("[general]\nprofiles=a,General,b, b,missing,c,\n[a]\n[b]\n[c]\n[]\n"), 0);
  EXPECT_THAT(names(7), ElementsAre("a", "", "b", "", "", "c", ""));
  EXPECT_EQ(warned("Profile  b not found!\n") + warned("Profile missing not found!\n"), 2);
  EXPECT_EQ(warned("Profile  not found!\n"), 2);
  EXPECT_EQ(stand_in::mentioned("not found"), 4);
}

TEST_F(Config, ListAndNamesStayInTheTable) {
  const std::string too_long(89, 'x'), longest(88, 'y');
  std::string list;
  for (int index = 1; index <= 97; ++index) list += "p,";
  list += too_long + "," + longest;
  const std::string sections = "\n[p]\n[" + too_long + "]\n[" + longest + "]\n";
  ASSERT_EQ(load("[general]\nprofiles=" + list + sections), 0);
  EXPECT_STREQ(quillbrook_engine[98].name, "");
  EXPECT_EQ(quillbrook_engine[99].name, longest);
  EXPECT_EQ(warned("Profile " + too_long + " not found!\n"), 1);
  EXPECT_EQ(stand_in::mentioned("left out"), 0);

  ASSERT_EQ(load("[general]\nname=" + std::string(200, 'n') + "\nprofiles=" + list + ",p,p," + sections), 0);
  EXPECT_EQ(warned("Too many profiles: 99 are read, 3 left out\n"), 1);
  EXPECT_EQ(general.name, std::string(99, 'n'));
}

TEST_F(Config, SettingsThatLoseResultsAreSaid) {
  const struct {
    const char *lines;
    std::vector<std::string> warnings;
  } cases[] = {
      {"completetimeout=1000\nincompletetimeout=1001\nprovidertimeout=999\nextendedtimeout=1000", {}},
      {"completetimeout=1000\nextendedtimeout=2000", {}},
      {"providertimeout=500", {}},
      {"timeouts=no\ncompletetimeout=1000\nincompletetimeout=500\nprovidertimeout=1000", {}},
      {"incompletetimeout=500", {"incompletetimeout = 500 and no completetimeout: silence makes words an \"error\""}},
      {"completetimeout=800\nincompletetimeout=800",
       {"incompletetimeout = 800 is not above completetimeout = 800: silence makes words an \"error\""}},
      {"completetimeout=800\nincompletetimeout=3000\nextendedtimeout=3000",
       {"incompletetimeout = 3000 is not above extendedtimeout = 3000: silence makes words an \"error\""}},
      {"completetimeout=300\nextendedtimeout=200\nprovidertimeout=300",
       {"providertimeout = 300 is not below completetimeout = 300: final texts are lost",
        "providertimeout = 300 is not below extendedtimeout = 200: final texts are lost"}},
  };
  for (const auto &test : cases) {
    stand_in::reset_log();
    ASSERT_EQ(load("[general]\n" + std::string(test.lines)), 0);
    for (const std::string &text : test.warnings) EXPECT_EQ(warned("[general] " + text + "\n"), 1) << text;
    EXPECT_EQ(stand_in::log_lines().size(), test.warnings.size()) << test.lines;
  }
  ast_set_flag(&ast_options, AST_OPT_FLAG_CACHE_RECORD_FILES);
  ASSERT_EQ(load(""), 0);
  ast_clear_flag(&ast_options, AST_OPT_FLAG_CACHE_RECORD_FILES);
  EXPECT_EQ(stand_in::mentioned("cache_record_files = yes: the audio of calls is kept elsewhere"), 1);
}

TEST_F(Config, UnusableFilesEndTheLoad) {
  const std::string warning = "No such configuration file quillbrook.conf\n";
  EXPECT_EQ(quillbrook_engine_config_load(), -1);
  EXPECT_EQ(warned(warning), 1);
  stand_in::write_config("res-speech-quillbrook.conf", "[general]\nvoice=other\n");
  ASSERT_EQ(quillbrook_engine_config_load(), 0);
  EXPECT_STREQ(general.ws_voice, "other");
  ASSERT_EQ(load("[general]\nvoice=first\n"), 0);
  EXPECT_STREQ(general.ws_voice, "first");
  EXPECT_EQ(load("[broken\n"), -1) << "the second file does not step in for a malformed one";
  EXPECT_EQ(warned(warning), 2);
}

TEST_F(Config, LogFileIsOpenedOrEndsTheLoad) {
  stand_in::write_file("/tmp/quillbrook_log", "of an earlier load");
  ASSERT_EQ(load("[general]\nlogfile=/tmp/quillbrook_log\nprofiles=p\n[p]\n"), 0);
  ASSERT_NE(general.log_file, nullptr);
  EXPECT_EQ(profile.log_file, nullptr);
  EXPECT_TRUE(fcntl(fileno(general.log_file), F_GETFD) & FD_CLOEXEC);
  EXPECT_EQ(stand_in::file_content("/tmp/quillbrook_log"), "");
  ASSERT_EQ(load("[general]\nlogfile=no\n"), 0);
  EXPECT_EQ(general.log_file, nullptr);

  for (const std::string value : {"yes", "Yes/no", ""}) {
    stand_in::fail(stand_in::Fault::kOpen);
    EXPECT_EQ(load("[general]\nlogfile=" + value + "\nverbose=yes\n"), -1);
    const std::string path = value == "yes" ? "/var/log/quillbrook/debug.log" : value;
    EXPECT_EQ(stand_in::logged(__LOG_ERROR, "Failed to open log file : " + path + ".\n"), 1);
    EXPECT_EQ(verbose, 0);
  }
  stand_in::reset();
}

TEST_F(Config, NoCopyOfATextIsMissedWhenMemoryEnds) {
  const std::string text = "[general]\nprofiles=p\nloggingtag=t\nplugin=x\n[p]\ncontext=c\nextra=e\n";
  int failures = 0;
  for (int result = -1; result; ++failures) {
    ASSERT_LT(failures, 100);
    stand_in::reset();
    stand_in::fail(stand_in::Fault::kAllocation, failures + 1);
    result = load(text);
    ASSERT_EQ(result, stand_in::stop_failing() ? -1 : 0);
    EXPECT_EQ(stand_in::mentioned("No memory for the key"), result ? 1 : 0);
  }
  EXPECT_EQ(failures, 1 + 11 + 12);  // the one that passes, the texts of `general`, those of the profile
}

// What people read about the keys, against the table of keys.

std::vector<std::string> lines_of(const std::string &file) {
  std::ifstream stream(QUILLBROOK_SOURCE_DIR "/" + file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// Key, kind, default and kind of section are the first cells of a row.
TEST_F(Config, ManualAgreesWithTheTable) {
  std::vector<std::string> rows;
  bool in_keys = false;
  for (const std::string &line : lines_of("docs/configuration.md")) {
    in_keys = in_keys ? line.rfind("## ", 0) != 0 : line == "## Keys";
    if (in_keys && line.rfind("| `", 0) == 0) rows.push_back(line);
  }
  ASSERT_EQ(rows.size(), config_keys().size());
  for (size_t row = 0; row < rows.size(); ++row) {
    const ConfigKey &key = config_keys().begin()[row];
    std::string names = "| `" + std::string(key.names[0]) + "`";
    for (size_t alias = 1; alias < 3 && key.names[alias]; ++alias) names += ", `" + std::string(key.names[alias]) + "`";
    EXPECT_THAT(rows[row], StartsWith(names + " | "));
    const std::string value = key.absent.value ? key.absent.value : "";
    const std::string otherwise = !key.absent.value ? "none" : value.empty() ? "empty" : "`" + value + "`";
    const char *where = !key.rules.in_general ? "profiles" : key.profile_place ? "both" : "general";
    const std::string kind_and_rest = rows[row].substr(names.size() + 3);
    EXPECT_THAT(kind_and_rest.substr(kind_and_rest.find(" | ")), StartsWith(" | " + otherwise + " | " + where + " |"));
  }
}

TEST_F(Config, SampleHoldsEveryKeyAtItsDefault) {
  std::map<std::string, std::string> found, expected;  // by section and key
  std::string section;
  for (const std::string &line : lines_of("configs/quillbrook.conf.sample")) {
    const size_t equals = line.find(" =");
    if (const size_t bracket = line.find('['); bracket <= 1) section = line.substr(bracket);
    if (line.size() < 2 || line[0] != ';' || !isalpha(line[1])) continue;
    const std::string key = section + line.substr(1, equals - 1);
    EXPECT_TRUE(found.emplace(key, line.substr(std::min(equals + 3, line.size()))).second) << key << " twice";
  }
  for (const ConfigKey &key : config_keys()) {
    const std::string value = key.absent.value ? key.absent.value : "support";
    if (key.rules.in_general) expected["[general]" + std::string(key.names[0])] = value;
    if (key.profile_place) expected["[support]" + std::string(key.names[0])] = value;
  }
  EXPECT_EQ(found, expected);
}

}  // namespace
