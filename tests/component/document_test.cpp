// What the host gets: plain text, a JSON file or an NLSML file, and the files' names and failures.
#include "session_fixture.h"

namespace {

using stand_in::Fault;

class DocumentTest : public SessionTest {
protected:
  DocumentTest() {
    engine.completetimeout = 1000;
    engine.incompletetimeout = 3000;
    stand_in::answer_command("tandrel show session threadid tag", "call");
    engine.logtag = 1;
  }
  void load_grammar() {
    const std::string grammar = stand_in::real_path("/tmp/quillbrook_test.jsgf");
    stand_in::write_file(grammar, "#JSGF V1.0;\ngrammar g;\npublic <g> = yes {answer=1} | no {answer=0};\n");
    quillbrook_recog_load_grammar(&speech, "polar", grammar.c_str());
    quillbrook_recog_activate_grammar(&speech, "polar");
    unlink(grammar.c_str());
  }
  std::string document(int number) {
    return stand_in::file_content("/tmp/quillbrook_QBK-call_" + std::to_string(number) + ".xml");
  }
};

TEST_F(DocumentTest, NlsmlWithNoScoreIsTheNoMatchForm) {
  engine.returnnlsml = 1;
  create_and_start();
  quillbrook_recog_activate_grammar(&speech, "a<&>\"'");
  context()->extra_pointer = "{}";
  send("?", QUILLBROOK_SCORE_NO_CONFIDENCE);
  EXPECT_EQ(document(1),
            "<?xml version='1.0'?>\n"
            "<result grammar=\"a&lt;&amp;&gt;&quot;&apos;\">\n"
            "  <interpretation grammar=\"a&lt;&amp;&gt;&quot;&apos;\" confidence=\"0\">\n"
            "    <instance/>\n"
            "    <input mode=\"speech\">?<nomatch/></input>\n"
            "  </interpretation>\n"
            "</result>\n");
}

TEST_F(DocumentTest, NlsmlCarriesTheProvidersJson) {
  engine.returnnlsml = 1;
  engine.continuous = 1;
  create_and_start();
  context()->extra_pointer = "{\"a\":\"<b>\"}";
  context()->api_pointer = "meaning";
  send("R&D\nat 5", 87);
  finish();
  const std::string expected =
      "<?xml version=\"1.0\"?>\n"
      "<result grammar=\"\">\n"
      "  <interpretation grammar=\"\" confidence=\"87\">\n"
      "    <instance>meaning<json>{&quot;a&quot;:&quot;&lt;b&gt;&quot;}</json></instance>\n"
      "    <input mode=\"speech\">R&amp;D\nat 5</input>\n"
      "  </interpretation>\n"
      "</result>\n";
  EXPECT_EQ(document(1), expected);
  // An empty interpretation counts as none here.
  context()->api_pointer = "";
  send("R", 87);
  finish();
  EXPECT_THAT(document(2), testing::HasSubstr("<instance>R<json>"));
}

TEST_F(DocumentTest, NlsmlPlain) {
  engine.returnnlsml = 1;
  engine.continuous = 1;
  create_and_start();
  send("two words", 100);
  finish();
  EXPECT_EQ(document(1),
            "<?xml version=\"1.0\"?>\n"
            "<result grammar=\"\">\n"
            "  <interpretation grammar=\"\" confidence=\"100\">\n"
            "    <instance>two words</instance>\n"
            "    <input mode=\"speech\">two words</input>\n"
            "  </interpretation>\n"
            "</result>\n");
  context()->api_pointer = "meaning";
  send("words", 90);
  finish();
  EXPECT_THAT(document(2), testing::HasSubstr("<instance>meaning</instance>"));
  context()->api_pointer = nullptr;
  send("words", 90);
  finish();
  EXPECT_THAT(document(3), testing::HasSubstr("<instance>words</instance>")) << "it has been delivered";
  context()->api_pointer = "";
  send("words", 90);
  finish();
  EXPECT_THAT(document(4), testing::HasSubstr("<instance></instance>"));
  EXPECT_THAT(document(4), testing::HasSubstr("confidence=\"90\"")) << "scores begin anew with each document";
}

TEST_F(DocumentTest, AGrammarGivesTheMeaningOrNone) {
  engine.returnnlsml = 1;
  engine.continuous = 1;
  create();
  load_grammar();
  start();
  context()->api_pointer = "the provider's";
  send("yes", 80);
  finish();
  EXPECT_THAT(document(1), testing::HasSubstr("<result grammar=\"polar\">"));
  EXPECT_THAT(document(1), testing::HasSubstr("<instance>answer=1</instance>"));
  send("perhaps", 80);
  finish();
  EXPECT_THAT(document(2), testing::HasSubstr("confidence=\"0\">\n    <instance/>"));
  EXPECT_THAT(document(2), testing::HasSubstr("perhaps<nomatch/>"));
  get();
  EXPECT_EQ(score, 0);
  // Switched off it has no say.
  quillbrook_recog_deactivate_grammar(&speech, "polar");
  send("perhaps", 80);
  finish();
  EXPECT_THAT(document(3), testing::HasSubstr("confidence=\"80\""));
}

TEST_F(DocumentTest, OnlyNlsmlAsksTheGrammars) {
  for (const bool json : {false, true}) {
    engine.returnjson = json;
    engine.returnnlsml = json;  // JSON goes first
    create();
    load_grammar();
    start();
    send("perhaps", 80);
    const std::string result = get();
    EXPECT_EQ(score, 80);
    EXPECT_EQ(json ? stand_in::file_content(result) : result, "perhaps");
    destroy();
  }
}

TEST_F(DocumentTest, JsonIsTheProvidersElseTheBareText) {
  engine.returnjson = 1;
  create_and_start();
  send("bare <text>", 80);
  std::string path = get();
  EXPECT_EQ(path, "/tmp/quillbrook_QBK-call_1.json");
  EXPECT_EQ(stand_in::file_content(path), "bare <text>");
  start();
  context()->extra_pointer = "{\"t\": 1}\n";
  send("text", 80);
  path = get();
  EXPECT_EQ(path, "/tmp/quillbrook_QBK-call_2.json") << "the numbers go on";
  EXPECT_EQ(stand_in::file_content(path), "{\"t\": 1}\n");
}

TEST_F(DocumentTest, AContinuousSessionDeliversEachTextOnce) {
  engine.continuous = 1;
  engine.endpointing = 1;
  for (const int mode : {0, 1, 2}) {
    engine.returnjson = mode == 1;
    engine.returnnlsml = mode == 2;
    plugin.loops = 0;
    create_and_start();
    send("one", 80);
    finish();
    finish();
    EXPECT_EQ(queued(), 1U) << mode;
    destroy();
  }
}

struct Ending {
  bool nlsml, continuous, hangup, open_fails;
  int finalize;
};
class EndingTest : public DocumentTest, public testing::WithParamInterface<Ending> {};

TEST_P(EndingTest, OnlyNlsmlTellsThePluginToFinalize) {
  const Ending &ending = GetParam();
  engine.returnnlsml = ending.nlsml;
  engine.returnjson = !ending.nlsml;
  engine.continuous = ending.continuous;
  create_and_start();
  send("one", 80);
  context()->hangup = ending.hangup;
  if (ending.open_fails) stand_in::fail(Fault::Open);
  finish();
  EXPECT_EQ(context()->finalize, ending.finalize);
  EXPECT_EQ(context()->incompletetimeout, ending.finalize ? 100 : 3000);
  EXPECT_EQ(state(), DONE);
}
INSTANTIATE_TEST_SUITE_P(Each, EndingTest,
                         testing::Values(Ending{true, false, false, false, 1}, Ending{true, true, false, false, 0},
                                         Ending{true, true, true, false, 1}, Ending{true, false, false, true, 1},
                                         Ending{true, true, false, true, 0}, Ending{false, false, false, false, 0}));

TEST_F(DocumentTest, AFileThatCannotBeWrittenIsAnError) {
  for (const Fault fault : {Fault::Open, Fault::Write}) {
    for (const bool json : {true, false}) {
      stand_in::reset();
      engine.returnjson = json;
      engine.returnnlsml = 1;
      plugin.loops = 0;
      create_and_start();
      send("one", 80);
      stand_in::fail(fault);
      finish();
      EXPECT_EQ(stand_in::stop_failing(), 1);
      EXPECT_EQ(stand_in::mentioned("Cannot create recognition result file : /tmp/quillbrook_QBK-"), 1);
      EXPECT_EQ(get(), "error");
      EXPECT_EQ(score, 80);
      EXPECT_THAT(stand_in::files(), testing::IsEmpty());
      destroy();
    }
  }
}

TEST_F(DocumentTest, AnyTagMakesAFileName) {
  engine.returnjson = 1;
  const std::pair<std::string, std::string> tags[] = {
      {"../../etc/x y", ".._.._etc_x_y"},
      {"caf\xC3\xA9%s", "caf\xC3\xA9_s"},
      {std::string(145, 'n'), std::string(72, 'n')},
  };
  for (const auto &[tag, part] : tags) {
    stand_in::answer_command("tandrel show session threadid tag", tag);
    plugin.loops = 0;
    create_and_start();
    send("one", 80);
    const std::string path = get();
    EXPECT_THAT(path, testing::StartsWith("/tmp/quillbrook_QBK-" + part));
    EXPECT_THAT(path, testing::EndsWith("_1.json"));
    EXPECT_LT(path.size(), 100U);
    EXPECT_TRUE(stand_in::file_exists(path));
    EXPECT_EQ(session()->name, "QBK-" + tag) << "in the log it stays whole";
    destroy();
  }
}

TEST_F(DocumentTest, APlantedLinkIsNotFollowed) {
  engine.returnnlsml = 1;
  const std::string target = stand_in::real_path("/tmp/quillbrook_target");
  stand_in::write_file(target, "precious");
  ASSERT_EQ(symlink(target.c_str(), stand_in::real_path("/tmp/quillbrook_QBK-call_1.xml").c_str()), 0);
  create_and_start();
  send("one", 80);
  EXPECT_EQ(get(), "/tmp/quillbrook_QBK-call_1.xml");
  EXPECT_THAT(document(1), testing::HasSubstr("one"));
  EXPECT_EQ(stand_in::file_content(target), "precious");
  destroy();
  stand_in::reset();
}

}  // namespace
