// The streaming thread: the waits before the plugin's loop, the cut to the early speech, twin mode, failure reports.
#include "session_fixture.h"

namespace {

using stand_in::Fault;

constexpr int WAV_HEADER = 44;

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
  // Numbered samples, one frame of 20 ms for each number.
  void write_numbered(int first, int last) {
    for (int number = first; number <= last; ++number) write_ms(20, static_cast<int16_t>(number));
  }
  // The numbers of the frames in a stream file.
  std::vector<int> numbers_in(const std::string &path) {
    const std::string content = stand_in::file_content(path);
    std::vector<int> numbers;
    for (size_t at = WAV_HEADER; at + 320 <= content.size(); at += 320) {
      int16_t sample;
      memcpy(&sample, content.data() + at, sizeof(sample));
      numbers.push_back(sample);
    }
    return numbers;
  }
};

TEST_F(StreamingTest, TheLoopBeginsWhenTheFileHoldsMoreThanTheMinimum) {
  struct Case {
    const char *format;
    int bytes;  // of samples, for a file of exactly 100 ms, header included
  };
  for (const Case &test : {Case{"wav", 1600 - WAV_HEADER}, Case{"ulaw", 1600}}) {
    set(engine.ws_format, test.format);
    engine.minspeechtimeout = 100;
    plugin.loops = 0;
    create();
    start();
    const std::vector<char> audio(test.bytes);
    write(audio.data(), test.bytes);
    wait_for_polls(3);
    EXPECT_EQ(plugin.loops, 0) << test.format;
    write(audio.data(), 2);
    EXPECT_TRUE(loop_entered()) << test.format;
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
    EXPECT_THAT(numbers_in(path), testing::ElementsAre(8, 9, 10));
    looked = true;
  };
  start();
  ASSERT_TRUE(eventually([&] { return looked.load(); }));
  write_numbered(11, 12);
  EXPECT_THAT(numbers_in(path), testing::ElementsAre(8, 9, 10, 11, 12));
  EXPECT_THAT(stand_in::files(), testing::ElementsAre(path));
  EXPECT_EQ(session()->prompting, 0);
}

TEST_F(StreamingTest, TheSecondStartMayComeFirst) {
  engine.earlyspeechtimeout = 40;
  engine.minspeechtimeout = 198;  // the tenth frame is the one that it takes
  create();
  start();
  start();  // the thread still waits for audio
  const std::string path = context()->filename;
  write_numbered(1, 10);
  ASSERT_TRUE(loop_entered());
  EXPECT_THAT(numbers_in(path), testing::ElementsAre(9, 10));
  // A third one has nobody to release.
  start();
  EXPECT_EQ(plugin.loops, 1);
  EXPECT_EQ(get(), "error");
}

struct RewindFailure {
  Fault fault;
  int nth;
};
class RewindFailureTest : public StreamingTest, public testing::WithParamInterface<RewindFailure> {};

TEST_P(RewindFailureTest, ThePluginRunsAndFramesAreDropped) {
  verbose = 1;
  engine.earlyspeechtimeout = 60;
  create();
  start();
  write_numbered(1, 5);
  stand_in::fail(GetParam().fault, GetParam().nth);
  start();
  ASSERT_TRUE(loop_entered());
  write_numbered(6, 6);
  EXPECT_EQ(stand_in::logged(__LOG_NOTICE, named("Write with file closed!\n")), 1);
  send("heard", 70);
  EXPECT_EQ(get(), "heard");
  stand_in::reset();  // what could not be read stays, and the operator may want it
}
INSTANTIATE_TEST_SUITE_P(Each, RewindFailureTest,
                         testing::Values(RewindFailure{Fault::Rename, 1}, RewindFailure{Fault::ReadStream, 1},
                                         RewindFailure{Fault::WriteStream, 1}));

