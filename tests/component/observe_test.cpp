// Manager events and traces: what a call reports of itself, how much of it, and where it ends up.
#include "session_fixture.h"

#include <dirent.h>

#include "observe/reporter.h"
#include "record/observation.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ObserveTest : public SessionTest {
protected:
  ObserveTest() {
    set(engine.plugin_name, "p.so");
    engine.completetimeout = 800;
    engine.incompletetimeout = 3000;
    stand_in::add_channel("1700000000.7");
    char name[] = "/tmp/observe-test-XXXXXX";
    folder = mkdtemp(name);
  }
  ~ObserveTest() override {
    if (speech.data) destroy();
    quillbrook_reporter_stop();
    for (const std::string &name : traces()) unlink((folder + "/" + name).c_str());
    EXPECT_EQ(rmdir(folder.c_str()), 0);
  }
  void question() {
    const int before = plugin.loops;
    start();
    ASSERT_TRUE(eventually([&] { return plugin.loops > before; }));
  }
  // The events so far, each with its fields behind those that all have.
  static std::vector<std::string> events() {
    quillbrook_report_all();
    std::vector<std::string> all;
    for (const std::string &event : stand_in::manager_events()) {
      const size_t name = event.find('\n'), engine = event.find("Engine: "), rest = event.find("\r\n", engine) + 2;
      all.push_back(event.substr(0, name) + " " + event.substr(rest));
    }
    return all;
  }
  std::vector<std::string> traces() const {
    std::vector<std::string> names;
    DIR *entries = opendir(folder.c_str());
    while (const dirent *entry = readdir(entries)) {
      if (entry->d_name[0] != '.') names.push_back(entry->d_name);
    }
    closedir(entries);
    std::sort(names.begin(), names.end());
    return names;
  }
  std::vector<std::string> lines_of(const std::string &name) const {
    std::ifstream file(folder + "/" + name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }
  void trace_an_utterance() {
    set(engine.trace, folder.c_str());
    engine.dsp = 1;
    create();
    question();
    write_ms(20, 1000);
    stand_in::advance_ms(200);
    send("four", QUILLBROOK_SCORE_INTERIM);
    send("four", QUILLBROOK_SCORE_INTERIM);
    stand_in::advance_ms(500);
    write_ms(500, 0);
    tick();
    context()->completetimeout = 700;  // as a plugin or the dialplan may change it
    tick();
    stand_in::advance_ms(201);
    tick();
    get();
    destroy();
    quillbrook_report_all();
  }

  std::string folder;
};

