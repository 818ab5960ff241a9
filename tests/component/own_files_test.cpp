// Files in /tmp: what a PBX that was killed has left is removed at the next load, and nothing else.
#include "session_fixture.h"

#include <csignal>
#include <sys/wait.h>

#include "support/own_files.h"

namespace {

constexpr char kStale[] = "/tmp/quillbrook_0x1.wav";

class OwnFilesTest : public testing::Test {
protected:
  OwnFilesTest() { stand_in::reset(); }
  static void make(const std::string &path) { stand_in::write_file(path, "x"); }
  static std::string list_of(pid_t process) { return "/tmp/quillbrook." + std::to_string(process); }

  // Another PBX, which makes files and then waits to be killed.
  static pid_t start_other(const std::vector<std::string> &in_use, const std::vector<std::string> &to_keep) {
    int pipe_ends[2];
    EXPECT_EQ(pipe(pipe_ends), 0);
    const pid_t process = fork();
    if (process == 0) {
      for (const std::string &path : in_use) quillbrook_claim_file(path.c_str(), false), make(path);
      for (const std::string &path : to_keep) quillbrook_claim_file(path.c_str(), true), make(path);
      EXPECT_EQ(::write(pipe_ends[1], "x", 1), 1);
      for (;;) pause();
    }
    char done;
    EXPECT_EQ(::read(pipe_ends[0], &done, 1), 1);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
    return process;
  }
  static void kill_other(pid_t process) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
};

TEST_F(OwnFilesTest, WhatAKilledPbxLeavesGoesAndWhatLivesOrIsKeptStays) {
  const std::string in_use = "/tmp/quillbrook_0x2.wav", kept = "/tmp/quillbrook_QBK-a_1.json";
  const pid_t other = start_other({in_use, "/tmp/quillbrook2_0x2.wav"}, {kept});
  make(kStale);
  EXPECT_EQ(quillbrook_remove_stale_files(), 1) << "which is on nobody's list";
  EXPECT_THAT(stand_in::files(), testing::ElementsAre("/tmp/quillbrook2_0x2.wav", in_use, kept));

  kill_other(other);
  EXPECT_EQ(quillbrook_remove_stale_files(), 2);
  EXPECT_THAT(stand_in::files(), testing::ElementsAre(kept));
  EXPECT_FALSE(stand_in::file_exists(list_of(other)));

  // It is kept for good, also by those who come later.
  for (int time = 0; time < 2; ++time) {
    quillbrook_close_own_files();
    EXPECT_EQ(quillbrook_remove_stale_files(), 0);
    EXPECT_TRUE(stand_in::file_exists(kept));
  }
  unlink(stand_in::real_path(kept).c_str());
  quillbrook_close_own_files();
  EXPECT_FALSE(stand_in::file_exists(list_of(getpid()))) << "nothing is on it any more";
}

TEST_F(OwnFilesTest, OnlyRegularFilesOfThisUserWithOurNamesGo) {
  const std::string target = stand_in::real_path("/tmp/quillbrook_target");
  make("/tmp/quillbrook_target");
  ASSERT_EQ(symlink(target.c_str(), stand_in::real_path("/tmp/quillbrook_0x3.wav").c_str()), 0);
  ASSERT_EQ(mkdir(stand_in::real_path("/tmp/quillbrook_0x4.wav").c_str(), 0700), 0);
  ASSERT_EQ(symlink(target.c_str(), stand_in::real_path("/tmp/quillbrook.1").c_str()), 0);
  make("/tmp/quillbrook_0x5.wav");
  make("/tmp/quillbrook_0x6.wav");
  make("/tmp/quillbrook.deb");
  const bool foreign = chown(stand_in::real_path("/tmp/quillbrook_0x6.wav").c_str(), 1, 1) == 0;
  // A list that another user planted keeps nothing alive.
  std::string record = "k/tmp/quillbrook_0x5.wav";
  record.resize(kOwnFileRecord);
  stand_in::write_file("/tmp/quillbrook.2", record);
  const bool planted = chown(stand_in::real_path("/tmp/quillbrook.2").c_str(), 1, 1) == 0;

  EXPECT_EQ(quillbrook_remove_stale_files(), planted + !foreign);
  EXPECT_EQ(stand_in::files().size(), 5U - planted - !foreign);
  EXPECT_TRUE(stand_in::file_exists("/tmp/quillbrook.deb"));
  quillbrook_close_own_files();
}

// Sessions of one process, with one list, whatever comes and goes.
TEST_F(OwnFilesTest, TheListHoldsWhatIsInUseAndIsGoneWithIt) {
  const std::string list = list_of(getpid());
  for (int round = 0; round < 3; ++round) {
    for (int file = 0; file < 50; ++file) {
      quillbrook_claim_file(("/tmp/quillbrook_0x" + std::to_string(file)).c_str(), false);
      if (file % 2) quillbrook_disclaim_file(("/tmp/quillbrook_0x" + std::to_string(file)).c_str());
    }
    EXPECT_EQ(stand_in::file_content(list).size(), 26 * kOwnFileRecord) << "free places are taken again";
    EXPECT_THAT(stand_in::file_content(list), testing::HasSubstr("u/tmp/quillbrook_0x48"));
    for (int file = 0; file < 50; file += 2) {
      quillbrook_disclaim_file(("/tmp/quillbrook_0x" + std::to_string(file)).c_str());
    }
    EXPECT_FALSE(stand_in::file_exists(list));
  }
  // Without a list the files are made all the same.
  stand_in::fail(stand_in::Fault::kOpen, 1, 100);
  quillbrook_claim_file(kStale, false);
  quillbrook_disclaim_file(kStale);
  stand_in::stop_failing();
  EXPECT_FALSE(stand_in::file_exists(list));
}

using OwnFilesSessionTest = SessionTest;

TEST_F(OwnFilesSessionTest, EveryFileOfASessionIsOnTheListBeforeItIsMade) {
  const std::string list = "/tmp/quillbrook." + std::to_string(getpid());
  engine.returnjson = 1;
  engine.continuous = 1;
  engine.earlyspeechtimeout = 60;
  std::string at_open, at_cut;
  stand_in::during("ast_writefile", [&] { at_open = stand_in::file_content(list); });
  create();
  start();
  stand_in::during("ast_readfile", [&] { at_cut = stand_in::file_content(list); });
  write_ms(200, 1);
  start();
  ASSERT_TRUE(eventually([&] { return plugin.loops > 0; }));
  send("one", 80);
  finish();
  const std::string name = strrchr(context()->filename, '_') + 1;
  EXPECT_THAT(at_open, testing::HasSubstr("u/tmp/quillbrook_" + name));
  EXPECT_THAT(at_cut, testing::HasSubstr("u/tmp/quillbrook2_" + name));
  EXPECT_THAT(stand_in::file_content(list), testing::HasSubstr("_1.json"));
  destroy();
  EXPECT_FALSE(stand_in::file_exists(list));
}

}  // namespace
