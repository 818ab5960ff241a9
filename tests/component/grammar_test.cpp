// The session's grammars and the commands by which the dialplan steers a session()->
#include <sys/resource.h>

#include "session_fixture.h"

#include "support/accents.h"

namespace {

const std::string kHeader = "#JSGF V1.0;\ngrammar g;\n";

struct GrammarTest : SessionTest {
  GrammarTest() { create(); }

  // The host hangs up on any result but 0.
  void load(const std::string &name, const std::string &path) {
    EXPECT_EQ(quillbrook_recog_load_grammar(&speech, name.c_str(), path.c_str()), 0);
  }
  void unload(const char *name) { EXPECT_EQ(quillbrook_recog_unload_grammar(&speech, name), 0); }
  void activate(const char *name) { EXPECT_EQ(quillbrook_recog_activate_grammar(&speech, name), 0); }
  void deactivate(const char *name) { EXPECT_EQ(quillbrook_recog_deactivate_grammar(&speech, name), 0); }

  static std::string file(const std::string &name, const std::string &content) {
    stand_in::write_file(stand_in::config_path(name), content);
    return stand_in::config_path(name);
  }
  // A grammar file with these rules.
  static std::string jsgf(const std::string &name, const std::string &rules) { return file(name, kHeader + rules); }
  static std::vector<std::string> lines(int level) {
    std::vector<std::string> texts;
    for (const stand_in::Line &line : stand_in::log_lines()) {
      if (line.level == level) {
        texts.push_back(line.text);
      }
    }
    return texts;
  }
};

// Everything that the path language can set without a file, a line each.
std::string settings(const quillbrook_speech_t *session) {
  std::ostringstream all;
  all << "speedvsaccuracy=" << session->speedvsaccuracy << "\ncompletetimeout=" << session->completetimeout
      << "\nincompletetimeout=" << session->incompletetimeout << "\nminspeechtimeout=" << session->minspeechtimeout
      << "\nmaxspeechtimeout=" << session->maxspeechtimeout << "\nspeechtimeout=" << session->speechtimeout
      << "\nmatchtimeout=" << session->matchtimeout << "\ngrammartimeouts=" << session->grammartimeouts
      << "\nextendedtimeout=" << session->extendedtimeout << "\nearlyspeechtimeout=" << session->earlyspeechtimeout
      << "\nloggingtag=" << session->loggingtag << "\nmodel=" << session->model << "\nlanguage=" << session->language
      << "\nvoice=" << session->voice << "\nconfiguration=" << session->configuration << "\n";
  return all.str();
}

// What the language sets

TEST_F(GrammarTest, EachFormSetsItsOwnFieldAndNothingElse) {
  // The arguments of SpeechLoadGrammar => the field that changes, if any does.
  const std::vector<std::string> cases = {"x,property:Speech-Timeout=2s => speechtimeout=2000",
                                          "500ms,property:Speech-Timeout => speechtimeout=500",
                                          "x,property:Max-Speech-Timeout=2s => maxspeechtimeout=2000",
                                          "x,property:Recognition-Timeout=3s => maxspeechtimeout=3000",
                                          "x,property:Min-Speech-Timeout=4s => minspeechtimeout=4000",
                                          "x,property:Speech-Complete-Timeout=5s => completetimeout=5000",
                                          "x,property:Speech-Incomplete-Timeout=6s => incompletetimeout=6000",
                                          "x,property:Extended-Timeout=7s => extendedtimeout=7000",
                                          "x,property:Match-Timeout=9s => matchtimeout=9000",
                                          "x,property:Grammar-Timeouts=yes => grammartimeouts=1",
                                          "no,property:Grammar-Timeouts => grammartimeouts=0",
                                          "x,property:Grammar-Timeouts=often => ",
                                          "x,property:Early-Timeout=8s => earlyspeechtimeout=8000",
                                          "x,property:Logging-Tag=a=b 9s.txt => loggingtag=a=b 9s.txt",
                                          "x,property:Speed-vs-Accuracy=0.7 => speedvsaccuracy=0.7",
                                          "0.25s,property:Speed-vs-Accuracy => speedvsaccuracy=0.25",
                                          "fast,property:Speed-vs-Accuracy => speedvsaccuracy=0",
                                          "x,propertyX:Speech-Timeout-of-ours=1s => speechtimeout=1000",
                                          "x,Property:Speech-Timeout=1s => ",
                                          "x,property:speech-timeout=1s => ",
                                          "x,Speech-Timeout=1s => ",
                                          "Ann 9s,property:Speech-Voice => voice=Ann 9s",
                                          "x,property:Speech-Language=fr => model=fr",
                                          "x,builtin:grammar/model=en:US => model=en:US",
                                          "x,builtin:grammar/model= => model=",
                                          "x,builtin:grammar/text=free => model=free",
                                          "x,builtin:grammar/transcribe?lang=de => model=de",
                                          "x,builtin:grammar/configuration=a=1 => configuration=a=1",
                                          "x,builtin:speech/transcribe => model=builtin:speech/transcribe",
                                          "x,builtin:speec => model=builtin:speec",
                                          "x,builtin:spee => ",
                                          ",: => ",
                                          "x,property:Speech-Voice=no template => ",
                                          "x,property:Speech-Language=de => "};
  copy_text(session()->model, "?LANG-?VOICE");
  for (const std::string &one : cases) {
    const size_t comma = one.find(',');
    const size_t arrow = one.find(" => ");
    std::istringstream before(settings(session()));
    load(one.substr(0, comma), one.substr(comma + 1, arrow - comma - 1));
    std::istringstream after(settings(session()));
    const size_t complaints = stand_in::log_lines().size();
    std::string was, is, changes;
    while (std::getline(before, was) && std::getline(after, is)) changes += was == is ? "" : is;
    EXPECT_EQ(one.substr(0, arrow) + " => " + changes, one);
    // What changes nothing is told, once.
    EXPECT_EQ(complaints, changes.empty() || one[0] == 'f' ? 1U : 0U) << one;
    stand_in::reset_log();
  }
}

TEST_F(GrammarTest, TimeoutsAreNumbersWithAUnit) {
  // Single precision, cut and not rounded: "1.001s" would be 1000 in double precision.
  std::map<std::string, int> cases = {{"250ms", 250},        {"2s", 2000},       {"1.5s", 1500},  {"3 seconds", 3000},
                                      {"5 ms", 5},           {"0s", 0},          {"1e3ms", 1000}, {"0.251s", 250},
                                      {"1.001s", 1001},      {"800", -1},        {"5S", -1},      {".5s", -1},
                                      {"-5s", -1},           {" 5s", -1},        {"s", -1},       {"", -1},
                                      {"3000000s", INT_MAX}, {"1e999s", INT_MAX}};
  cases["1" + std::string(1500, '0') + "s"] = -1;  // the unit is behind what is read
  for (const auto &[value, timeout] : cases) {
    session()->speechtimeout = 7;
    load("x", "property:Speech-Timeout=" + value);
    EXPECT_EQ(session()->speechtimeout, timeout) << value.substr(0, 40);
  }
}

// Files

TEST_F(GrammarTest, AConfigurationComesWholeWithAZeroBehindIt) {
  for (size_t size : {0, 1, 511, 512, 513, 70000}) {
    std::string content(size, 'c');
    if (size > 2) {
      content[1] = '\0';  // bytes are not looked at
    }
    load("conf", file("configuration_a", content));
    ASSERT_NE(config(), nullptr);
    EXPECT_EQ(std::string(config(), size + 1), content + '\0') << size;
  }
  load("before", file("configuration_a", std::string(2000, 'c')));
  stand_in::fail(stand_in::Fault::kAllocation);
  load("after", stand_in::config_path("configuration_a"));
  EXPECT_EQ(config(), nullptr);
  EXPECT_STREQ(session()->config_name, "after");
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, labelled("Memory allocation error!\n")), 1);
  load("before", stand_in::config_path("configuration_a"));
  // One that cannot be read takes the former one's place all the same.
  load("gone", "/nowhere/configuration_b");
  EXPECT_EQ(config(), nullptr);
  EXPECT_STREQ(session()->config_name, "gone");
  EXPECT_THAT(lines(__LOG_WARNING),
              testing::ElementsAre(
                  labelled("Cannot read grammar gone = /nowhere/configuration_b: No such file or directory\n")));
}

