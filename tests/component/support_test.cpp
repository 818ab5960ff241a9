// The helpers under the module: queue, bounded copies, escapes, whole files, and commands of the host.
#include <gtest/gtest.h>

#include "host/stand_in.h"
#include "support/bounded_text.h"
#include "support/cli.h"
#include "support/json_escape.h"
#include "support/str_fifo.h"
#include "support/text_file.h"
#include "support/xml_escape.h"

namespace {

using stand_in::Fault;

struct SupportTest : testing::Test {
  void SetUp() override { stand_in::reset(); }
};

// Queue

std::string taken(str_fifo &fifo) {
  char *value = str_fifo_pop(&fifo);
  std::string text = value ? value : "(none)";
  ast_free(value);
  return text;
}

TEST_F(SupportTest, QueueKeepsOrderAndOwnsItsCopies) {
  str_fifo fifo;
  ASSERT_EQ(str_fifo_init(&fifo), 0);
  char text[] = "one";
  EXPECT_EQ(str_fifo_push(&fifo, text), 0);
  EXPECT_EQ(str_fifo_push(&fifo, text), 0);
  text[0] = 'X';
  EXPECT_EQ(str_fifo_push(&fifo, text), 0);
  EXPECT_EQ(str_fifo_count(&fifo), 3U);
  EXPECT_EQ(taken(fifo), "one");
  EXPECT_EQ(taken(fifo), "one");
  EXPECT_EQ(taken(fifo), "Xne");
  EXPECT_EQ(taken(fifo), "(none)");
  EXPECT_EQ(str_fifo_count(&fifo), 0U);
  EXPECT_EQ(str_fifo_empty(&fifo), 1);

  // What nobody takes goes with the queue (the leak check sees to it), and the queue can be used again.
  str_fifo_push(&fifo, "left");
  str_fifo_destroy(&fifo);
  ASSERT_EQ(str_fifo_init(&fifo), 0);
  EXPECT_EQ(str_fifo_empty(&fifo), 1);
  str_fifo_push(&fifo, "new");
  EXPECT_EQ(taken(fifo), "new");
  str_fifo_destroy(&fifo);
}

TEST_F(SupportTest, QueueIsUnchangedByAFailedPush) {
  str_fifo fifo;
  str_fifo_init(&fifo);
  str_fifo_push(&fifo, "first");
  for (int nth = 1; nth <= 2; ++nth) {
    stand_in::fail(Fault::Allocation, nth);
    EXPECT_EQ(str_fifo_push(&fifo, "lost"), -1);
    EXPECT_EQ(stand_in::stop_failing(), 1);
  }
  EXPECT_EQ(str_fifo_push(&fifo, nullptr), -1);
  EXPECT_EQ(str_fifo_count(&fifo), 1U);
  EXPECT_EQ(taken(fifo), "first");
  str_fifo_destroy(&fifo);

  EXPECT_EQ(str_fifo_init(nullptr), -1);
  EXPECT_EQ(str_fifo_push(nullptr, "x"), -1);
  EXPECT_EQ(str_fifo_pop(nullptr), nullptr);
  EXPECT_EQ(str_fifo_count(nullptr), 0U);
  str_fifo_destroy(nullptr);
}

// Bounded copies

std::string copied(const std::string &text, size_t size) {
  std::string buffer(size + 8, '#');
  copy_text(buffer.data(), size, text.c_str());
  EXPECT_EQ(buffer.substr(size), "########") << "written behind the buffer, size " << size;
  return buffer.c_str();
}

TEST_F(SupportTest, CopiesAreCutBehindAWholeCharacter) {
  // Characters of one to four bytes: a é € 😀 b. Places at which it may be cut: 0 1 3 6 10 11.
  const std::string text =
      "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"
      "b";
  const size_t length_for_room[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11, 11};
  for (size_t room = 0; room < std::size(length_for_room); ++room) {
    EXPECT_EQ(copied(text, room + 1), text.substr(0, length_for_room[room])) << "room " << room;
  }
  // No UTF-8: cut anywhere, and never shortened for the sake of a character that is none.
  EXPECT_EQ(copied("\x80\x80\x80\x80\x80\x80", 5), "\x80\x80\x80\x80");
  EXPECT_EQ(copied("ab\xC3"
                   "cd",
                   4),
            "ab\xC3");
  const std::vector<char> tails = {'\x80', '\x80', '\0'};  // on the heap: nothing in front of it is read
  char array[4];
  copy_text(array, 2, tails.data());
  EXPECT_STREQ(array, "\x80");
  copy_text(nullptr, 0, "nothing is written");
  copy_text(array, nullptr);
  EXPECT_STREQ(array, "");
}

// Escapes

struct Escape {
  const char *text;
  const char *escaped;  // null: refused
};

TEST_F(SupportTest, JsonIsAsciiAndRefusesWhatIsNotUtf8) {
  const Escape cases[] = {
      {"", ""},
      {"say \"a\\b\"/\x7F", R"(say \"a\\b\"/)"
                            "\x7F"},
      {"\b\f\n\r\t\x01\x1F", R"(\b\f\n\r\t\u0001\u001F)"},
      {"caf\xC3\xA9 \xE2\x82\xAC", R"(caf\u00E9 \u20AC)"},
      {"\xEF\xBF\xBF\xF0\x90\x80\x80", R"(\uFFFF\uD800\uDC00)"},  // on both sides of the first pair
      {"\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF", R"(\uD83D\uDE00\uDBFF\uDFFF)"},
      {"\xC0\x80", R"(\u0000)"},  // the form decides, not the value
      {"\xF4\x90\x80\x80", nullptr},
      {"\x80", nullptr},
      {"\xF8\x80\x80\x80", nullptr},
      {"\xE2", nullptr},  // the terminator ends the reading
      {"\xF0\x9F\x98", nullptr},
      {"\xC3(", nullptr},
      {"\xC3\xC3", nullptr},
  };
  for (const Escape &one : cases) {
    char escaped[64];
    ASSERT_EQ(json_escape_unicode_copy(escaped, one.text, sizeof(escaped)), one.escaped ? 1 : 0) << one.text;
    if (one.escaped) {
      EXPECT_STREQ(escaped, one.escaped);
    }
  }
}

TEST_F(SupportTest, JsonNeedsRoomForAllOfItAndATerminator) {
  const char *text = "a\"\x01\xC3\xA9\xF0\x9F\x98\x80";
  const std::string whole = R"(a\"\u0001\u00E9\uD83D\uDE00)";
  for (size_t size = 0; size <= whole.size() + 2; ++size) {
    std::string buffer(whole.size() + 10, '#');
    const bool fits = size > whole.size();
    EXPECT_EQ(json_escape_unicode_copy(buffer.data(), text, size), fits ? 1 : 0) << size;
    EXPECT_EQ(buffer.substr(size), std::string(buffer.size() - size, '#')) << "written behind the buffer";
    if (fits) {
      EXPECT_EQ(buffer.c_str(), whole);
    }
  }
}

TEST_F(SupportTest, XmlKeepsItsFiveCharactersAndDropsControls) {
  char *written = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&written, &size);
  xml_fputs_escaped(out, "<a b=\"c\" d='e'>&&</a>\t\r\n\x01\x1F\x7F\xC3\xA9");
  xml_fputs_escaped(out, nullptr);
  xml_fputs_escaped(out, "");
  xml_fputs_escaped(nullptr, "nowhere");
  fclose(out);
  EXPECT_STREQ(written, "&lt;a b=&quot;c&quot; d=&apos;e&apos;&gt;&amp;&amp;&lt;/a&gt;\t\r\n  \x7F\xC3\xA9");
  free(written);
}

