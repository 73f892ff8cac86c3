// Tests how tarn_host folds statements, counts and prints.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sql/errors.h"
#include "support/case_file.h"
#include "support/run_program.h"
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
  const std::string text(100'000, 'x');
  most_written = 7;
  Output output(file.Get(), "scratch");
  output.Write(text + "end");
  output.Flush();
  most_written = 0;
  EXPECT_EQ(Content(file.Get()), text + "end");
}

TEST(Output, FitsLinesByCharacters) {
  EXPECT_EQ(Fitted("abcdef", 6), "abcdef");
  EXPECT_EQ(Fitted("abcdefg", 6), "abc...");
  EXPECT_EQ(Fitted("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", 4), "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4");
  EXPECT_EQ(Fitted("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", 4), "\xC3\xA4...");
  EXPECT_EQ(Fitted("abc", 2), "..");
  EXPECT_EQ(Fitted("abc", 0), "abc");
}

TEST(OneLine, ShowsControlCharactersOfEveryKind) {
  EXPECT_EQ(OneLine("a !~\n\t\r\x1B\x1F\x7F"), "a !~\\n\\t\\r\\x1B\\x1F\\x7F");
  EXPECT_EQ(Printable("a\n\t\r\x1B"), "a\n\t\\r\\x1B");
  EXPECT_EQ(OneLine("\xC2\x80\xC2\x9F\xC2\xA0\xC3\x80"), "\\xC2\\x80\\xC2\\x9F\xC2\xA0\xC3\x80");
  EXPECT_EQ(OneLine("\xC2"), "\xC2");
  // Incomplete characters: a part alone, a part after the rest of a cut one, and an overlong form.
  EXPECT_EQ(OneLine("\xE2\x82\x9B\xF0\x9F\x98\x80"), "\xE2\x82\x9B\xF0\x9F\x98\x80");
  EXPECT_EQ(OneLine("\x9B"), "\\x9B");
  EXPECT_EQ(OneLine("\xC3\x9B\x9B"), "\xC3\x9B\\x9B");
  EXPECT_EQ(OneLine("\xE2\x82\x1B"), "\xE2\\x82\\x1B");
  EXPECT_EQ(OneLine("\xE0\x82\x9B"), "\xE0\\x82\\x9B");
  EXPECT_EQ(OneLine("\xED\xA0\x80"), "\xED\xA0\\x80");
  EXPECT_EQ(OneLine("\xF4\x90\x80\x80\xE2\x82"), "\xF4\\x90\\x80\\x80\xE2\\x82");
}

TEST(JsonText, EscapesControlCharacters) {
  EXPECT_EQ(JsonText("\x1B\x7F\xC2\x80\xC2\x9F\xC2\xA0\xC3\x80\x9B\xE2\x82\x9B"),
            "\"\\u001b\\u007f\\u0080\\u009f\xC2\xA0\xC3\x80\xEF\xBF\xBD\xE2\x82\x9B\"");
}

}  // namespace
}  // namespace tarn::test