TEST_F(GrammarTest, AContextIsCutAndAMissingFileLeavesIt) {
  load("c", file("context_a", std::string(QUILLBROOK_TEXT_SIZE - 2, 'x') + "\xC3\xA9"));
  EXPECT_EQ(session()->context_text, std::string(QUILLBROOK_TEXT_SIZE - 2, 'x'));
  load("c", file("context_a", "short"));
  EXPECT_STREQ(session()->context_text, "short");
  load("other", "/nowhere/context_b");
  EXPECT_STREQ(session()->context_text, "short");
  EXPECT_STREQ(session()->context_name, "other");
  unload("c");
  EXPECT_STREQ(session()->context_text, "short");
  unload("other");
  EXPECT_STREQ(session()->context_text, "");
  EXPECT_STREQ(session()->context_name, "");
}

TEST_F(GrammarTest, OneFileMayHaveTwoReadings) {
  const std::string rules = "public <r> = yes {Y};";
  load("both", jsgf("configuration_a.jsgf", rules));
  EXPECT_EQ(config(), kHeader + rules);
  EXPECT_EQ(session()->grammars.match("yes"), "Y");
  load("list", file("context_a.txt", "yes, no"));
  EXPECT_STREQ(session()->context_text, "yes, no");
  EXPECT_STREQ(session()->phrases, "yes, no");
  unload("both");
  EXPECT_EQ(config(), nullptr);
  EXPECT_EQ(session()->grammars.size(), 0U);
}

