// What becomes of the plugin's messages: what their class and the gates say, and the one text and one score that
// interims and finals make.
#include "session_fixture.h"

namespace {

class CallbackTest : public SessionTest {
protected:
  CallbackTest() {
    engine.completetimeout = 1000;
    engine.incompletetimeout = 3000;
  }
  static quillbrook_statistics stats() { return quillbrook_statistics_read().stats; }
};

TEST_F(CallbackTest, ABadScoreIsRefusedWithALineASecond) {
  create_and_start();
  context()->extra_pointer = "{\"a\":1}";
  for (const int bad : {-3, -199, -201, INT_MIN}) {
    stand_in::advance_ms(1000);
    EXPECT_EQ(send("word", bad), -1);
    EXPECT_EQ(stand_in::logged(__LOG_ERROR, labelled("CALLBACK: text [word] score=") + std::to_string(bad) +
                                                " len=4 context={\"a\":1}\n"),
              1);
  }
  for (int more = 0; more < 5; ++more) EXPECT_EQ(send(nullptr, -3), -1);
  EXPECT_EQ(stand_in::mentioned("CALLBACK: text [(null)]"), 0);
  stand_in::advance_ms(1000);
  EXPECT_EQ(send(nullptr, -3), -1);
  EXPECT_EQ(stand_in::mentioned("CALLBACK: text [(null)] score=-3 len=0 context={\"a\":1} (and 5 more"), 1);
  send(nullptr, -3);
  const std::string rest = labelled("CALLBACK: 1 more messages with a bad score\n");
  EXPECT_TRUE(ast_tvzero(transcript().datelast));
  EXPECT_EQ(stats().messages_total, 0U);
  destroy();
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, rest), 1);
}

// The message is lost then, and nothing of what came before.
TEST_F(CallbackTest, ATranscriptHasALimit) {
  constexpr size_t kLimit = 1 << 20;
  const std::string piece = "caf\xC3\xA9 " + std::string(1000, 'x');
  create_and_start();
  const std::string line = labelled("The transcript has more than 1048576 bytes: what is beyond is dropped\n");
  std::string whole;
  while (whole.size() <= kLimit + 5000) {
    send(piece.c_str(), 80);
    whole += (whole.empty() ? "" : " ") + piece;
  }
  finish();
  EXPECT_EQ(get(), whole.substr(0, kLimit));
  start();
  send(std::string(kLimit - 1, 'y').c_str(), 80);
  send("z", 80);
  finish();
  EXPECT_EQ(get(), std::string(kLimit - 1, 'y')) << "not even the blank before the piece";
  start();
  send((std::string(kLimit - 1, 'y') + "\xC3\xA9").c_str(), QUILLBROOK_SCORE_INTERIM);
  finish();
  EXPECT_EQ(get(), std::string(kLimit - 1, 'y')) << "cut behind a whole character";
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, line), 3);
}

TEST_F(CallbackTest, ManySmallPiecesNeedFewAllocations) {
  create_and_start();
  stand_in::fail(stand_in::Fault::kAllocation, 20, INT_MAX);
  for (int piece = 0; piece < 20000; ++piece) send("word", 80);
  EXPECT_EQ(stand_in::stop_failing(), 0);
  EXPECT_EQ(transcript().text_length, 20000U * 5 - 1);
}

}  // namespace
