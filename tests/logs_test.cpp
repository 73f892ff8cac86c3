// Tests how statements are found in files and logs, whatever pieces they arrive in.
#include <archive.h>
#include <archive_entry.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logs/formats.h"
#include "logs/input.h"
#include "logs/reader.h"
#include "sql/errors.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/surroundings.h"

// The number of bytes that searches have compared: std::string_view::find calls memchr.
static std::size_t searched = 0;
extern "C" const void* CountingSearch(const void* bytes, int wanted,
                                      std::size_t size) asm("memchr");
extern "C" const void* CountingSearch(const void* bytes, int wanted, std::size_t size) {
  const auto* at = static_cast<const unsigned char*>(bytes);
  for (; size > 0 && *at != static_cast<unsigned char>(wanted); --size, ++at) ++searched;
  return size == 0 ? nullptr : at;
}

namespace tarn::test {
namespace {

using namespace tarn::host;
using namespace ::testing;

// Writes the files log, log2, log3 and so on, at most `step` bytes before each read.
class Trickle final : public InputWaiter {
 public:
  Trickle(std::vector<std::string> contents, std::size_t step)
      : contents_(std::move(contents)), step_(step) {
    for (std::size_t i = 0; i < contents_.size(); ++i) {
      files_.push_back(folder_.Write("log" + (i == 0 ? "" : std::to_string(i + 1)), ""));
    }
  }

  const std::vector<std::string>& Files() const { return files_; }

  bool Wait(int) override {
    if (contents_[file_].empty() && file_ + 1 < files_.size()) ++file_;
    std::ofstream(files_[file_], std::ios::app) << contents_[file_].substr(0, step_);
    contents_[file_].erase(0, step_);
    return true;
  }