TEST_F(GrammarTest, ASchemeIsDroppedAndAPropertyThatIsNoneIsAFile) {
  const std::string path = jsgf("a.jsgf", "public <r> = yes {Y};");
  size_t loaded = 0;
  for (const char *scheme : {"", "uri:", "file:", "/tmp/a:", "property:"}) {
    load("g", scheme + path);
    EXPECT_EQ(session()->grammars.size(), ++loaded) << scheme;
  }
  // The value of such a property is the name of what it loads.
  load("g", "property:" + file("context_a=b", "text"));
  EXPECT_STREQ(session()->context_name, "b");
  // An ending counts in small letters only, and the first colon ends the scheme.
  load("g", jsgf("A.JSGF", "public <r> = yes {Y};"));
  load("g", "uri:file:" + path);
  EXPECT_EQ(session()->grammars.size(), loaded);
  // A builtin form is looked at as a path too, and whole.
  session()->phrases = ast_strdup("old");
  load("g", "builtin:grammar/model=a.txt");
  EXPECT_EQ(session()->phrases, nullptr);
}

TEST_F(GrammarTest, AGrammarThatDoesNotLoadIsAnErrorLineAndNothingElse) {
  load("good", jsgf("good.jsgf", "public <r> = yes {Y};"));
  const std::string bad = jsgf("bad.jsgf", "public <r> = yes | ;");
  const std::string fifo = stand_in::config_path("fifo.jsgf");
  ASSERT_EQ(mkfifo(stand_in::real_path(fifo).c_str(), 0600), 0);
  load("good", bad);
  load("good", "/nowhere/a.jsgf");
  load("good", fifo);
  const std::string importer = stand_in::real_path(jsgf("importer.jsgf", "import <none.x>;"));
  load("good", importer);
  const std::string begin = labelled("Cannot load JSGF grammar good = ");
  using testing::StartsWith;
  EXPECT_THAT(
      lines(__LOG_ERROR),
      testing::ElementsAre(StartsWith(begin + bad + ": line 3, column "),
                           begin + "/nowhere/a.jsgf: Erreur ouverture: /nowhere/a.jsgf: No such file or directory\n",
                           StartsWith(begin + fifo + ": Erreur ouverture: "),
                           StartsWith(begin + importer + ": line 3, column 8: expected the grammar none in a file ")));
  EXPECT_EQ(session()->grammars.size(), 1U);
  EXPECT_EQ(session()->grammars.match("yes"), "Y");
}

