// The helpers under the module: escapes, whole files, and commands of the host.
#include <gtest/gtest.h>

#include "host/stand_in.h"
#include "support/json_escape.h"
#include "support/text_file.h"

namespace {

struct SupportTest : testing::Test {
  void SetUp() override { stand_in::reset(); }
};

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

}  // namespace