// Whole files

TEST_F(SupportTest, FilesComeWholeOrNotAtAll) {
  const std::string path = stand_in::config_path("text");
  for (const std::string &content : {std::string(), std::string("two\nlines"), std::string("a\0b", 3)}) {
    stand_in::write_file(path, content);
    char *text = load_file_to_string(path.c_str());
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text, content.size() + 1), std::string(content.c_str(), content.size() + 1));
    ast_free(text);
  }
  stand_in::fail(Fault::Allocation);
  EXPECT_EQ(load_file_to_string(path.c_str()), nullptr);
  stand_in::stop_failing();
  EXPECT_EQ(load_file_to_string("/does/not/exist"), nullptr);

  // A path comes from the dialplan. What would block, or never end, or is no file, is refused at once.
  const std::string fifo = stand_in::config_path("fifo");
  ASSERT_EQ(mkfifo(stand_in::real_path(fifo).c_str(), 0600), 0);
  for (const char *special : {fifo.c_str(), "/dev/zero", "/"}) {
    EXPECT_EQ(load_file_to_string(special), nullptr) << special;
  }
  EXPECT_TRUE(stand_in::log_lines().empty());
}

// Commands of the host

struct Captured {
  int result;
  std::string text;
};

// With room for `max` bytes, in a buffer that holds rubbish before the call.
Captured run(const std::string &command, int max = 151) {
  std::string writable = command;
  std::string buffer(static_cast<size_t>(max) + 4, '#');
  const int result = cli(writable.data(), buffer.data(), max);
  EXPECT_EQ(buffer.substr(static_cast<size_t>(max)), "####") << "written behind the buffer";
  return {result, buffer.c_str()};
}