 private:
  const TemporaryFolder folder_;
  std::vector<std::string> contents_;
  const std::size_t step_;
  std::vector<std::string> files_;
  std::size_t file_ = 0;
};

// The details of an execution that the log states, for example "|0.5 sent=1 user=shop".
std::string Description(const Execution& execution) {
  std::ostringstream text;
  if (execution.seconds) text << *execution.seconds;
  const auto add = [&text](const char* name, const auto& value) {
    if (value) text << ' ' << name << '=' << *value;
  };
  add("lock", execution.lock_seconds);
  add("sent", execution.rows_sent);
  add("examined", execution.rows_examined);
  add("affected", execution.rows_affected);
  if (execution.time) text << " at=" << FormatLogTime(*execution.time);
  for (const auto& [name, value] : {std::pair("user", execution.user),
                                    {"db", execution.database},
                                    {"host", execution.host},
                                    {"parameters", execution.parameters},
                                    {"id", execution.query_id},
                                    {"error", execution.error}}) {
    if (!value.empty()) text << ' ' << name << '=' << value;
  }
  if (!execution.executed) text << " prepared";
  return text.str().empty() ? "" : '|' + text.str();
}

struct Result {
  // The texts alone, and with the details of their executions.
  std::vector<std::string> texts;
  std::vector<std::string> statements;
  // The remarks and the errors, one in each line, without folders and without the name "log".
  std::string remarks;
  std::optional<LogTime> first_time;
  std::optional<LogTime> last_time;
};

Result ReadAll(StatementReader& reader) {
  Result result;
  const auto add_remark = [&result](const std::string& text) {
    const std::string name = text.substr(0, text.find(": "));
    const std::string remark = text.substr(name.rfind('/') + 1) + '\n';
    result.remarks += remark.starts_with("log: ") ? remark.substr(5) : remark;
  };
  std::size_t number = 1;
  for (bool more = true; more;) {
    StatementBatch batch;
    try {
      more = reader.Read(batch);
    } catch (const InputError& error) {
      add_remark(error.what());
      continue;
    }
    for (const Remark& remark : reader.TakeRemarks()) add_remark(remark.text);
    EXPECT_TRUE(!more || batch.FirstNumber() == number);
    number += batch.Size();
    WidenSpan(result.first_time, result.last_time, batch.FirstTime());
    WidenSpan(result.first_time, result.last_time, batch.LastTime());
    for (std::size_t i = 0; i < batch.Size(); ++i) {
      result.texts.emplace_back(batch[i]);
      result.statements.push_back(result.texts.back() + Description(batch.ExecutionOf(i)));
    }
  }
  return result;
}

// Reads files of these contents, at most `step` bytes at a time.
Result Read(const std::vector<std::string>& contents, const ReadOptions& options = {},
            std::size_t step = 1'000'000) {
  Trickle trickle(contents, step);
  StatementReader reader(trickle.Files(), options, &trickle);
  return ReadAll(reader);
}

// An entry of the named format that holds `statement`.
std::string Entry(const std::string& format, const std::string& statement) {
  const std::string time = "2026-11-24 09:05:00.123 UTC";
  static const std::map<std::string, std::pair<std::string, std::string>> kAround{
      {"slowlog", {"# Query_time: 1  Lock_time: 0\n", ";\n"}},
      {"general", {"261124  9:05:00\t    8 Query\t", "\n"}},
      {"pglog", {time + " [7] LOG:  statement: ", "\n"}},
      {"csvlog", {time + ",\"a\",\"d\",1,,s1,1,,,,0,LOG,00000,\"statement: ", "\",,,,,,,,,\n"}},
      {"jsonlog",
       {"{\"timestamp\":\"" + time + R"(","error_severity":"LOG","message":"statement: )",
        "\"}\n"}},
      {"sql", {"", ";"}},
      {"lines", {"", "\n"}},
      {"nul", {"", std::string(1, '\0')}}};
  return kAround.at(format).first + statement + kAround.at(format).second;
}

// The rows of inputs.txt, with the texts in the place of their names such as "{query}".
std::vector<CaseRow> Rows() {
  std::vector<CaseRow> rows;
  std::map<std::string, std::string> names;
  for (CaseRow& row : ReadCases("inputs.txt")) {
    for (std::string& text : row.texts) {
      for (const auto& [name, replacement] : names) {
        for (std::size_t at = text.find(name); at < text.size(); at = text.find(name, at)) {
          text.replace(at, name.size(), replacement);
        }
      }
    }
    if (row.label.starts_with('{')) {
      std::istringstream words(row.label);
      std::string name;
      for (const std::string& text : row.texts) words >> name, names[name] = text;
    } else {
      rows.push_back(std::move(row));
    }
  }
  return rows;
}

class Inputs : public TestWithParam<CaseRow> {
 protected:
  void SetUp() override {
    std::vector<std::string> texts = GetParam().texts;
    std::istringstream words = GetParam().Words();
    std::string format, dialect;
    if (!(words >> format)) format = GetParam().section;
    if (ReadableFormats().contains(format)) options_.format = ReadableFormats().at(format);
    if (words >> dialect && dialect != "-") options_.dialect = Dialects().at(dialect);
    if (std::size_t limit = 0; words >> limit) options_.max_statement = limit;
    if (GetParam().section == "Prefixes") {
      options_.prefix = texts[0];
      texts.erase(texts.begin());
    }
    std::istringstream files(GetParam().texts.at(0).empty() ? "\x1C" : texts[0]);
    for (std::string file; std::getline(files, file, '\x1C');) files_.push_back(file);
    expected_.assign(texts.begin() + 1, texts.end());
    if (!expected_.empty() && expected_.back().starts_with('!')) {
      problem_ = expected_.back().substr(1);
      expected_.pop_back();
    }
  }

