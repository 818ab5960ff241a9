// The helpers under the module: queue, bounded copies, escapes, whole files, and commands of the host.
#include <gtest/gtest.h>

#include "host/stand_in.h"
#include "support/bounded_text.h"
#include "support/cli.h"
#include "support/json_escape.h"
#include "support/str_fifo.h"
#include "support/text_file.h"

namespace {

using stand_in::Fault;

struct SupportTest : testing::Test {
  void SetUp() override { stand_in::reset(); }
};

std::string taken(str_fifo &fifo) {
  char *value = str_fifo_pop(&fifo);
  std::string text = value ? value : "(none)";
  ast_free(value);
  return text;
}

TEST_F(SupportTest, QueueKeepsOrderAndOwnsItsCopies) {
  str_fifo fifo;
  for (int round = 0; round < 2; ++round) {  // what is left goes with it, and it can be used again
    ASSERT_EQ(str_fifo_init(&fifo), 0);
    char text[] = "one";
    EXPECT_EQ(str_fifo_push(&fifo, text), 0);
    text[0] = 'X';
    EXPECT_EQ(str_fifo_push(&fifo, text), 0);
    for (int nth = 1; nth <= 2; ++nth) {
      stand_in::fail(Fault::kAllocation, nth);
      EXPECT_EQ(str_fifo_push(&fifo, "lost"), -1);
      EXPECT_EQ(stand_in::stop_failing(), 1);
    }
    EXPECT_EQ(str_fifo_count(&fifo), 2U);
    EXPECT_EQ(taken(fifo), "one");
    EXPECT_EQ(taken(fifo), "Xne");
    EXPECT_EQ(str_fifo_empty(&fifo), 1);
    EXPECT_EQ(taken(fifo), "(none)");
    EXPECT_EQ(str_fifo_push(&fifo, "left"), 0);
    EXPECT_EQ(str_fifo_count(&fifo), 1U);
    str_fifo_destroy(&fifo);
  }
}

TEST_F(SupportTest, CopiesAreCutBehindAWholeCharacter) {
  const auto copied = [](const std::string &text, size_t size) {
    std::string buffer(size + 8, '#');
    copy_text(buffer.data(), size, text.c_str());
    EXPECT_EQ(buffer.substr(size), "########") << "written behind the buffer, size " << size;
    return std::string(buffer.c_str());
  };
  // Characters of one to four bytes: a é € 😀 b. Places at which it may be cut: 0 1 3 6 10 11.
  const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";
  const size_t length_for_room[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11, 11};
  for (size_t room = 0; room < std::size(length_for_room); ++room) {
    EXPECT_EQ(copied(text, room + 1), text.substr(0, length_for_room[room])) << "room " << room;
  }
  // No UTF-8: cut anywhere, and never shortened for the sake of a character that is none.
  EXPECT_EQ(copied("\x80\x80\x80\x80\x80\x80", 5), "\x80\x80\x80\x80");
  EXPECT_EQ(copied("ab\xC3gh", 4), "ab\xC3");
  const std::vector<char> tails = {'\x80', '\x80', '\0'};  // on the heap: nothing in front of it is read
  char array[4];
  copy_text(array, 2, tails.data());
  EXPECT_STREQ(array, "\x80");
  copy_text(array, nullptr);
  EXPECT_STREQ(array, "");
}

TEST_F(SupportTest, JsonIsAsciiAndRefusesWhatIsNotUtf8OrDoesNotFit) {
  const std::pair<const char *, const char *> cases[] = {
      {"", ""},
      {"say \"a\\b\"/\x7F", "say \\\"a\\\\b\\\"/\x7F"},
      {"\b\f\n\r\t\x01\x1F", R"(\b\f\n\r\t\u0001\u001F)"},
      {"caf\xC3\xA9 \xE2\x82\xAC", R"(caf\u00E9 \u20AC)"},
      {"\xEF\xBF\xBF\xF0\x90\x80\x80", R"(\uFFFF\uD800\uDC00)"},  // on both sides of the first pair
      {"\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF", R"(\uD83D\uDE00\uDBFF\uDFFF)"},
      {"\xC0\x80", R"(\u0000)"},  // the form decides, not the value
  };
  for (const auto &[text, expected] : cases) {
    const size_t length = strlen(expected);
    for (size_t size = 0; size <= length + 2; ++size) {
      std::string buffer(length + 8, '#');
      ASSERT_EQ(json_escape_unicode_copy(buffer.data(), text, size), size > length) << text << size;
      EXPECT_EQ(buffer.substr(size), std::string(buffer.size() - size, '#')) << "written behind the buffer";
      EXPECT_TRUE(size <= length || buffer.c_str() == std::string(expected)) << buffer;
    }
  }
  for (const char *bad :
       {"\xF4\x90\x80\x80", "\x80", "\xF8\x80\x80\x80", "\xE2", "\xF0\x9F\x98", "\xC3(", "\xC3\xC3"}) {
    char escaped[64];
    EXPECT_EQ(json_escape_unicode_copy(escaped, bad, sizeof(escaped)), 0) << bad;
  }
}

TEST_F(SupportTest, FilesComeWholeOrNotAtAll) {
  const std::string path = stand_in::config_path("text");
  for (const std::string &content : {std::string(), std::string("two\nlines"), std::string("a\0b", 3)}) {
    stand_in::write_file(path, content);
    char *text = load_file_to_string(path.c_str());
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text, content.size() + 1), std::string(content.c_str(), content.size() + 1));
    ast_free(text);
  }
  // A path comes from the dialplan. What would never end, or is no file, is refused at once.
  for (const char *no_file : {"/dev/zero", "/", "/does/not/exist"}) {
    EXPECT_EQ(load_file_to_string(no_file), nullptr) << no_file;
  }
}

// What `command` gives with room for 8 bytes, in a buffer that holds rubbish before the call.
std::pair<int, std::string> run(std::string command) {
  std::string buffer(12, '#');
  const int result = cli(command.data(), buffer.data(), 8);
  EXPECT_EQ(buffer.substr(8), "####") << "written behind the buffer";
  return {result, buffer.c_str()};
}

TEST_F(SupportTest, OutputOfACommandComesWholeOrNotAtAll) {
  const std::tuple<const char *, int, const char *> cases[] = {
      {"seven 7", 0, "seven 7"}, {"eight 8 ", -1, ""}, {"kept\n", 0, "kept\n"}, {"cut\033[1;", 0, "cut"}};
  for (const auto &[printed, result, text] : cases) {
    stand_in::answer_command("say it", printed);
    EXPECT_EQ(run("say it"), std::make_pair(result, std::string(text))) << printed;
  }
  for (const Fault fault : {Fault::kAllocation, Fault::kTemporaryFile}) {
    stand_in::fail(fault);
    EXPECT_EQ(run("say it"), std::make_pair(-1, std::string()));
  }
  EXPECT_TRUE(stand_in::files().empty()) << "what the host wrote to";
  // One word has its underscores replaced.
  run("show_all_calls");
  run("show my_call");
  EXPECT_EQ(stand_in::noted("cli show all calls") + stand_in::noted("cli show my_call"), 2);
}

}  // namespace