TEST_F(StreamingTest, TheWaitsEndWithoutThePlugin) {
  for (const bool prompting : {false, true}) {
    for (const bool deleted : {false, true}) {
      plugin.loops = 0;
      engine.minspeechtimeout = prompting ? 0 : 1000;
      engine.earlyspeechtimeout = prompting ? 60 : 0;
      create();
      start();
      write_ms(20, 1);
      wait_for_polls(2);
      if (deleted) {
        unlink(context()->filename);
        plugin.stop_finalize = 0;  // the thread ends by itself
      }
      EXPECT_EQ(get(), "error");
      EXPECT_EQ(plugin.loops, 0) << prompting << deleted;
      plugin.stop_finalize = 1;
      destroy();
    }
  }
}

struct Report {
  const char *extra;
  bool failure;
};
class ReportTest : public StreamingTest, public testing::WithParamInterface<Report> {};

TEST_P(ReportTest, OnlyAnErrorTextEndsTheRecognition) {
  const Report &report = GetParam();
  plugin.loop_waits = false;
  plugin.on_loop = [&](quillbrook_context *context) { copy_text(context->extra, report.extra); };
  create();
  start();
  ASSERT_TRUE(eventually([&] { return plugin.ended == 1; }));
  const std::string line = named("QuillBrook plugin error: " + std::string(report.extra) + "\n");
  if (report.failure) {
    EXPECT_TRUE(eventually([&] { return state() == DONE; }));
    EXPECT_EQ(queued(), 1U);
  }
  EXPECT_EQ(get(), "error");
  EXPECT_EQ(stand_in::logged(__LOG_WARNING, line), report.failure ? 1 : 0);
  EXPECT_EQ(stand_in::states().back(), report.failure ? DONE : READY);
}
INSTANTIATE_TEST_SUITE_P(Each, ReportTest,
                         testing::Values(Report{"ERROR: no model", true}, Report{"ERROR:", true},
                                         Report{"error: no model", false}, Report{"my ERROR: no", false},
                                         Report{"", false}));

TEST_F(StreamingTest, AnErrorBehindAResultDoesNotHideIt) {
  plugin.loop_waits = false;
  plugin.on_loop = [&](quillbrook_context *context) {
    quillbrook_callback(context, "heard", 80);
    copy_text(context->extra, "ERROR: lost the provider");
  };
  create();
  start();
  ASSERT_TRUE(eventually([&] { return stand_in::mentioned("lost the provider") == 1; }));
  EXPECT_EQ(get(), "heard");
  EXPECT_EQ(queued(), 0U);
}

class TwinTest : public StreamingTest {
protected:
  TwinTest() { twin = 1; }
};

TEST_F(TwinTest, BothContextsRunAndTheFirstReportWins) {
  engine.earlyspeechtimeout = 60;
  std::mutex lock;
  std::set<quillbrook_context *> seen;
  plugin.on_loop = [&](quillbrook_context *context) {
    std::lock_guard<std::mutex> held(lock);
    seen.insert(context);
    EXPECT_THAT(numbers_in(context->filename), testing::ElementsAre(3, 4, 5)) << "the cut has been made";
  };
  create();
  start();
  quillbrook_context *second = session()->context2;
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
  EXPECT_EQ(session()->context2, nullptr);
}

TEST_F(TwinTest, GoesOnWithOneWhenTheSecondCannotRun) {
  plugin.on_init = [&](quillbrook_context *) { plugin.init_result = plugin.inits == 2; };
  create_and_start();
  EXPECT_EQ(stand_in::logged(__LOG_WARNING, "Failed to intialize quillbrook plugin2\n"), 1);
  send("first", 90);
  EXPECT_EQ(get(), "first");
  EXPECT_EQ(plugin.loops, 1);
}

TEST_F(TwinTest, TheSecondDoesNotWaitForAFirstThatWasRefused) {
  plugin.on_init = [&](quillbrook_context *) { plugin.init_result = plugin.inits == 1; };
  create();
  start();
  EXPECT_TRUE(loop_entered());
  EXPECT_EQ(quillbrook_callback(session()->context2, "second", 90), 0);
  EXPECT_EQ(get(), "second");
}

}  // namespace