TEST_F(ObserveTest, EventsOfACall) {
  engine.events = kEventsInterims;
  create();
  question();
  const std::string begin = "QuillbrookStart\nUniqueid: 1700000000.7\r\nChannel: Local/1700000000.7\r\nSession: " +
                            std::string(session()->name) + "\r\nEngine: quillbrook\r\n";
  events();
  EXPECT_THAT(stand_in::manager_events(), ElementsAre(begin));
  stand_in::advance_ms(300);
  send("four", QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(events().back(), "QuillbrookInterim Text: four\r\nMs: 300\r\n");
  // Ten in a second at most: the newest of those that come too soon, when its time has come.
  for (const char *text : {"four s", "four sev", "four seven"}) {
    stand_in::advance_ms(20);
    send(text, QUILLBROOK_SCORE_INTERIM);
    EXPECT_EQ(events().size(), 2U);
  }
  stand_in::advance_ms(39);
  EXPECT_EQ(quillbrook_report_all(), 1);
  stand_in::advance_ms(1);
  EXPECT_EQ(quillbrook_report_all(), -1);
  EXPECT_EQ(events().back(), "QuillbrookInterim Text: four seven\r\nMs: 360\r\n");
  // A caller or a server writes no field of its own. Words that wait are part of the result.
  send("two\r\nCause: evil", 90);
  finish();
  get();
  destroy();
  EXPECT_EQ(quillbrook_report_all(), -1);
  EXPECT_THAT(events(), ElementsAre("QuillbrookStart ", testing::_, testing::_,
                                    "QuillbrookResult Text: two??Cause: evil\r\nScore: 90\r\nCause: understood\r\n"
                                    "Reason: \r\nMs: 400\r\n",
                                    "QuillbrookEnd Cause: understood\r\nMs: 400\r\n"));
}

TEST_F(ObserveTest, ResultsOnlyAndEndsWithoutOne) {
  engine.events = kEventsResults;
  create();
  question();
  send("words", QUILLBROOK_SCORE_INTERIM);
  session()->digits_pending = 1;
  start_in_background();  // behind words
  plugin.init_result = 1;
  EXPECT_EQ(get(), "error");
  start();
  get();
  EXPECT_THAT(events(), ElementsAre("QuillbrookStart ", "QuillbrookEnd Ms: 0\r\n", "QuillbrookStart ",
                                    "QuillbrookEnd Cause: nothing\r\nMs: 0\r\n", "QuillbrookStart ",
                                    "QuillbrookEnd Cause: plugin\r\nMs: 0\r\n"));
  destroy();
  engine.events = kEventsNone;
  create();
  EXPECT_EQ(session()->observer, nullptr);
}

TEST_F(ObserveTest, WhatComesTooFastIsLostAndTold) {
  engine.events = kEventsResults;
  create();
  for (size_t number = 0; number < kReportsMax + 2; ++number) session()->observer->end("");
  EXPECT_EQ(events().size(), kReportsMax);
  EXPECT_EQ(stand_in::mentioned("2 events and lines of traces were lost"), 1);
  for (size_t number = 0; number < kReportsMax + 3; ++number) session()->observer->end("");
  EXPECT_EQ(events().size(), 2 * kReportsMax);
  EXPECT_EQ(stand_in::mentioned("were lost"), 1) << "not again within a minute";
  stand_in::advance_ms(60000);
  events();
  EXPECT_EQ(stand_in::mentioned("3 events and lines of traces were lost"), 1);
}

TEST_F(ObserveTest, TheThreadReportsBesideTheCallsAndEnds) {
  engine.events = kEventsInterims;
  set(engine.trace, folder.c_str());
  ASSERT_TRUE(quillbrook_reporter_start());
  create();
  question();
  for (int number = 0; number < 200; ++number) {
    send(std::to_string(number).c_str(), QUILLBROOK_SCORE_INTERIM);
    stand_in::advance_ms(3);
  }
  finish();
  EXPECT_EQ(get(), "199");
  destroy();
  quillbrook_reporter_stop();  // what waits is reported first
  const std::vector<std::string> all = events();
  EXPECT_LE(all.size(), 3U + 600 / kInterimGap + 1);
  EXPECT_THAT(all.back(), HasSubstr("QuillbrookEnd Cause: understood"));
  ASSERT_EQ(traces().size(), 1U);
  EXPECT_THAT(lines_of(traces()[0]).back(), HasSubstr("\"what\":\"end\",\"cause\":\"understood\""));
}

TEST_F(ObserveTest, TheTraceOfAnUtterance) {
  trace_an_utterance();
  ASSERT_EQ(traces().size(), 1U);
  const std::vector<std::string> lines = lines_of(traces()[0]);
  ASSERT_EQ(lines.size(), 10U) << testing::PrintToString(lines);
  EXPECT_THAT(lines[0],
              testing::MatchesRegex("\\{\"ms\":0,\"what\":\"start\",\"session\":\"QBK-.*\"engine\":\"quillbrook\""
                                    ",.*\"audio\":\"/tmp/quillbrook_.*\\.wav\",.*"
                                    "\"completetimeout\":800,\"incompletetimeout\":3000,.*\\}"));
  const char *const expected[] = {
      R"({"ms":0,"what":"state","state":"READY"})",
      R"({"ms":200,"what":"interim","text":"four","score":-1})",
      R"({"ms":200,"what":"timers","since":200,"completetimeout":800,"incompletetimeout":3000})",
      R"({"ms":700,"what":"audio","silence":500})",
      R"({"ms":700,"what":"timers","since":200,"completetimeout":700,"incompletetimeout":3000})",
      R"({"ms":901,"what":"expiry","timer":"completetimeout","limit":700,"words_silent":701,"audio_silent":500})",
      R"({"ms":901,"what":"result","text":"four","result":"four","score":50,"cause":"understood","reason":""})",
      R"({"ms":901,"what":"state","state":"DONE"})",
      R"({"ms":901,"what":"end","cause":"understood"})"};
  EXPECT_EQ(std::vector<std::string>(lines.begin() + 1, lines.end()),
            std::vector<std::string>(std::begin(expected), std::end(expected)));
}

TEST_F(ObserveTest, TheLimitThatTheGrammarsChoseIsTraced) {
  engine.grammartimeouts = 1;
  engine.matchtimeout = 300;
  set(engine.trace, folder.c_str());
  create();
  load_grammar("polar", "public <answer> = yes;\n");
  question();
  send("yes", QUILLBROOK_SCORE_INTERIM);
  tick();
  stand_in::advance_ms(301);
  tick();
  get();
  destroy();
  quillbrook_report_all();
  const std::vector<std::string> lines = lines_of(traces().at(0));
  EXPECT_THAT(lines, testing::Contains(HasSubstr(R"("what":"timers","since":0,"completetimeout":300,)")));
  EXPECT_THAT(lines, testing::Contains(HasSubstr(R"("timer":"completetimeout","limit":300,)")));
}

TEST_F(ObserveTest, ATraceStaysInItsFolderAndWithinItsLimits) {
  const quillbrook_observed who = {"", "", "QBK-../../\xC3\xA9 $x", "quillbrook"};
  stand_in::set_clock_ms(1'700'000'000'123);
  const std::string base = "20231114-221320.123_QBK-.._..___";
  setenv("TZ", "UTC0", 1);
  tzset();
  // Neither a link that was planted nor a trace that is there is written to.
  const std::string first = folder + "/" + base + "__x.jsonl";
  ASSERT_EQ(symlink("/tmp/quillbrook-planted", first.c_str()), 0);
  TraceFile file(folder);
  file.open(who, "{}\n");
  const std::vector<std::string> names = traces();
  EXPECT_THAT(names, ElementsAre(base + "__x-2.jsonl", base + "__x.jsonl"));
  struct stat status;
  ASSERT_EQ(stat((folder + "/" + names[0]).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  EXPECT_NE(access("/tmp/quillbrook-planted", F_OK), 0);
  // The size.
  const std::string line = "\"" + std::string(9997, 'x') + "\"\n";
  for (size_t written = 0; written < 2 * kTraceBytesMax; written += line.size()) file.write(line);
  EXPECT_EQ(lines_of(names[0]).back(), "{\"what\":\"cut\"}");
  EXPECT_EQ(lines_of(names[0]).size(), 2 + (kTraceBytesMax - 3) / line.size());
  // The number. One line as long as the folder is full.
  for (int number = 2; number < kTracesMax; ++number) {
    std::ofstream(folder + "/" + std::to_string(number) + ".jsonl") << "\n";
  }
  file.open(who, "{}\n");
  file.open(who, "{}\n");
  EXPECT_EQ(traces().size(), static_cast<size_t>(kTracesMax));
  EXPECT_EQ(stand_in::mentioned("it holds 1000 traces, take some away"), 1);
  TraceFile(folder + "/none").open(who, "{}\n");
  EXPECT_EQ(stand_in::mentioned("none: No such file or directory"), 1);
}

}  // namespace