// Of the sizes that count the files are sparse: nobody has read them when they are refused.
TEST_F(GrammarTest, AFileThatIsTooLargeIsNotRead) {
  const std::pair<const char *, off_t> limits[] = {
      {"a.txt", 1 << 20}, {"configuration_a", 1 << 20}, {"context_a", 1 << 20}, {"a.jsgf", 128 << 20}};
  for (const auto &[name, most] : limits) {
    const std::string path = file(name, "x");
    ASSERT_EQ(truncate(stand_in::real_path(path).c_str(), most + 1), 0);
    struct rusage before = {}, after = {};
    getrusage(RUSAGE_SELF, &before);
    load("g", path);
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 1000) << name;
    EXPECT_EQ(stand_in::mentioned(path + ": File too large (more than " + std::to_string(most) + " bytes)\n"), 1)
        << name;
  }
  const std::string path = file("a.txt", std::string(1 << 20, ','));
  load("g", path);
  EXPECT_EQ(strlen(session()->phrases), size_t{1} << 20);
}

// Names

TEST_F(GrammarTest, TheFirstGrammarActivatedNamesTheResult) {
  const char *first = "a-name-of-more-than-nineteen-bytes";  // is kept cut, and found in that form
  const char *kept = "a-name-of-more-than";
  load(first, file("configuration_a", "text"));
  load(first, file("context_a", "text"));
  EXPECT_STREQ(session()->config_name, kept);
  EXPECT_STREQ(session()->context_name, kept);
  activate(first);
  activate("second");
  deactivate("second");
  EXPECT_STREQ(session()->grammar_id, kept);
  deactivate(first);
  EXPECT_STREQ(session()->grammar_id, "");
  activate("second");
  unload(first);
  EXPECT_EQ(config(), nullptr);
  EXPECT_STREQ(session()->context_name, "");
  EXPECT_STREQ(session()->grammar_id, "second");
  unload("second");
  EXPECT_STREQ(session()->grammar_id, "");
  const std::string unknown = "(second): nothing was loaded under this name\n";
  const std::string wrong[] = {labelled("SpeechActivateGrammar" + unknown),
                               labelled("SpeechDeactivateGrammar" + unknown),
                               labelled("SpeechActivateGrammar" + unknown), labelled("SpeechUnloadGrammar" + unknown)};
  EXPECT_THAT(lines(__LOG_WARNING), testing::ElementsAreArray(wrong));

  // With one recognition for the whole call the name stays, and the grammar is switched off all the same.
  engine.continuous = 1;
  load("g", jsgf("a.jsgf", "public <r> = yes {Y};"));
  activate("g");
  deactivate("g");
  EXPECT_STREQ(session()->grammar_id, "g");
  EXPECT_FALSE(session()->grammars.hasGrammar());
}

