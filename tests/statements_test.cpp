// Tests how the tool prints texts.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "sql/errors.h"
#include "support/surroundings.h"
#include "tarn_host/json.h"
#include "tarn_host/output.h"

namespace {

// The most bytes that one `write` takes, as with a pipe; 0 for no limit.
std::size_t most_written = 0;

}  // namespace

extern "C" ssize_t write(int fd, const void* bytes, std::size_t size) {
  if (most_written != 0) size = std::min(size, most_written);
  return syscall(SYS_write, fd, bytes, size);
}

namespace tarn::test {
namespace {

using namespace tarn::host;

TEST(Output, WritesTheRestAfterAPartialWrite) {
  const OwnedFd file = ScratchFile();
  const std::string text = std::string(100'000, 'x') + "end";
  most_written = 7;
  Output output(file.Get(), "scratch");
  output.Write(text);
  output.Flush();
  most_written = 0;
  EXPECT_EQ(Content(file.Get()), text);
}

TEST(Output, FitsLinesByCharacters) {
  EXPECT_EQ(Fitted("abcdef", 6) + Fitted("abcdefg", 6), "abcdefabc...");
  EXPECT_EQ(Fitted("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", 4), "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4");
  EXPECT_EQ(Fitted("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", 4), "\xC3\xA4...");
  EXPECT_EQ(Fitted("abc", 2) + Fitted("abc", 0), "..abc");
}

// Some of the characters are incomplete, overlong or surrogates.
TEST(Output, ShowsControlCharactersOfEveryKind) {
  const std::pair<const char*, const char*> kTexts[] = {
      {"a !~\n\t\r\x1B\x1F\x7F", "a !~\\n\\t\\r\\x1B\\x1F\\x7F"},
      {"\xC2\x80\xC2\x9F\xC2\xA0\xC3\x80\xC3\x9B", "\\xC2\\x80\\xC2\\x9F\xC2\xA0\xC3\x80\xC3\x9B"},
      {"\xE2\x82\x9B\xF0\x9F\x98\x80 \x9B \xC0\x9B",
       "\xE2\x82\x9B\xF0\x9F\x98\x80 \\x9B \xC0\\x9B"},
      {"\xE2\x82\x1B \xE0\x82\x9B \xED\xA0\x80", "\xE2\\x82\\x1B \xE0\\x82\\x9B \xED\xA0\\x80"},
      {"\xF4\x90\x80\x80 \xF8\x88\x80\x80\x9B", "\xF4\\x90\\x80\\x80 \xF8\\x88\\x80\\x80\\x9B"},
      {"\xE2\x82 \xF0\x9F\x98", "\xE2\\x82 \xF0\\x9F\\x98"},
      {"\xC2 \xF4\x8F\xBF\xBF", "\xC2 \xF4\x8F\xBF\xBF"}};
  for (const auto& [text, shown] : kTexts) EXPECT_EQ(OneLine(text), shown);
  EXPECT_EQ(Printable("a\n\t\r\x1B") + OneLine("\xE2\x82"), "a\n\t\\r\\x1B\xE2\\x82");
  EXPECT_EQ(JsonText("\x1B\x7F\xC2\x80\xC2\x9F\xC2\xA0\xC3\x80\x9B\xE2\x82\x9B"),
            "\"\\u001b\\u007f\\u0080\\u009f\xC2\xA0\xC3\x80\xEF\xBF\xBD\xE2\x82\x9B\"");
}

}  // namespace
}  // namespace tarn::test