  // A log has the same statements wherever it is rotated. Its beginning has all statements that are
  // whole, and perhaps a part of one, which is reported.
  void ExpectTheSameIfCut(const std::vector<std::string>& all) const {
    const std::string& log = files_[0];
    // Only the next entry shows whether "use" is the statement itself.
    const bool is_clear = problem_.empty() && GetParam().Id() != "slowlog_UseAlone";
    // In other formats a cut at the end of a line may not show that more lines would follow.
    const bool has_records = GetParam().section == "csvlog" || GetParam().section == "jsonlog";
    std::ptrdiff_t kept = 0;
    for (std::size_t cut = 0; cut <= log.size(); cut += 1 + log.size() / 25) {
      SCOPED_TRACE("cut after " + std::to_string(cut) + " bytes");
      const Result rotated = Read({log.substr(0, cut), log.substr(cut)}, options_);
      EXPECT_EQ(rotated.statements, expected_);
      if (!is_clear) continue;
      EXPECT_THAT(rotated.remarks, Not(HasSubstr("no statement")));
      const Result begun = Read({log.substr(0, cut)}, options_);
      const auto whole = std::count_if(
          begun.texts.begin(), begun.texts.end(),
          [&all](const auto& text) { return std::count(all.begin(), all.end(), text) > 0; });
      const std::ptrdiff_t parts = std::ssize(begun.texts) - whole;
      EXPECT_TRUE(whole >= kept && parts <= 1);
      const bool at_line_end = cut > 0 && log[cut - 1] == '\n';
      if (parts == 1 && (has_records || !at_line_end)) {
        EXPECT_THAT(begun.remarks, HasSubstr("ends within"));
      }
      if (at_line_end) kept = whole;
    }
  }