TEST_F(GrammarTest, GrammarsOfOneNameAreSwitchedTogetherAndUnloadedOneByOne) {
  EXPECT_FALSE(session()->grammars.deactivate("g"));  // leaves no trace on the grammar that comes later
  load("g", jsgf("a.jsgf", "public <r> = yes {ONE};"));
  EXPECT_TRUE(session()->grammars.isActive("g"));
  deactivate("g");
  EXPECT_FALSE(session()->grammars.isActive("g"));
  load("g", jsgf("b.jsgf", "public <r> = yes {TWO};"));
  EXPECT_EQ(session()->grammars.activeNames(), "g, g");
  EXPECT_EQ(session()->grammars.match("yes"), "ONE");
  deactivate("g");
  EXPECT_EQ(session()->grammars.activeCount(), 0U);
  unload("g");
  EXPECT_EQ(session()->grammars.activeCount(), 1U);
  EXPECT_EQ(session()->grammars.match("yes"), "TWO");
  session()->phrases = ast_strdup("yes, no");
  unload("unknown");
  EXPECT_EQ(session()->phrases, nullptr);
  EXPECT_EQ(session()->grammars.size(), 1U);
}

// Words and tags

TEST_F(GrammarTest, TheFirstGrammarWithTagsAnswersAndTheFirstWithWordsHints) {
  load("off", jsgf("a.jsgf", "public <r> = yes {OFF};"));
  load("none", jsgf("b.jsgf", "public <r> = <NULL>;"));
  load("bare", jsgf("c.jsgf", "public <r> = yes;"));
  load("tags", jsgf("d.jsgf", "public <r> = yes {} {A} {} {B};"));
  deactivate("off");
  EXPECT_EQ(session()->grammars.match("Yes."), "A B");
  EXPECT_EQ(session()->grammars.words(), "yes");
  load("more", jsgf("e.jsgf", "public <r> = no {N} | \"oh well\";"));
  for (const char *name : {"bare", "tags"}) {
    unload(name);
  }
  EXPECT_EQ(session()->grammars.words(), "no, oh well");
  EXPECT_EQ(session()->grammars.match("oh well"), "");  // accepted, but without a tag
}

TEST_F(GrammarTest, AccentsAreRemovedWhereTheModeSaysSo) {
  // What is imported is read as what imports it.
  file("parts.jsgf", "#JSGF V1.0;grammar parts;public <set> = télé {éTÉ};");
  const std::string path = stand_in::real_path(jsgf("a.jsgf", "import <parts.set>;public <r> = <set>;"));
  // The words, the tags for the word with accents, and for that without.
  const char *expected[][3] = {{"télé", "éTÉ", ""}, {"tele", "éTÉ", ""}, {"tele", "eTe", "eTe"}};
  for (int mode = 0; mode <= 2; ++mode) {
    engine.normalize_phrases = mode;
    load("g", path);
    EXPECT_EQ(session()->grammars.words(), expected[mode][0]) << mode;
    EXPECT_EQ(session()->grammars.match("télé"), expected[mode][1]) << mode;
    EXPECT_EQ(session()->grammars.match("tele"), expected[mode][2]) << mode;
    unload("g");
  }
}

TEST_F(GrammarTest, AccentsOfTheTableGoAndAllElseStays) {
  std::string all;
  for (int code = 0xC0; code <= 0xFF; ++code) {
    all += {static_cast<char>(0xC0 | code >> 6), static_cast<char>(0x80 | (code & 0x3F))};
  }
  EXPECT_EQ(removeAccentsUTF8(all),
            "aaaaaaaeceeeeiiiiÐnooooo×ØuuuuyÞss"
            "aaaaaaaeceeeeiiiiðnooooo÷øuuuuyþy");
  EXPECT_EQ(removeAccentsUTF8("ÉCOLE Œuvre œuf"), "eCOLE oeuvre oeuf");
  // Nothing is read behind the end, and what is no letter of the table is copied byte by byte.
  const std::string others = std::string("\xC5\xB8\xE2\x82\xAC\xF0\x9F\xC4\xA0\xC3\0\xC3", 13);
  EXPECT_EQ(removeAccentsUTF8(others), others);
}

}  // namespace
