// How statements are found in files and logs, however they arrive and whatever is in them.
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logs/formats.h"
#include "logs/reader.h"
#include "sql/errors.h"
#include "support/case_file.h"
#include "support/run_program.h"
#include "support/surroundings.h"

namespace {

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

// All that a log tells of an execution, absent things left out: "|0.5 sent=1 user=shop".
std::string Description(const Execution& execution) {
  std::ostringstream text;
  const auto add = [&text](const char* name, const auto& value) {
    if (value) text << ' ' << name << '=' << *value;
  };
  const auto add_text = [&text](const char* name, std::string_view value) {
    if (!value.empty()) text << ' ' << name << '=' << value;
  };
  text << '|';
  if (execution.seconds) text << *execution.seconds;
  add("lock", execution.lock_seconds);
  add("sent", execution.rows_sent);
  add("examined", execution.rows_examined);
  add("affected", execution.rows_affected);
  if (execution.time) {
    text << " at=" << FormatLogTime(*execution.time);
    if (execution.time->offset_seconds == 0) text << 'Z';
  }
  add_text("user", execution.user);
  add_text("db", execution.database);
  add_text("host", execution.host);
  add_text("parameters", execution.parameters);
  add_text("id", execution.query_id);
  add_text("error", execution.error);
  if (!execution.executed) text << " prepared";
  return text.str();
}

struct Result {
  std::vector<std::string> statements;
  // Their remarks without the file's name, each on a line.
  std::string remarks;
};

Result ReadAll(StatementReader& reader, bool described) {
  Result result;
  std::uint64_t number = 1;
  bool more = true;
  for (StatementBatch batch; more; number += batch.Size()) {
    more = reader.Read(batch);
    for (const Remark& remark : reader.TakeRemarks()) {
      result.remarks += remark.text.substr(remark.text.find(": ") + 2) + '\n';
    }
    if (!more) break;
    EXPECT_EQ(batch.FirstNumber(), number);
    for (std::size_t i = 0; i < batch.Size(); ++i) {
      result.statements.emplace_back(batch[i]);
      if (described) result.statements.back() += Description(batch.ExecutionOf(i));
    }
  }
  return result;
}

// The options that a row's label names: "ID FORMAT DIALECT", the format "-" for none.
ReadOptions OptionsOf(const std::string& label) {
  std::istringstream words(label);
  std::string id;
  std::string format;
  std::string dialect;
  words >> id >> format >> dialect;
  ReadOptions options;
  if (format != "-") options.format = ReadableFormats().at(format);
  if (dialect != "-") options.dialect = Dialects().at(dialect);
  return options;
}

class Inputs : public testing::TestWithParam<CaseRow> {};

TEST_P(Inputs, AreCutAlikeHoweverTheyArrive) {
  const std::vector<std::string>& texts = GetParam().texts;
  std::vector<std::string> expected(texts.begin() + 1, texts.end());
  std::string problem;
  if (!expected.empty() && expected.back().starts_with('!')) {
    problem = expected.back().substr(1);
    expected.pop_back();
  }
  const bool log = GetParam().section != "Sql" && GetParam().section != "Recognised";
  for (const std::size_t step : {1UL, 2UL, 3UL, 50'000UL}) {
    // A kind is told by lines that have come when the first bytes are read.
    if (step <= 3 && GetParam().section == "Recognised") continue;
    Trickle trickle(texts[0], step);
    StatementReader reader({trickle.Path()}, OptionsOf(GetParam().label), &trickle);
    const Result result = ReadAll(reader, log);
    EXPECT_EQ(result.statements, expected) << step << " bytes at a time";
    if (problem.empty()) {
      EXPECT_EQ(result.remarks, "");
    } else {
      EXPECT_THAT(result.remarks, HasSubstr(problem)) << step << " bytes at a time";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, Inputs, testing::ValuesIn(ReadCases("inputs.txt")), CaseName);

// What someone may write who wants a log to take long.
TEST(HostileInputs, TakeTimeLinearInTheirLength) {
  const auto work = [](const CaseRow& family, std::size_t size) {
    std::string text = family.texts.at(0);
    while (text.size() < size) text += family.texts.at(1);
    const std::clock_t start = std::clock();
    searched = 0;
    for (const auto& [name, format] : ReadableFormats()) {
      for (const auto& [dialect_name, dialect] : Dialects()) {
        if (dialect != format->dialect && format->IsLog()) continue;
        const auto splitter = format->make_splitter({.dialect = dialect});
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

}  // namespace
}  // namespace tarn::test
