// How tarn_host finds statements in its input and what it makes of them, piece by piece.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logs/log_splitter.h"
#include "logs/reader.h"
#include "logs/sql_splitter.h"
#include "shapes/shape_rules.h"
#include "sql/errors.h"
#include "support/case_file.h"
#include "support/run_program.h"
#include "support/surroundings.h"
#include "tarn_host/json.h"
#include "tarn_host/output.h"

namespace {

// The most that `write` takes at once, as a pipe might; 0 for no limit.
std::size_t most_written = 0;

// How many bytes searches have looked at.
std::size_t searched = 0;

}  // namespace

// What std::string_view looks for bytes with, under the C library's name.
extern "C" const void* CountingSearch(const void* bytes, int wanted,
                                      std::size_t size) asm("memchr");
extern "C" const void* CountingSearch(const void* bytes, int wanted, std::size_t size) {
  const auto* const begin = static_cast<const unsigned char*>(bytes);
  const auto* const end = begin + size;
  const auto* at = begin;
  while (at != end && *at != static_cast<unsigned char>(wanted)) ++at;
  searched += static_cast<std::size_t>(at - begin);
  return at == end ? nullptr : at;
}

extern "C" ssize_t write(int fd, const void* bytes, std::size_t size) {
  if (most_written != 0) size = std::min(size, most_written);
  return syscall(SYS_write, fd, bytes, size);
}

namespace tarn::test {
namespace {

using namespace tarn::host;
using ::testing::HasSubstr;

// Hands out `content` at most `step` bytes at a time.
class Trickle final : public InputWaiter {
 public:
  Trickle(const std::string& content, std::size_t step) : content_(content), step_(step) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    read_end_ = std::make_unique<OwnedFd>(ends[0]);
    write_end_ = std::make_unique<OwnedFd>(ends[1]);
  }

  std::string Path() const { return "/dev/fd/" + std::to_string(read_end_->Get()); }

  bool Wait(int) override {
    const std::size_t size = std::min(step_, content_.size() - at_);
    if (size == 0) {
      write_end_->Close();
    } else if (::write(write_end_->Get(), content_.data() + at_, size) < 0) {
      return false;
    }
    at_ += size;
    return true;
  }

