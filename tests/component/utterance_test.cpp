// Continuous sessions whose results are utterances of their own. Texts, timers, flags and scores of one utterance after
// the other are tried at random by endpointing_property_test.cpp; here is what it does not see.
#include "session_fixture.h"
#include "session/watch.h"

namespace {

class UtteranceTest : public SessionTest {
protected:
  UtteranceTest() {
    engine.continuous = engine.separate = 1;
    engine.completetimeout = 1000;
    engine.incompletetimeout = 3000;
  }
  // The other run of twin mode.
  int send2(const char *text, int score) { return quillbrook_callback(recognition()->context2, text, score); }
  bool barges_in(int answer) {
    const unsigned raised = AST_SPEECH_QUIET | AST_SPEECH_SPOKE;
    return answer == 0 && (std::exchange(speech.flags, 0) & raised) == raised;
  }
};

TEST_F(UtteranceTest, NoDocumentRepeatsTheFormerOne) {
  for (const bool json : {true, false}) {
    engine.returnjson = json;
    engine.returnnlsml = !json;
    create_and_start();
    context()->extra_pointer = "{\"n\":1}";
    context()->api_pointer = "meaning";
    stand_in::fail(stand_in::Fault::kOpen);
    deliver("lost", 80);
    EXPECT_EQ(get(), "error");
    deliver("one", 80);
    EXPECT_THAT(stand_in::file_content(get()), testing::HasSubstr("n"));
    context()->extra_pointer = context()->api_pointer = nullptr;
    deliver("two", 60);
    const std::string document = stand_in::file_content(get());
    EXPECT_THAT(document, testing::HasSubstr(json ? "two" : "confidence=\"60\">\n    <instance>two</instance>"));
    EXPECT_THAT(document, testing::Not(testing::AnyOf(testing::HasSubstr("n\":1"), testing::HasSubstr("lost"))));
    destroy();
  }
}

// The words that ended in an error do not come back with the next ones, nor do those on whose call it was noticed.
TEST_F(UtteranceTest, AnErrorEndsTheUtteranceToo) {
  engine.completetimeout = 0;
  engine.plugintimeout = 3000;
  create_and_start();
  for (const bool calls_back : {true, false}) {
    EXPECT_TRUE(barges_in(send("stale", QUILLBROOK_SCORE_INTERIM)));
    stand_in::advance_ms(3001);
    if (calls_back) {
      send("stale", QUILLBROOK_SCORE_INTERIM);
    } else {
      quillbrook_watch_look();
    }
    EXPECT_EQ(get(), "error");
    EXPECT_TRUE(barges_in(send("fresh", 80)));
    finish();
    EXPECT_EQ(get(), "fresh");
  }
}

TEST_F(UtteranceTest, TheDialplansTimeoutsReachTheNextUtterance) {
  create_and_start();
  deliver("one", 80);
  quillbrook_recog_load_grammar(&speech, "x", "property:Speech-Complete-Timeout=200ms");
  send("two", 80);
  stand_in::advance_ms(201);
  tick();
  EXPECT_EQ(queued(), 2U);
}

// What a stop leaves in the plugin's record stays there, though the last words come behind it.
TEST_F(UtteranceTest, AStopStands) {
  engine.waitclose = 1;
  stand_in::answer_command("tandrel show session threadid uniqueid", "u1");
  stand_in::add_channel("u1", true);
  plugin.stop_hangup = 0;
  plugin.on_stop = [](quillbrook_context *context) { shared_store(context->finalize, 1); };
  plugin.on_end = [](quillbrook_context *context) {
    quillbrook_callback(context, "last words", 80);
    quillbrook_callback(context, nullptr, QUILLBROOK_SCORE_END);
  };
  create_and_start();
  EXPECT_EQ(get(), "last words");
  EXPECT_EQ(context()->finalize, 1);
}

TEST_F(UtteranceTest, TwinRunsMakeOneResultOfAnUtterance) {
  twin = 1;
  create_and_start();
  ASSERT_TRUE(eventually([&] { return plugin.loops == 2; }));
  for (const char *text : {"first", "second", "third"}) {
    send(text, QUILLBROOK_SCORE_INTERIM);
    send2(text, QUILLBROOK_SCORE_INTERIM);
    // Each is the quicker one in turn.
    const bool swap = text == std::string("second");
    swap ? send2("quick", 80) : send("quick", 80);
    swap ? send2("", QUILLBROOK_SCORE_FINISH) : finish();
    swap ? send("late", 90) : send2("late", 90);
    swap ? finish() : send2("", QUILLBROOK_SCORE_FINISH);
  }
  for (int count = 0; count < 3; ++count) EXPECT_EQ(get(), "quick");
  EXPECT_EQ(queued(), 0U);
  // A run that has heard nothing of an utterance is heard with the next.
  deliver("alone", 70);
  send2("other", 70);
  send2("", QUILLBROOK_SCORE_FINISH);
  EXPECT_EQ(get(), "alone");
  EXPECT_EQ(get(), "other");
}

}  // namespace