TEST_F(SupportTest, OutputOfACommandComesWholeOrNotAtAll) {
  stand_in::answer_command("say most", std::string(150, 'x'));
  EXPECT_EQ(run("say most").result, 0);
  EXPECT_EQ(run("say most").text, std::string(150, 'x'));
  stand_in::answer_command("say more", std::string(151, 'x'));
  EXPECT_EQ(run("say more").result, -1);
  EXPECT_EQ(run("say more").text, "");
  stand_in::answer_command("say nothing", "");
  EXPECT_EQ(run("say nothing").result, 0);
  EXPECT_EQ(run("say nothing").text, "");
  stand_in::answer_command("say line", "kept\n");
  EXPECT_EQ(run("say line").text, "kept\n");
  // Refused by the host, which writes why.
  stand_in::answer_command("say no", "No such command 'say no'\n", 2);
  EXPECT_EQ(run("say no").result, 0);
  EXPECT_EQ(run("say no").text, "");
}

TEST_F(SupportTest, ColoursAreStrippedAlsoWhenCutOff) {
  stand_in::answer_command("say red", "\033[1;31mred\033[0m alert");
  EXPECT_EQ(run("say red").text, "red alert");
  stand_in::answer_command("say cut", "plain\033[1;3");
  EXPECT_EQ(run("say cut").text, "plain");
}

TEST_F(SupportTest, ACommandOfOneWordHasItsUnderscoresReplaced) {
  run("show_all_calls");
  run("show my_call");
  EXPECT_EQ(stand_in::noted("cli show all calls"), 1);
  EXPECT_EQ(stand_in::noted("cli show my_call"), 1);
}

std::string capture_path;

char *tell_path(struct ast_cli_entry *entry, int command, struct ast_cli_args *arguments) {
  if (command == CLI_INIT) {
    entry->command = const_cast<char *>("tell path");
    return nullptr;
  }
  char path[256];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(arguments->fd)).c_str(), path, sizeof(path));
  capture_path.assign(path, static_cast<size_t>(std::max<ssize_t>(0, length)));
  ast_cli(arguments->fd, "told");
  return CLI_SUCCESS;
}

TEST_F(SupportTest, NoTemporaryFileIsLeftAndAFailureShowsInTheResult) {
  struct ast_cli_entry entry = AST_CLI_DEFINE(tell_path, "Tells where its output goes");
  __ast_cli_register_multiple(&entry, 1, nullptr);
  EXPECT_EQ(run("tell path").text, "told");
  EXPECT_EQ(capture_path.rfind("/tmp/cli-", 0), 0U) << capture_path;
  EXPECT_NE(access(capture_path.c_str(), F_OK), 0);

  stand_in::fail(Fault::Allocation);
  EXPECT_EQ(run("tell path").result, -1);
  EXPECT_NE(access(capture_path.c_str(), F_OK), 0);
  stand_in::stop_failing();
  ast_cli_unregister_multiple(&entry, 1);

  stand_in::fail(Fault::TemporaryFile);
  const Captured captured = run("tell path");
  EXPECT_EQ(captured.result, -1);
  EXPECT_EQ(captured.text, "");
}

}  // namespace