 private:
  const std::string content_;
  const std::size_t step_;
  std::size_t at_ = 0;
  std::unique_ptr<OwnedFd> read_end_;
  std::unique_ptr<OwnedFd> write_end_;
};

class Inputs : public testing::TestWithParam<CaseRow> {};

TEST_P(Inputs, AreCutAlikeHoweverTheyArrive) {
  std::istringstream words(GetParam().label);
  std::string id;
  std::string format;
  std::string dialect;
  words >> id >> format >> dialect;
  const std::vector<std::string>& texts = GetParam().texts;
  std::vector<std::string> expected(texts.begin() + 1, texts.end());
  std::string problem;
  if (!expected.empty() && expected.back().starts_with('!')) {
    problem = expected.back().substr(1);
    expected.pop_back();
  }
  for (const std::size_t step : {1UL, 2UL, 3UL, 50'000UL}) {
    Trickle trickle(texts[0], step);
    StatementReader reader(trickle.Path(), StatementFormats().at(format), Dialects().at(dialect),
                           &trickle);
    std::vector<std::string> found;
    std::uint64_t number = 1;
    for (StatementBatch batch; reader.Read(batch); number += batch.Size()) {
      EXPECT_EQ(batch.FirstNumber(), number);
      for (std::size_t i = 0; i < batch.Size(); ++i) {
        std::ostringstream text;
        text << batch[i];
        const Execution& execution = batch.ExecutionOf(i);
        if (GetParam().section == "SlowLog" || GetParam().section == "CsvLog") {
          (execution.seconds ? text << '|' << *execution.seconds : text << "|-")
              << ' ' << execution.rows_sent.value_or(0) << ' '
              << execution.rows_examined.value_or(0);
        }
        found.push_back(text.str());
      }
    }
    EXPECT_EQ(found, expected) << step << " bytes at a time";
    if (problem.empty()) {
      EXPECT_EQ(reader.Problem(), "");
    } else if (step > 3 || GetParam().section != "Recognised") {
      EXPECT_THAT(reader.Problem(), HasSubstr(problem)) << step << " bytes at a time";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, Inputs, testing::ValuesIn(ReadCases("inputs.txt")), CaseName);

// What someone may write who wants a log to take long.
TEST(Statements, TakeTimeLinearInTheirLength) {
  const auto work = [](const CaseRow& family, std::size_t size) {
    std::string text = family.texts.at(0);
    while (text.size() < size) text += family.texts.at(1);
    const std::clock_t start = std::clock();
    searched = 0;
    for (const auto& [name, dialect] : Dialects()) {
      ShapeMaker({.dialect = dialect}).MakeShape(text);
      for (const auto& splitter :
           {MakeSqlSplitter(dialect), MakeSlowLogSplitter(), MakeGeneralLogSplitter(),
            MakeCsvLogSplitter(), MakeSeparatorSplitter('\0')}) {
        constexpr std::size_t kPiece = 100;
        std::size_t done = 0;
        Found found;
        for (std::size_t end = 0; end < text.size();) {
          end = std::min(text.size(), end + kPiece);
          done += splitter->Split(std::string_view(text).substr(done, end - done),
                                  end == text.size(), found);
        }
      }
    }
    return std::pair(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, searched);
  };
  constexpr std::size_t kSize = 40'000;
  constexpr std::size_t kGrowth = 16;
  for (const CaseRow& family : ReadCases("hostile_inputs.txt")) {
    const auto [small_seconds, small_searched] = work(family, kSize);
    const auto [seconds, all_searched] = work(family, kGrowth * kSize);
    SCOPED_TRACE(family.texts[0] + "..." + family.texts[1]);
    // The quotients are 16 if linear and 256 if quadratic. Searches are too fast for the clock to
    // tell; of the rest, what is over at once proves nothing.
    EXPECT_LT(all_searched, 2 * kGrowth * small_searched);
    EXPECT_LT(seconds, 5 * kGrowth * std::max(small_seconds, 0.002));
  }
}

TEST(Output, WritesWhatIsLeftOfAPartialWrite) {
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
  EXPECT_EQ(OneLine("a\n\t\r\x1B\x7F"), "a\\n\\t\\r\\x1B\\x7F");
  EXPECT_EQ(Printable("a\n\t\r\x1B"), "a\n\t\\r\\x1B");
  EXPECT_EQ(OneLine("\xC2\x80\xC2\x9F\xC2\xA0\xC3\x80"), "\\xC2\\x80\\xC2\\x9F\xC2\xA0\xC3\x80");
  EXPECT_EQ(OneLine("\xC2"), "\xC2");
  // Part of a character, alone, and after the rest of one that is cut or in an overlong form.
  EXPECT_EQ(OneLine("\xE2\x82\x9B\xF0\x9F\x98\x80"), "\xE2\x82\x9B\xF0\x9F\x98\x80");
  EXPECT_EQ(OneLine("\x9B"), "\\x9B");
  EXPECT_EQ(OneLine("\xC3\x9B\x9B"), "\xC3\x9B\\x9B");
  EXPECT_EQ(OneLine("\xE2\x82\x1B"), "\xE2\\x82\\x1B");
  EXPECT_EQ(OneLine("\xE0\x82\x9B"), "\xE0\\x82\\x9B");
  EXPECT_EQ(OneLine("\xED\xA0\x80"), "\xED\xA0\\x80");
  EXPECT_EQ(OneLine("\xF4\x90\x80\x80\xE2\x82"), "\xF4\\x90\\x80\\x80\xE2\\x82");
}

TEST(JsonText, EscapesWhatATerminalObeys) {
  EXPECT_EQ(JsonText("\x1B\x7F\xC2\x80\xC2\x9F\xC2\xA0\xC3\x80\x9B\xE2\x82\x9B"),
            "\"\\u001b\\u007f\\u0080\\u009f\xC2\xA0\xC3\x80\xEF\xBF\xBD\xE2\x82\x9B\"");
}

}  // namespace
}  // namespace tarn::test
