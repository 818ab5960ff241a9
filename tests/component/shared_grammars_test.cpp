// Compiled grammars that sessions share: what makes two files the same, and how long an unused one stays.
#include "session_fixture.h"

#include "record/shared_grammars.h"
#include "session/watch.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace {

struct SharedGrammarsTest : SessionTest {
  SharedGrammarsTest() { quillbrook_forget_shared_grammars(); }
  ~SharedGrammarsTest() override { quillbrook_forget_shared_grammars(); }

  // Files of a moment ago, by the module's clock, are old enough to be shared.
  static void let_files_age() {
    using namespace std::chrono;
    stand_in::set_clock_ms(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count() + 1000);
  }
  static std::string file(const std::string &name, const std::string &rules) {
    const std::string path = stand_in::real_path("/etc/asterisk/" + name + ".jsgf");
    stand_in::write_file(path, "#JSGF V1.0;\ngrammar " + name + ";\n" + rules);
    let_files_age();
    return path;
  }
  static const Grammar *address(const std::string &path) { return quillbrook_shared_grammar(path, false).get(); }
};

TEST_F(SharedGrammarsTest, SessionsShareAFileAndHaveTheirOwnNamesForIt) {
  const std::string path = file("a", "public <r> = yes {Y} | é {E};");
  GrammarManager one, other, plain;
  one.load("one", path);
  other.load("other", path);
  EXPECT_EQ(quillbrook_count_shared_grammars(), 1U);
  EXPECT_EQ(one.activeNames() + " " + other.activeNames(), "one other");
  EXPECT_EQ(one.match("yes") + other.match("yes"), "YY");
  plain.setNormalizeMode(2);
  plain.load("plain", path);
  EXPECT_EQ(quillbrook_count_shared_grammars(), 2U);
  EXPECT_EQ(one.match("e") + plain.match("e"), "E");
}

TEST_F(SharedGrammarsTest, AFileThatHasChangedInAnyWayIsReadAgain) {
  const std::string path = file("a", "import <b.*>; public <r> = yes {OLD} | <w>;");
  const std::string imported = file("b", "public <w> = one {1};");
  GrammarManager before;
  before.load("g", path);
  const auto held = quillbrook_shared_grammar(path, false);
  EXPECT_EQ(address(path), held.get());
  // The same size, and the time put back.
  struct stat status = {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  file("a", "import <b.*>; public <r> = yes {NEW} | <w>;");
  const struct timespec times[] = {status.st_atim, status.st_mtim};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  GrammarManager after;
  after.load("g", path);
  EXPECT_EQ(before.match("yes") + after.match("yes"), "OLDNEW");
  // What it imports.
  file("b", "public <w> = two {2};");
  GrammarManager again;
  again.load("g", path);
  EXPECT_EQ(after.match("one") + again.match("two"), "12");
  // A file that was changed right before it was read may change again without a sign of it.
  stand_in::set_clock_ms(stand_in::clock_ms() - 1000);
  file("c", "public <r> = yes {C};");
  stand_in::set_clock_ms(stand_in::clock_ms() - 1000);
  const auto alone = quillbrook_shared_grammar(stand_in::real_path("/etc/asterisk/c.jsgf"), false);
  EXPECT_NE(address(stand_in::real_path("/etc/asterisk/c.jsgf")), alone.get());
}

TEST_F(SharedGrammarsTest, AnUnusedOneStaysForAMinuteAndOnlySoManyDo) {
  const std::string path = file("a", "public <r> = yes {Y};");
  auto used = quillbrook_shared_grammar(path, false);
  const Grammar *grammar = used.get();
  EXPECT_EQ(quillbrook_watch_look(), -1);
  stand_in::advance_ms(kUnusedGrammarTime);
  used.reset();
  EXPECT_EQ(quillbrook_watch_look(), kUnusedGrammarTime);
  stand_in::advance_ms(kUnusedGrammarTime - 1);
  EXPECT_EQ(quillbrook_watch_look(), 1);
  EXPECT_EQ(address(path), grammar);  // and is used anew
  stand_in::advance_ms(kUnusedGrammarTime - 1);
  EXPECT_EQ(quillbrook_count_shared_grammars(), 1U);
  stand_in::advance_ms(1);
  EXPECT_EQ(quillbrook_watch_look(), -1);
  EXPECT_EQ(quillbrook_count_shared_grammars(), 0U);

  used = quillbrook_shared_grammar(path, false);
  for (size_t number = 0; number < kMostUnusedGrammars + 4; ++number) {
    address(file("a" + std::to_string(number), "public <r> = yes {Y};"));
    stand_in::advance_ms(1);
    EXPECT_THROW(quillbrook_shared_grammar("/nowhere/" + std::to_string(number), false), GrammarFileError);
  }
  quillbrook_watch_look();
  EXPECT_EQ(quillbrook_count_shared_grammars(), kMostUnusedGrammars + 1);
  EXPECT_EQ(address(path), used.get());
  used.reset();
  quillbrook_engine_release_texts(engine);
  EXPECT_EQ(stand_in::load_module(), AST_MODULE_LOAD_FAILURE);  // takes everything back, as an unload does
  EXPECT_EQ(quillbrook_count_shared_grammars(), 0U);
}

TEST_F(SharedGrammarsTest, WhoComesMeanwhileWaitsForTheOneThatCompiles) {
  std::string list = "public <r> = ";
  for (int word = 0; word < 20000; ++word) list += "w" + std::to_string(word) + " | ";
  const std::string path = file("a", list + "end {E};");
  std::vector<std::thread> threads;
  std::vector<std::shared_ptr<const Grammar>> grammars(8);
  for (auto &grammar : grammars) threads.emplace_back([&] { grammar = quillbrook_shared_grammar(path, false); });
  for (std::thread &thread : threads) thread.join();
  EXPECT_THAT(grammars, testing::Each(grammars[0]));
  // Uses that end at one time, and looks meanwhile.
  threads.clear();
  for (auto &grammar : grammars) {
    threads.emplace_back([&] {
      grammar.reset();
      quillbrook_look_at_unused_grammars();
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(quillbrook_look_at_unused_grammars(), kUnusedGrammarTime);
}

}  // namespace
