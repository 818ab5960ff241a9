// Grammars that import others: what is found, what is taken from it, and what is refused.

#include <jsgfkitxx.h>

#include <sys/stat.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

class Imports : public testing::Test {
protected:
  Imports() {
    std::string pattern = testing::TempDir() + "importsXXXXXX";
    top_ = mkdtemp(pattern.data());
    write("lib/en/size.jsgf",
          "#JSGF V1.0;\ngrammar en.size;\npublic <size> = <small> {S} | large {L};\n"
          "<small> = small | tiny;public <unused> = 12 | huge;");
    write("lib/en/milk.jsgf",
          "#JSGF V1.0;\ngrammar en.milk;\nimport <en.size.*>;\n"
          "public <milk> = (<en.size.size> | <size>) milk {M};\npublic <size> = big {B};");
  }
  ~Imports() override { fs::remove_all(top_); }

  void write(const std::string &path, const std::string &text) const {
    fs::create_directories((top_ / path).parent_path());
    std::ofstream(top_ / path) << text;
  }

  Grammar load(const std::string &rules, const std::string &own = "own", const std::string &name = "mine") const {
    std::istringstream in("#JSGF V1.0;grammar " + name + ";\n" + rules);
    return {in, {top_ / own, {top_ / "none", top_ / "lib"}}};
  }

  fs::path top_;
};

std::string tags(const Grammar &grammar, const std::string &text) {
  const std::string rule = grammar.getMatchingPublicRule(text);
  std::string all = rule + ":";
  for (const std::string &tag : Grammar::getMatchingTags(grammar.matchesRule(grammar.getRule(rule), text))) {
    all += tag;
  }
  return all;
}

TEST_F(Imports, OfferPublicRulesUnderEachOfTheirNames) {
  const Grammar grammar = load(
      "import <en.size.size>;import <en.milk.*>;import <en.milk.milk>;\n"
      "public <a> = a <en.size.size> | b <milk> | c <milk.milk> {C} | d <size.size> | e <f>;"
      "<f> = 1 2;");
  EXPECT_EQ(tags(grammar, "a tiny"), "a:S");
  EXPECT_EQ(tags(grammar, "b big milk"), "a:BM");
  EXPECT_EQ(tags(grammar, "c large milk"), "a:LMC");
  EXPECT_EQ(tags(grammar, "d small"), "a:S");
  EXPECT_EQ(tags(grammar, "tiny"), ":");  // not public here
  EXPECT_EQ(grammar.getRule("milk"), nullptr);
  // A rule that nothing needs has no say: its 12 would keep 1 and 2 from being written together.
  EXPECT_EQ(tags(grammar, "e 12"), "a:");
  EXPECT_EQ(grammar.getAllWords(),
            (Strings{"a", "b", "c", "d", "e", "1", "2", "large", "small", "tiny", "milk", "big"}));
  EXPECT_EQ(grammar.getImportedFiles(), (Strings{top_ / "lib/en/size.jsgf", top_ / "lib/en/milk.jsgf"}));
}

TEST_F(Imports, AreLookedForInTheOwnFolderFirst) {
  write("own/en/size.jsgf", "#JSGF V1.0;grammar en.size;public <size> = other {O};");
  EXPECT_EQ(tags(load("import <en.size.*>;public <a> = <size>;"), "other"), "a:O");
  // The folder of a grammar in a package is where the package begins.
  EXPECT_EQ(tags(load("import <en.size.*>;public <a> = <size>;", "own/en/", "en.mine"), "other"), "a:O");
  std::istringstream in("#JSGF V1.0;grammar g;import <en.size.*>;public <a> = <size>;");
  const auto louder = [](std::string text) { return text.replace(text.find("large"), 5, "LOUD"); };
  EXPECT_EQ(tags(Grammar(in, {top_, {top_ / "lib"}, louder}), "loud"), "a:L");
}

TEST_F(Imports, AreRefusedWithFileLineAndColumn) {
  write("lib/a.jsgf", "#JSGF V1.0;grammar a;\nimport <b.*>;");
  write("lib/b.jsgf", "#JSGF V1.0;grammar b;\n\n import <a.x>;public <b> = x;");
  write("lib/en/broken.jsgf", "#JSGF V1.0;grammar en.broken;\npublic <x> = (y;");
  write("lib/en/left.jsgf", "#JSGF V1.0;grammar en.left;\npublic <x> = <x> y | z;");
  write("lib/en/wrong.jsgf", "#JSGF V1.0;grammar en.right;public <x> = y;");
  write("outside/secret.jsgf", "#JSGF V1.0;grammar en.link;public <x> = y;");
  fs::create_symlink(top_ / "outside/secret.jsgf", top_ / "lib/en/link.jsgf");
  fs::create_directory_symlink(top_ / "outside", top_ / "lib/out");
  ASSERT_EQ(mkfifo((top_ / "lib/en/fifo.jsgf").c_str(), 0600), 0);
  const std::pair<std::string, std::string> rows[] = {
      // a ^ where the fault is, and what the reason has in it
      {"import ^<en.none.x>;", "en/none.jsgf below "},
      {"import ^<mine.x>;", "a grammar that doesn't import this one, found mine"},
      {"import ^<a.*>;", "lib/a.jsgf, line 2, column 8: in "},
      {"import ^<a.*>;", "lib/b.jsgf, line 3, column 9: expected a grammar that doesn't import this one, found a"},
      {"import <en.size.*>;\nimport ^<en.size.small>;", "expected a public rule"},
      {"import ^<en.size.none>;", "expected a public rule"},
      {"import <en.size.*>;import <en.milk.size>;\npublic <a> = ^<size>;", "<size> in en.milk and in en.size"},
      {"import ^<en.broken.*>;", "lib/en/broken.jsgf, line 2, column 16: expected ')'"},
      {"import ^<en.left.x>;public <a> = <x>;", "lib/en/left.jsgf, line 2, column 14: expected <x> as the last item"},
      {"import ^<en.wrong.x>;", "lib/en/wrong.jsgf, found en.right"},
      {"import ^<en.link.x>;", "a symbolic link"},
      {"import ^<out.secret.x>;", "found none"},
      {"import ^<en.fifo.x>;", "no regular file"},
      {"import ^<../../outside/secret.x>;", ""},
      {"import ^<en./etc/passwd.x>;", "a grammar that can be a file"},
      {"public <a> = ^<en.size.size>;", "expected a defined rule"},
  };
  for (const auto &[marked, part] : rows) {
    const size_t at = marked.find('^');
    const size_t line_begin = marked.rfind('\n', at) + 1;
    const std::string begin =
        "line " + std::to_string(line_begin == 0 ? 2 : 3) + ", column " + std::to_string(at - line_begin + 1) + ": ";
    try {
      load(marked.substr(0, at) + marked.substr(at + 1));
      ADD_FAILURE() << "loaded: " << marked;
    } catch (const std::runtime_error &error) {
      const std::string reason = error.what();
      EXPECT_EQ(part.empty() ? "line " : begin, reason.substr(0, part.empty() ? 5 : begin.size())) << reason;
      EXPECT_NE(reason.find(part), std::string::npos) << marked << "\n" << reason;
    }
  }
}

}  // namespace
