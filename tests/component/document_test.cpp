// What the host gets: plain text, a JSON file or an NLSML file, and the files' names and failures.
#include "session_fixture.h"

#include "record/speech_state.h"

namespace {

using stand_in::Fault;
using testing::HasSubstr;

class DocumentTest : public SessionTest {
protected:
  DocumentTest() {
    engine.completetimeout = 1000;
    engine.incompletetimeout = 3000;
    stand_in::answer_command("tandrel show session threadid tag", "call");
    engine.logtag = 1;
  }
  void load_polar_grammar() {
    load_grammar("polar", "public <g> = yes {answer=1} | no {answer=0};\n");
    quillbrook_recog_activate_grammar(&speech, "polar");
  }
  std::string document(int number) {
    return stand_in::file_content("/tmp/quillbrook_QBK-call_" + std::to_string(number) + ".xml");
  }
};

TEST_F(DocumentTest, NlsmlFormsByteByByte) {
  engine.returnnlsml = 1;
  engine.continuous = 1;
  create_and_start();
  deliver("two words", 100);
  EXPECT_EQ(document(1),
            "<?xml version=\"1.0\"?>\n"
            "<result grammar=\"\">\n"
            "  <interpretation grammar=\"\" confidence=\"100\">\n"
            "    <instance>two words</instance>\n"
            "    <input mode=\"speech\">two words</input>\n"
            "  </interpretation>\n"
            "</result>\n");
  quillbrook_recog_activate_grammar(&speech, "a<&>\"'");
  context()->extra_pointer = "{\"a\":\"<b>\"}";
  context()->api_pointer = "meaning";
  deliver("R&D\t\n\x01\x7F", 87);
  EXPECT_EQ(document(2),
            "<?xml version=\"1.0\"?>\n"
            "<result grammar=\"a&lt;&amp;&gt;&quot;&apos;\">\n"
            "  <interpretation grammar=\"a&lt;&amp;&gt;&quot;&apos;\" confidence=\"87\">\n"
            "    <instance>meaning<json>{&quot;a&quot;:&quot;&lt;b&gt;&quot;}</json></instance>\n"
            "    <input mode=\"speech\">R&amp;D\t\n \x7F</input>\n"
            "  </interpretation>\n"
            "</result>\n");
  transcript().score = 0;
  send("?", QUILLBROOK_SCORE_NO_CONFIDENCE);
  EXPECT_EQ(document(3),
            "<?xml version='1.0'?>\n"
            "<result grammar=\"a&lt;&amp;&gt;&quot;&apos;\">\n"
            "  <interpretation grammar=\"a&lt;&amp;&gt;&quot;&apos;\" confidence=\"0\">\n"
            "    <instance/>\n"
            "    <input mode=\"speech\">?<nomatch/></input>\n"
            "  </interpretation>\n"
            "</result>\n");
}

TEST_F(DocumentTest, TheMeaningIsTheProvidersElseTheText) {
  engine.returnnlsml = 1;
  engine.continuous = 1;
  create_and_start();
  const struct {
    const char *json, *meaning, *instance;
  } cases[] = {{nullptr, "meaning", "<instance>meaning</instance>"},
               {nullptr, nullptr, "<instance>words</instance>"},  // the one before has been delivered
               {nullptr, "", "<instance></instance>"},
               {"{}", "", "<instance>words<json>{}</json></instance>"}};
  int number = 0;
  for (const auto &test : cases) {
    context()->extra_pointer = test.json;
    context()->api_pointer = test.meaning;
    deliver("words", 90 - number);
    EXPECT_THAT(document(++number), HasSubstr(test.instance));
    EXPECT_THAT(document(number), HasSubstr("confidence=\"" + std::to_string(91 - number))) << "scores begin anew";
  }
}

TEST_F(DocumentTest, PlainTextAndJsonDoNotAskTheGrammars) {
  for (const bool json : {false, true}) {
    engine.returnjson = json;
    engine.returnnlsml = json;  // JSON goes first
    create();
    load_polar_grammar();
    start();
    deliver("<perhaps>", 80);
    const std::string result = get();
    EXPECT_EQ(score, 80);
    EXPECT_EQ(result, json ? "/tmp/quillbrook_QBK-call_1.json" : "<perhaps>");
    if (json) {
      EXPECT_EQ(stand_in::file_content(result), "<perhaps>");
      start();
      context()->extra_pointer = "{\"t\": 1}\n";
      deliver("text", 80);
      EXPECT_EQ(get(), "/tmp/quillbrook_QBK-call_2.json") << "the numbers go on";
      EXPECT_EQ(stand_in::file_content("/tmp/quillbrook_QBK-call_2.json"), "{\"t\": 1}\n");
    }
    destroy();
  }
}

TEST_F(DocumentTest, AContinuousSessionDeliversEachTextOnceAndNotWithoutEnd) {
  engine.continuous = 1;
  engine.endpointing = 1;
  for (const int mode : {0, 1, 2}) {
    engine.returnjson = mode == 1;
    engine.returnnlsml = mode == 2;
    create_and_start();
    deliver("one", 80);
    finish();
    EXPECT_EQ(queued(), 1U) << mode;
    for (size_t more = 0; more < kResultsMax + 2; ++more) deliver("more", 80);
    EXPECT_EQ(queued(), kResultsMax) << "nobody fetches them";
    EXPECT_EQ(stand_in::files().size(), mode ? kResultsMax + 1 : 1);
    EXPECT_EQ(stand_in::mentioned("further ones are dropped"), mode + 1);
    get();
    deliver("again", 80);
    EXPECT_EQ(queued(), kResultsMax);
    destroy();
  }
}

TEST_F(DocumentTest, OnlyNlsmlTellsThePluginToFinalizeAndAFailureIsAnError) {
  const struct {
    bool nlsml, continuous, hangup;
    Fault fault;
    int finalize;
  } endings[] = {{true, false, false, Fault::kCount, 1}, {true, true, false, Fault::kCount, 0},
                 {true, true, true, Fault::kCount, 1},   {true, false, false, Fault::kOpen, 1},
                 {true, true, false, Fault::kWrite, 0},  {false, false, false, Fault::kCount, 0},
                 {false, false, false, Fault::kOpen, 0}, {false, true, true, Fault::kWrite, 0}};
  for (const auto &ending : endings) {
    SCOPED_TRACE(&ending - endings);
    engine.returnnlsml = ending.nlsml;
    engine.returnjson = !ending.nlsml;
    engine.continuous = ending.continuous;
    create_and_start();
    send("one", 80);
    context()->hangup = ending.hangup;
    const bool fails = ending.fault != Fault::kCount;
    if (fails) stand_in::fail(ending.fault);
    finish();
    EXPECT_EQ(stand_in::stop_failing(), fails);
    EXPECT_EQ(context()->finalize, ending.finalize);
    EXPECT_EQ(context()->incompletetimeout, ending.finalize ? 100 : 3000);
    EXPECT_EQ(state(), kDone);
    const std::string path = "/tmp/quillbrook_QBK-call_1." + std::string(ending.nlsml ? "xml" : "json");
    EXPECT_EQ(stand_in::mentioned("Cannot create recognition result file : " + path + "!\n"), fails);
    EXPECT_EQ(stand_in::file_exists(path), !fails);
    EXPECT_EQ(get(), fails ? "error" : path);
    EXPECT_EQ(score, 80);
    destroy();
    stand_in::reset_log();
  }
}

// Living ones have names of their own; a name is free again when its session has gone.
TEST_F(DocumentTest, NoSessionTakesTheFilesOfAnother) {
  engine.returnjson = 1;
  const std::string long_tag(145, 'n');
  const std::string cut = "QBK-" + std::string(61, 'n');
  const std::tuple<std::string, std::vector<std::string>> cases[] = {
      {"call", {"QBK-call", "QBK-call-2", "QBK-call-3"}},
      {long_tag, {"QBK-" + long_tag, cut + "-2", cut + "-3"}},
      {"a/b", {"QBK-a/b", "QBK-a/b-2"}}};
  for (const auto &[tag, names] : cases) {
    stand_in::answer_command("tandrel show session threadid tag", tag);
    std::vector<ast_speech> others(names.size());
    for (size_t index = 0; index < names.size(); ++index) {
      others[index].engine = &host_engine;
      quillbrook_recog_create(&others[index], nullptr);
      EXPECT_EQ(quillbrook_session_of(&others[index])->name, names[index]);
    }
    quillbrook_recog_destroy(&others[1]);
    quillbrook_recog_create(&others[1], nullptr);
    EXPECT_EQ(quillbrook_session_of(&others[1])->name, names[1]);
    for (ast_speech &other : others) quillbrook_recog_destroy(&other);
  }
  stand_in::answer_command("tandrel show session threadid tag", "call");
  create_and_start();
  send("one", 80);
  ast_speech other{};
  other.engine = &host_engine;
  stand_in::answer_command("tandrel show session threadid tag", "call_1");
  quillbrook_recog_create(&other, nullptr);
  quillbrook_recog_destroy(&other);
  EXPECT_EQ(stand_in::file_content(get()), "one");
}

TEST_F(DocumentTest, FilesThatAreKeptAreNeverReplaced) {
  engine.returnjson = 1;
  engine.keepfiles = 1;
  engine.earlyspeechtimeout = 60;  // which makes the file of the stream a second time
  const int calls = 2, questions = 2;
  for (int call = 0; call < calls; ++call) {
    create();
    for (int question = 0; question < questions; ++question) {
      start();
      write_ms(200, static_cast<int16_t>(call * questions + question + 1));
      start();
      ASSERT_TRUE(eventually([&] { return plugin.loops > call * questions + question; }));
      deliver("text", 80);
      get();
    }
    destroy();
  }
  EXPECT_EQ(stand_in::files().size(), 2U * calls * questions);
  std::set<int> recordings;
  for (const std::string &file : stand_in::files()) {
    if (file.find(".wav") != std::string::npos) recordings.insert(numbers_in(file).at(0));
  }
  EXPECT_EQ(recordings.size(), 1U * calls * questions);
  EXPECT_EQ(stand_in::mentioned("Cannot"), 0);
  EXPECT_TRUE(stand_in::file_exists("/tmp/quillbrook_QBK-call_4.json"));
  stand_in::reset();
}

TEST_F(DocumentTest, AnyTagMakesAFileNameAndAPlantedLinkIsNotFollowed) {
  engine.returnjson = 1;
  const std::string target = stand_in::real_path("/tmp/quillbrook_target");
  const std::tuple<std::string, std::string> tags[] = {{"../../etc/x y", ".._.._etc_x_y"},
                                                       {"caf\xC3\xA9%s", "caf\xC3\xA9_s"},
                                                       {std::string(145, 'n'), std::string(72, 'n')}};
  for (const auto &[tag, part] : tags) {
    const std::string path = "/tmp/quillbrook_QBK-" + part + "_1.json";
    stand_in::write_file(target, "precious");
    ASSERT_EQ(symlink(target.c_str(), stand_in::real_path(path).c_str()), 0);
    stand_in::answer_command("tandrel show session threadid tag", tag);
    create_and_start();
    send("one", 80);
    EXPECT_EQ(get(), path);
    EXPECT_LE(path.size(), 99U);
    EXPECT_EQ(stand_in::file_content(path), "one");
    EXPECT_EQ(stand_in::file_content(target), "precious");
    EXPECT_EQ(session()->name, "QBK-" + tag) << "in the log it stays whole";
    destroy();
    EXPECT_FALSE(stand_in::file_exists(path));
    unlink(target.c_str());
  }
}

TEST_F(DocumentTest, FilesAreForThePbxAloneAndGoWithTheSessionUnlessTheyAreToBeKept) {
  const mode_t mask = umask(0);
  engine.completetimeout = engine.incompletetimeout;  // each piece is a result
  for (const int mode : {0, 1, 2, 3}) {
    engine.keepfiles = mode / 2;
    engine.returnjson = mode % 2;
    engine.returnnlsml = 1;
    engine.continuous = 1;
    create_and_start();
    send("one", 80);
    send("two", 80);
    EXPECT_EQ(stand_in::files().size(), 3U);
    for (const std::string &file : stand_in::files()) {
      struct stat status = {};
      EXPECT_EQ(lstat(stand_in::real_path(file).c_str(), &status), 0);
      EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0600)) << file;
    }
    destroy();
    EXPECT_EQ(stand_in::files().size(), engine.keepfiles ? 3U : 0U);
    stand_in::reset();
  }
  umask(mask);
}

}  // namespace
