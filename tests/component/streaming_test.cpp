// The streaming thread: the waits before the plugin's loop, the cut to the early speech, twin mode, failure reports,
// and frames and a get that meet them.
#include "session_fixture.h"

namespace {

using stand_in::Fault;
using testing::ElementsAre;

constexpr int kMost = 1000000;  // frames until another thread has come: seconds

class StreamingTest : public SessionTest {
protected:
  // Lets the streaming thread look at the file a few times more.
  static void wait_for_polls(int polls) {
    const int64_t until = stand_in::slept_us() + polls * INT64_C(100'000);
    ASSERT_TRUE(eventually([&] { return stand_in::slept_us() >= until; }));
  }
  bool loop_entered() {
    return eventually([&] { return plugin.loops > 0; });
  }
};

TEST_F(StreamingTest, TheLoopBeginsWhenTheFileHoldsMoreThanTheMinimum) {
  engine.minspeechtimeout = 100;
  // Bytes of samples, for a file of exactly 100 ms, header included.
  for (const auto &[format, bytes] : {std::make_pair("wav", 1600 - kWavHeader), std::make_pair("ulaw", 1600)}) {
    set(engine.ws_format, format);
    plugin.loops = 0;
    create();
    start();
    const std::vector<char> audio(bytes);
    write(audio.data(), bytes);
    wait_for_polls(3);
    EXPECT_EQ(plugin.loops, 0) << format;
    write(audio.data(), 2);
    EXPECT_TRUE(loop_entered()) << format;
    destroy();
  }
}

TEST_F(StreamingTest, EarlySpeechIsKeptAndWhatComesBeforeItIsCut) {
  engine.earlyspeechtimeout = 60;
  create();
  start();
  write_numbered(1, 10);
  wait_for_polls(3);
  EXPECT_EQ(plugin.loops, 0) << "the prompt runs";
  const std::string path = context()->filename;
  std::atomic<bool> looked{false};
  plugin.on_loop = [&](quillbrook_context *) {
    EXPECT_THAT(numbers_in(path), ElementsAre(8, 9, 10));
    looked = true;
  };
  start();
  ASSERT_TRUE(eventually([&] { return looked.load(); }));
  write_numbered(11, 12);
  EXPECT_THAT(numbers_in(path), ElementsAre(8, 9, 10, 11, 12));
  EXPECT_THAT(stand_in::files(), ElementsAre(path));
  EXPECT_EQ(stand_in::mentioned("write file size"), 0);
  EXPECT_EQ(recognition()->prompting, 0);
}

// What stands under the name of a stream that could not be opened or moved is not the caller's.
TEST_F(StreamingTest, NothingIsHeardThatWasPlantedUnderTheName) {
  for (const bool cut : {false, true}) {
    engine.earlyspeechtimeout = cut ? 60 : 0;
    create();
    stand_in::fail(cut ? Fault::kRename : Fault::kWriteStream);
    start();
    stand_in::write_file(context()->filename, "planted");
    start();
    write_ms(20, 1);
    EXPECT_TRUE(eventually([&] { return shared_load(recognition()->running) == 0; }));
    EXPECT_EQ(get(), "error");
    EXPECT_EQ(plugin.loops, 0);
    destroy();
  }
}

TEST_F(StreamingTest, ACutThatFailsIsAnErrorAndLeavesNoFile) {
  engine.earlyspeechtimeout = 60;
  const std::pair<Fault, std::string> failures[] = {{Fault::kRename, "move"},
                                                    {Fault::kReadStream, "read back"},
                                                    {Fault::kWriteStream, "open"},
                                                    {Fault::kWrite, "write"}};
  for (const auto &[fault, action] : failures) {
    plugin.loops = 0;
    create();
    start();
    write_numbered(1, 5);
    // The second stream that is opened is the one that is written again.
    stand_in::fail(fault, fault == Fault::kWrite ? 2 : 1);
    start();
    EXPECT_TRUE(eventually([&] { return state() == kDone; })) << action;
    write_numbered(6, 6);
    EXPECT_EQ(stand_in::mentioned(labelled("Cannot " + action + " the audio of the recognition, ")), 1);
    EXPECT_EQ(get(), "error");
    EXPECT_EQ(plugin.loops, fault == Fault::kWrite) << "there is a file, although not whole";
    EXPECT_THAT(stand_in::files(), testing::IsEmpty());
    destroy();
    stand_in::reset();
  }
}

TEST_F(StreamingTest, OnlyAFileThatIsGoneEndsAWait) {
  engine.minspeechtimeout = 100;
  create();
  stand_in::fail(Fault::kPoll, 1, 3);
  start();
  wait_for_polls(3);
  EXPECT_EQ(stand_in::stop_failing(), 3);
  write_ms(200, 1);
  EXPECT_TRUE(loop_entered());
}

TEST_F(StreamingTest, OnlyAnErrorTextEndsTheRecognition) {
  const std::pair<std::string, bool> reports[] = {
      {"ERROR: no model", true}, {"ERROR:", true}, {"error: no model", false}, {"my ERROR: no", false}, {"", false}};
  plugin.loop_waits = false;
  create();
  for (const auto &[extra, failure] : reports) {
    plugin.ended = 0;
    plugin.on_loop = [text = extra](quillbrook_context *context) { copy_text(context->extra, text.c_str()); };
    start();
    ASSERT_TRUE(eventually([&] { return plugin.ended == 1; }));
    EXPECT_TRUE(eventually([&] { return shared_load(recognition()->running) == 0; }));
    EXPECT_TRUE(!failure || eventually([&] { return state() == kDone; })) << extra;
    EXPECT_TRUE(failure || eventually([&] {
                  return stand_in::logged(__LOG_WARNING,
                                          labelled("The plugin (null) returned before its stop, without a word\n")) ==
                         1;
                }));
    EXPECT_EQ(get(), "error");
    EXPECT_EQ(state(), failure ? kDone : kNotReady) << extra;
    EXPECT_EQ(stand_in::logged(__LOG_WARNING, labelled("QuillBrook plugin error: " + extra + "\n")), failure);
    stand_in::reset_log();
  }
  // Behind a result it does not hide that.
  plugin.on_loop = [](quillbrook_context *context) {
    quillbrook_callback(context, "heard", 80);
    copy_text(context->extra, "ERROR: lost the provider");
  };
  start();
  ASSERT_TRUE(eventually([] { return stand_in::mentioned("lost the provider") == 1; }));
  EXPECT_EQ(get(), "heard");
  EXPECT_EQ(queued(), 0U);
}

TEST_F(StreamingTest, TwinsBothRunAndTheFirstReportWins) {
  twin = 1;
  engine.earlyspeechtimeout = 60;
  std::mutex lock;
  std::set<quillbrook_context *> seen;
  plugin.on_loop = [&](quillbrook_context *context) {
    std::lock_guard<std::mutex> held(lock);
    seen.insert(context);
    EXPECT_THAT(numbers_in(context->filename), ElementsAre(3, 4, 5)) << "the cut has been made";
  };
  plugin.on_end = [](quillbrook_context *) {
    for (int turn = 0; turn < 1000; ++turn) std::this_thread::yield();
  };
  create();
  start();
  quillbrook_context *second = recognition()->context2;
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(plugin.inits, 2);
  EXPECT_EQ(second->filename, context()->filename);
  write_numbered(1, 5);
  start();
  EXPECT_TRUE(eventually([&] {
    std::lock_guard<std::mutex> held(lock);
    return seen == std::set<quillbrook_context *>{context(), second};
  }));
  EXPECT_EQ(quillbrook_callback(second, "second", 90), 0);
  EXPECT_EQ(send("first", 90), -1);
  EXPECT_EQ(get(), "second");
  EXPECT_EQ(plugin.stops, 2);
  EXPECT_EQ(plugin.ended, 2) << "both have been waited for";
  EXPECT_EQ(recognition(), nullptr);
}

TEST_F(StreamingTest, ATwinRunsAloneWhenTheOtherIsRefused) {
  twin = 1;
  for (const int refused : {1, 2}) {
    plugin.inits = plugin.loops = 0;
    plugin.on_init = [&](quillbrook_context *) { plugin.init_result = plugin.inits == refused; };
    create();
    start();
    EXPECT_TRUE(loop_entered());
    EXPECT_EQ(stand_in::mentioned(") Failed to intialize quillbrook plugin\n"), 1);
    EXPECT_EQ(stand_in::mentioned(") Failed to intialize quillbrook plugin2\n"), refused - 1);
    EXPECT_EQ(quillbrook_callback(refused == 1 ? recognition()->context2 : context(), "one", 90), 0);
    EXPECT_EQ(get(), "one");
    EXPECT_EQ(plugin.loops, 1);
    destroy();
  }
}

// A final that the module took is the caller's result, however close the get comes.
TEST_F(StreamingTest, AGetAgainstTheLastWords) {
  std::atomic<bool> go{false};
  std::atomic<int> answer{0};
  plugin.on_loop = [&](quillbrook_context *context) {
    while (!go) std::this_thread::yield();
    answer = quillbrook_callback(context, "word", 80);
  };
  create();
  for (int round = 0; round < 100; ++round) {
    go = false;
    plugin.loops = 0;
    start();
    ASSERT_TRUE(eventually([&] { return plugin.loops > 0; }));
    go = true;
    if (round % 2) std::this_thread::yield();
    EXPECT_EQ(get(), "word");
    EXPECT_EQ(answer, 0);
  }
}

// Frames that arrive while the stream is cut down wait, and none is lost or doubled.
TEST_F(StreamingTest, FramesAgainstTheRewind) {
  engine.earlyspeechtimeout = 100;
  for (int round = 0; round < 50; ++round) {
    plugin.loops = 0;
    create();
    start();
    int number = 20;
    write_numbered(1, number);
    start();
    for (; plugin.loops == 0 && number < kMost; ++number) write_numbered(number + 1, number + 1);
    ASSERT_LT(number, kMost) << "the plugin was never let go";
    const std::vector<int> numbers = numbers_in(context()->filename);
    ASSERT_GE(numbers.size(), 5U);
    for (const int &found : numbers) ASSERT_EQ(found, number - (&numbers.back() - &found));
    destroy();
  }
}

}  // namespace