  ReadOptions options_;
  std::vector<std::string> files_;
  std::vector<std::string> expected_;
  std::string problem_;
};

TEST_P(Inputs, AreCutAlikeHoweverTheyArrive) {
  const std::string& section = GetParam().section;
  const bool recognised = section == "Recognised";
  // A log is recognised by the lines in the first bytes read, so they must arrive together unless
  // only the first line decides.
  const bool together = files_.size() > 1 || !MayBecomeALog(files_[0].substr(0, 1));
  const Result whole = Read(files_, options_);
  EXPECT_EQ(whole.remarks.empty(), problem_.empty()) << whole.remarks;
  const bool exact = problem_.ends_with('\n');
  EXPECT_EQ(exact ? whole.remarks : whole.remarks.substr(0, problem_.size()), problem_);
  for (const std::size_t step : {50'000UL, 1UL, 2UL, 3UL}) {
    if (step <= 3 && recognised && together) continue;
    SCOPED_TRACE(std::to_string(step) + " bytes at a time");
    const Result result = Read(files_, options_, step);
    EXPECT_EQ(recognised ? result.texts : result.statements, expected_);
    EXPECT_EQ(result.remarks, whole.remarks);
  }

  if (!ReadableFormats().contains(section)) return;
  ExpectTheSameIfCut(whole.texts);
  // Nothing is left for the next entry. Only a statement that has ended shows that a header of a
  // slow log is none of its lines.
  if (section == "slowlog" && problem_.starts_with("ends")) return;
  // In a slow log the time and the database of "use" are those of the last entry that has them.
  const std::string next = (section == "slowlog" ? "Tcp port: 1\n" : "") + Entry(section, "next");
  EXPECT_THAT(Read({files_[0] + '\n' + next}, options_).statements,
              Contains(Read({next}, options_).statements.at(0)));
}

INSTANTIATE_TEST_SUITE_P(Cases, Inputs, ValuesIn(Rows()), CaseName);

std::string Repeated(const std::string& unit, std::size_t size, std::string text = "") {
  while (text.size() < size) text += unit;
  return text;
}

TEST(Reader, LeavesOutStatementsThatAreTooLong) {
  ReadOptions options;
  options.max_statement = 1000;
  for (const auto& [name, format] : ReadableFormats()) {
    options.format = format;
    options.dialect = name == "sql" ? Dialect::kPostgres : format->dialect;
    // The last one is a quote whose prefix decides where it ends.
    for (const std::string unit : {"x", "x ", "\"\"", "e'\\';'"}) {
      if (name == "jsonlog" && unit[1] > ' ') continue;
      const std::string longer = Repeated(unit, 200'000, "y ") + 'y';
      const std::string log = Entry(name, "a") + Entry(name, longer) + Entry(name, "b") +
                              Entry(name, Repeated("z", 1200, "$")) + Entry(name, "c");
      for (const std::size_t step : {97UL, 50'000UL, 1'000'000UL}) {
        SCOPED_TRACE(name + ' ' + unit + ' ' + std::to_string(step));
        const Result result = Read({log}, options, step);
        EXPECT_THAT(result.texts, ElementsAre("a", "b", "c"));
        EXPECT_THAT(result.remarks, StartsWith("2 statements are longer than 1000 bytes and left"));
      }
    }
  }
}

// The most bytes that reading takes at one time.
std::size_t PeakOfReading(const std::string& text, const ReadOptions& options = {}) {
  const TemporaryFolder folder;
  StatementReader reader({folder.Write("log", text)}, options);
  const PeakMemory peak;
  for (StatementBatch batch; reader.Read(batch);) continue;
  return peak.Bytes();
}

TEST(Reader, TakesNoMoreThanSomeBytesAByte) {
  constexpr std::size_t kSize = 2'000'000;
  ReadOptions options;
  for (const auto& [name, format] : ReadableFormats()) {
    options.format = format;
    for (const char* unit : {"a;", ",", "\",", "a\n", "[", "\n\t", "$1 "}) {
      EXPECT_LT(PeakOfReading(Entry(name, Repeated(unit, kSize)), options), 6 * kSize + 40'000'000)
          << name << ' ' << unit;
    }
  }
  // Of a statement that is too long only a part is kept.
  options.max_statement = kSize / 20;
  for (const char* const name : {"sql", "slowlog", "general", "csvlog", "jsonlog"}) {
    options.format = ReadableFormats().at(name);
    EXPECT_LT(PeakOfReading(Entry(name, Repeated("a\n", kSize)), options), kSize) << name;
  }
  for (const char* line : {"-- a comment\n", "261124  9:05:00\t    8 Quit\t\n"}) {
    EXPECT_LT(PeakOfReading(Repeated(line, 2 * kSize)), kSize) << line;
  }
}

TEST(Reader, TellsTheSpanOfAllEntries) {
  const Result result =
      Read({"2026-11-24T10:00:00.5Z\t1 Connect\ta\n2026-11-24T10:00:00+02:00\t1 Query\ta\n"
            "2026-11-24T12:00:00.25+02:00\t1 Query\tb\n2026-11-24T09:00:00Z\t1 Quit\t\n"});
  EXPECT_EQ(FormatLogTime(*result.first_time), "2026-11-24 10:00:00+02:00");
  EXPECT_EQ(FormatLogTime(*result.last_time), "2026-11-24 10:00:00Z");
}

TEST(Reader, LetsFewStatementsWaitForTheirDuration) {
  const std::string line = "2026-11-24 09:05:00.123 UTC [";
  std::string log;
  for (int i = 0; i <= 10'000; ++i) log += line + std::to_string(i) + "] LOG:  statement: a\n";
  const Result result = Read({log + line + "0] LOG:  duration: 500 ms\n"});
  EXPECT_EQ(result.statements, std::vector<std::string>(10'001, "a| at=2026-11-24 09:05:00Z"));
}

TEST(GeneralLog, EndsAStatementAtEachCommand) {
  std::istringstream commands(
      "Binlog Dump|Binlog Dump GTID|Bulk_execute|Change user|Change_user|Close stmt|Connect|"
      "Connect Out|Create DB|Daemon|Debug|Delayed insert|Drop DB|Error|Fetch|Field List|Init DB|"
      "Kill|Long Data|Ping|Prepare|Processlist|Quit|Refresh|Register Replica|Register Slave|"
      "Reset Connection|Reset connection|Reset stmt|Set option|Shutdown|Slave_IO|Slave_SQL|"
      "Slave_worker|Sleep|Statistics|Subscribe Group Replication Stream|Table Dump|Time|"
      "Unimpl get tid|clone");
  for (std::string command; std::getline(commands, command, '|');) {
    const std::string log = Entry("general", "select 1") + "\t\t    1 " + command + "\tx\n";
    EXPECT_THAT(Read({log}).texts, ElementsAre("select 1")) << command;
  }
}

TEST(GeneralLog, KeepsTheFirstStatementsOfALongPacket) {
  const std::string packet = Entry("general", Repeated("a;", 2000));
  const Result result = Read({packet + Entry("general", Repeated("a;", 2002))});
  EXPECT_EQ(result.texts.size(), 2000);
  EXPECT_THAT(result.remarks, HasSubstr("1 entry is damaged"));
}

TEST(Reader, GoesOnAfterAFileThatCantBeRead) {
  const TemporaryFolder folder;
  const std::string log = Entry("slowlog", "select 1") + Entry("slowlog", "select\n2");
  const std::string begun = folder.Write("log.1", log.substr(0, log.size() - 4));
  const std::string rest = folder.Write("log", log.substr(log.size() - 4));
  StatementReader reader({begun, "/no/such", "/", rest}, {});
  const Result result = ReadAll(reader);
  EXPECT_THAT(result.texts, ElementsAre("select 1", "select\n2"));
  EXPECT_THAT(result.remarks, HasSubstr("such: No such file or directory\n: Is a directory\n"));
  EXPECT_EQ(reader.BytesRead(), log.size());
  EXPECT_EQ(reader.PlaceOf(1), begun + ": statement 1");
  EXPECT_EQ(reader.PlaceOf(2), rest + ": statement 1");
}

TEST(Reader, BeginsAnewWithSql) {
  const TemporaryFolder folder;
  ReadOptions options;
  for (const char* const name : {"csvlog", "jsonlog", "pglog"}) {
    const std::string log = folder.Write("log", Entry(name, "a"));
    StatementReader reader({log, folder.Write("a.sql.1", "b")}, options);
    for (const Dialect dialect : {Dialect::kPostgres, Dialect::kMysql}) {
      StatementBatch batch;
      EXPECT_TRUE(reader.Read(batch) && batch.Size() == 1);
      EXPECT_EQ(batch.SqlDialect(), options.dialect.value_or(dialect)) << name;
    }
    if (name[0] == 'j') options.dialect = Dialect::kAnsi;
  }
}

std::string Packed(const std::string& text, int (*add_filter)(archive*)) {
  std::string packed(1'000'000, '\0');
  std::size_t size = 0;
  archive* const writer = archive_write_new();
  add_filter(writer);
  archive_write_set_format_raw(writer);
  archive_write_set_bytes_in_last_block(writer, 1);
  EXPECT_EQ(archive_write_open_memory(writer, packed.data(), packed.size(), &size), ARCHIVE_OK);
  archive_entry* const entry = archive_entry_new();
  archive_entry_set_filetype(entry, AE_IFREG);
  archive_write_header(writer, entry);
  archive_write_data(writer, text.data(), text.size());
  archive_entry_free(entry);
  archive_write_close(writer);
  archive_write_free(writer);
  return packed.substr(0, size);
}

TEST(PackedInput, IsUnpackedWholeOrReported) {
  const std::string text = Entry("slowlog", "select 1");
  for (const auto add_filter :
       {archive_write_add_filter_gzip, archive_write_add_filter_bzip2, archive_write_add_filter_xz,
        archive_write_add_filter_zstd, archive_write_add_filter_lz4}) {
    const std::string packed = Packed(text, add_filter);
    for (const std::size_t step : {1UL, 50'000UL}) {
      EXPECT_THAT(Read({packed + packed}, {}, step).texts, ElementsAre("select 1", "select 1"));
    }
    std::size_t refused = 0;
    for (std::size_t size = 6; size < packed.size(); ++size) {
      const std::string remarks = Read({packed.substr(0, size)}).remarks;
      refused += remarks.find("packed data: ") < remarks.size() ? 1 : 0;
    }
    // Some packers end with bytes that unpacking does not need.
    EXPECT_GE(refused, packed.size() - 6 - 16);
  }
  EXPECT_THAT(Read({Packed("", archive_write_add_filter_gzip)}).texts, IsEmpty());
}

TEST(PackedInput, LosesOnlyItsLastStatements) {
  std::string numbers;
  for (int i = 0; i < 40'000; ++i) numbers += std::to_string(i * 7919 % 100'003) + ' ';
  std::string text;
  for (std::size_t i = 0; i < 10'000; ++i) text += Entry("slowlog", numbers.substr(20 * i, 20));
  const std::string packed = Packed(text, archive_write_add_filter_gzip);
  const std::string longer = Packed(Entry("slowlog", numbers), archive_write_add_filter_gzip);
  const std::string cut = packed.substr(0, packed.size() / 2);
  const Result result = Read({cut, longer.substr(0, longer.size() - 9), Entry("slowlog", "next")});
  // The unpacker keeps at most 64 KiB to itself.
  EXPECT_GT(result.texts.size(), 3'300);
  EXPECT_EQ(result.texts.back(), "next");
  EXPECT_EQ(std::count(result.remarks.begin(), result.remarks.end(), '\n'), 3) << result.remarks;

  struct : InputWaiter {
    bool Wait(int) override { return waits++ == 0 ? true : throw InputError("gone"); }
    int waits = 0;
  } waiter;
  const TemporaryFolder folder;
  StatementReader reader({folder.Write("cut", cut)}, {}, &waiter);
  EXPECT_THAT(ReadAll(reader).remarks, HasSubstr("gone"));
}

// Inputs of an attacker who wants a log to take long.
TEST(HostileInputs, TakeTimeLinearInTheirLength) {
  const auto work = [](const std::string& text) {
    const std::clock_t start = std::clock();
    searched = 0;
    for (const auto& [name, format] : ReadableFormats()) {
      for (const auto& [dialect_name, dialect] : Dialects()) {
        if (dialect != format->dialect && format->IsLog()) continue;
        const auto splitter = format->make_splitter({.dialect = dialect});
        std::size_t done = 0;
        Found found;
        for (std::size_t end = 0; end < text.size();) {
          end = std::min(text.size(), end + 100);
          done += splitter->Split(std::string_view(text).substr(done, end - done),
                                  end == text.size(), found);
        }
      }
    }
    return std::pair(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, searched);
  };
  constexpr std::size_t kSize = 40'000;
  constexpr std::size_t kGrowth = 16;
  for (const CaseRow& row : ReadCases("hostile_inputs.txt")) {
    for (std::size_t i = 0; i < row.texts.size(); i += 2) {
      const std::string &begin = row.texts[i], &unit = row.texts[i + 1];
      SCOPED_TRACE(begin + "..." + unit);
      const auto [small_seconds, small_searched] = work(Repeated(unit, kSize, begin));
      const auto [seconds, all_searched] = work(Repeated(unit, kGrowth * kSize, begin));
      // The quotients are 16 if the work is linear and 256 if it is quadratic. Searches are too
      // fast for the clock, so their bytes are counted. Other times below 2 ms prove nothing.
      EXPECT_LT(all_searched, 2 * kGrowth * small_searched);
      EXPECT_LT(seconds, 5 * kGrowth * std::max(small_seconds, 0.002));
    }
  }
}

}  // namespace
}  // namespace tarn::test
