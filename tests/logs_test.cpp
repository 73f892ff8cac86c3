// Tests how statements are found in files and logs, whatever the pieces they arrive in and whatever
// their content.
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logs/formats.h"
#include "logs/input.h"
#include "logs/reader.h"
#include "sql/errors.h"
#include "sql/text.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/run_program.h"
#include "support/surroundings.h"

namespace {

// The number of bytes that searches have compared.
std::size_t searched = 0;

}  // namespace

// Counts the work of std::string_view::find, which calls memchr.
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
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

// Writes `content` to a pipe, at most `step` bytes at a time.
class Trickle final : public InputWaiter {
 public:
  Trickle(const std::string& content, std::size_t step) : content_(content), step_(step) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    read_end_ = std::make_unique<OwnedFd>(ends[0]);
    write_end_ = std::make_unique<OwnedFd>(ends[1]);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
  }

  std::string Path() const { return "/dev/fd/" + std::to_string(read_end_->Get()); }

  bool Wait(int) override {
    const std::size_t size = std::min(step_, content_.size() - at_);
    if (size == 0) {
      write_end_->Close();
      return true;
    }
    // Writes only a part if the pipe is full.
    const ssize_t written = ::write(write_end_->Get(), content_.data() + at_, size);
    at_ += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    return written > 0 || errno == EAGAIN;
  }

 private:
  const std::string content_;
  const std::size_t step_;
  std::size_t at_ = 0;
  std::unique_ptr<OwnedFd> read_end_;
  std::unique_ptr<OwnedFd> write_end_;
};

// The details of an execution that the log states, for example "|0.5 sent=1 user=shop".
std::string Description(const Execution& execution) {
  std::ostringstream text;
  const auto add = [&text](const char* name, const auto& value) {
    if (value) text << ' ' << name << '=' << *value;
  };
  const auto add_text = [&text](const char* name, std::string_view value) {
    if (!value.empty()) text << ' ' << name << '=' << value;
  };
  if (execution.seconds) text << *execution.seconds;
  add("lock", execution.lock_seconds);
  add("sent", execution.rows_sent);
  add("examined", execution.rows_examined);
  add("affected", execution.rows_affected);
  if (execution.time) text << " at=" << FormatLogTime(*execution.time);
  add_text("user", execution.user);
  add_text("db", execution.database);
  add_text("host", execution.host);
  add_text("parameters", execution.parameters);
  add_text("id", execution.query_id);
  add_text("error", execution.error);
  if (!execution.executed) text << " prepared";
  return text.str().empty() ? "" : '|' + text.str();
}

struct Result {
  // The texts alone, and with the details of their executions.
  std::vector<std::string> texts;
  std::vector<std::string> statements;
  // The remarks without the file's name, one in each line.
  std::string remarks;
  std::optional<LogTime> first_time;
  std::optional<LogTime> last_time;
};

Result ReadAll(StatementReader& reader) {
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
    WidenSpan(result.first_time, result.last_time, batch.FirstTime());
    WidenSpan(result.first_time, result.last_time, batch.LastTime());
    for (std::size_t i = 0; i < batch.Size(); ++i) {
      result.texts.emplace_back(batch[i]);
      result.statements.push_back(result.texts.back() + Description(batch.ExecutionOf(i)));
    }
  }
  return result;
}

// Reads `text` from a pipe, `step` bytes at a time.
Result ReadText(const std::string& text, const ReadOptions& options = {},
                std::size_t step = 50'000) {
  Trickle trickle(text, step);
  StatementReader reader({trickle.Path()}, options, &trickle);
  Result result = ReadAll(reader);
  EXPECT_EQ(reader.BytesRead(), text.size());
  return result;
}

// The options in a row's label "ID FORMAT DIALECT"; "-" leaves one out.
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

// The rows of inputs.txt, with the texts in the place of their names such as "{query}".
std::vector<CaseRow> Rows(bool logs_only) {
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
      names[row.label] = row.texts.at(0);
    } else if (!logs_only || (row.section != "Sql" && row.section != "Recognised")) {
      rows.push_back(std::move(row));
    }
  }
  return rows;
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
  const bool recognised = GetParam().section == "Recognised";
  // A log is recognised by the lines in the first bytes read, so they must arrive together unless
  // the first line decides and cannot be SQL.
  const bool one_line =
      std::string_view("#<{\t2\xFE\xEF").find(texts[0][0]) != std::string_view::npos &&
      RecognizedFormat(texts[0].substr(0, texts[0].find('\n'))) != nullptr;
  std::string remarks;
  for (const std::size_t step : {50'000UL, 1UL, 2UL, 3UL}) {
    if (step <= 3 && recognised && !one_line) continue;
    const Result result = ReadText(texts[0], OptionsOf(GetParam().label), step);
    EXPECT_EQ(recognised ? result.texts : result.statements, expected)
        << step << " bytes at a time";
    if (step > 3) {
      remarks = result.remarks;
      EXPECT_EQ(remarks.empty(), problem.empty()) << remarks;
      EXPECT_THAT(remarks, StartsWith(problem));
    }
    EXPECT_EQ(result.remarks, remarks) << step << " bytes at a time";
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, Inputs, testing::ValuesIn(Rows(false)), CaseName);

// An entry of the named format that holds `statement`.
std::string Entry(const std::string& format, const std::string& statement) {
  const std::string time = "2026-11-24 09:05:00.123 UTC";
  if (format == "slowlog") return "# Query_time: 1  Lock_time: 0\n" + statement + ";\n";
  if (format == "general") return "261124  9:05:00\t    8 Query\t" + statement + "\n";
  if (format == "pglog") return time + " [7] LOG:  statement: " + statement + "\n";
  if (format == "csvlog") {
    return time + ",\"a\",\"d\",1,,s1,1,,,,0,LOG,00000,\"statement: " + statement + "\",,,,,,,,,\n";
  }
  if (format == "jsonlog") {
    return R"({"timestamp":")" + time + R"(","error_severity":"LOG","message":"statement: )" +
           statement + "\"}\n";
  }
  return statement + (format == "sql" ? ";" : format == "lines" ? "\n" : std::string(1, '\0'));
}

class Logs : public testing::TestWithParam<CaseRow> {
 protected:
  Result Read(const std::vector<std::string>& files) const {
    StatementReader reader(files, OptionsOf(GetParam().label));
    return ReadAll(reader);
  }

  const std::string& Log() const { return GetParam().texts[0]; }
  // The distance between two cuts of the log.
  std::size_t Step() const { return 1 + Log().size() / 25; }

  TemporaryFolder folder_;
};

TEST_P(Logs, AreOneWhereverTheyAreRotated) {
  const Result whole = Read({folder_.Write("log", Log())});
  for (std::size_t cut = 0; cut <= Log().size(); cut += Step()) {
    const Result result = Read(
        {folder_.Write("log.1", Log().substr(0, cut)), folder_.Write("log", Log().substr(cut))});
    EXPECT_EQ(result.statements, whole.statements) << "cut after " << cut << " bytes";
    if (!whole.remarks.empty()) continue;
    EXPECT_THAT(result.remarks, Not(HasSubstr("no statement"))) << "cut after " << cut << " bytes";
  }
}

TEST_P(Logs, KeepTheirWholeEntriesWhenCut) {
  if (GetParam().texts.back().starts_with('!')) return;
  // Only the next entry shows whether "use" is the statement itself.
  if (GetParam().Id() == "SlowLog_UseAlone") return;
  using Texts = std::multiset<std::string>;
  const std::vector<std::string> whole = Read({folder_.Write("log", Log())}).texts;
  const Texts all(whole.begin(), whole.end());
  std::size_t kept_before = 0;
  // In other formats a cut at the end of a line may not show that more lines would follow.
  const bool records = GetParam().section == "CsvLog" || GetParam().section == "JsonLog";
  for (std::size_t cut = 0; cut <= Log().size(); cut += Step()) {
    const bool at_line_end = cut == 0 || Log()[cut - 1] == '\n';
    const Result result = Read({folder_.Write("log", Log().substr(0, cut))});
    const Texts found(result.texts.begin(), result.texts.end());
    std::vector<std::string> kept;
    std::set_intersection(found.begin(), found.end(), all.begin(), all.end(),
                          std::back_inserter(kept));
    EXPECT_GE(kept.size(), kept_before) << "cut after " << cut << " bytes";
    EXPECT_LE(found.size(), kept.size() + 1) << "cut after " << cut << " bytes";
    if (found.size() > kept.size() && (records || !at_line_end)) {
      EXPECT_THAT(result.remarks, HasSubstr("ends within")) << "cut after " << cut << " bytes";
    }
    if (at_line_end) kept_before = kept.size();
  }
}

TEST_P(Logs, LeaveNothingForTheNextEntry) {
  // Only a statement that has ended shows that a header of a slow log is none of its lines.
  if (GetParam().section == "SlowLog" && GetParam().texts.back().starts_with("!ends")) return;
  const std::string format(OptionsOf(GetParam().label).format->name);
  std::string next = Entry(format, "select 'next'");
  // In a slow log the time and the database of "use" are those of the last entry that has them.
  if (format == "slowlog") next = "Tcp port: 1\n" + next;
  const Result alone = Read({folder_.Write("next", next)});
  const Result result = Read({folder_.Write("log", Log() + '\n' + next)});
  ASSERT_EQ(alone.statements.size(), 1);
  EXPECT_THAT(result.statements, Contains(alone.statements[0]));
}

INSTANTIATE_TEST_SUITE_P(Cases, Logs, testing::ValuesIn(Rows(true)), CaseName);

TEST(Reader, LeavesOutStatementsThatAreTooLong) {
  ReadOptions options;
  options.max_statement = 1000;
  for (const auto& [name, format] : ReadableFormats()) {
    options.format = format;
    options.dialect = name == "sql" ? Dialect::kPostgres : format->dialect;
    // The last one is a quote whose prefix decides where it ends.
    for (const char* unit : {"x", "x ", "\"\"", "e'\\';'"}) {
      if (name == "jsonlog" && unit[1] > ' ') continue;
      std::string longer = "select ";
      while (longer.size() < 200'000) longer += unit;
      const std::string log = Entry(name, "select 1") + Entry(name, longer + "y") +
                              Entry(name, "select 2") + Entry(name, '$' + std::string(1200, 'z')) +
                              Entry(name, "select 3");
      // In PostgreSQL's logs a statement waits for its duration.
      const std::string next = format->dialect == Dialect::kPostgres ? "" : "2 ";
      for (const std::size_t step : {97UL, 50'000UL, 1'000'000UL}) {
        const Result result = ReadText(log, options, step);
        EXPECT_THAT(result.texts, ElementsAre("select 1", "select 2", "select 3")) << name << step;
        EXPECT_THAT(result.remarks, StartsWith("2 statements are longer than 1000 bytes and left "
                                               "out before statement " +
                                               next))
            << name << step;
      }
    }
  }
}

TEST(Reader, TakesNoMoreThanSomeBytesAByte) {
  constexpr std::size_t kSize = 2'000'000;
  for (const auto& [name, format] : ReadableFormats()) {
    for (const char* unit : {"a;", ",", "\",", "a\n", "[", "\n\t", "$1 "}) {
      std::string text;
      while (text.size() < kSize) text += unit;
      const TemporaryFolder folder;
      const std::string file = folder.Write("log", Entry(name, text));
      ReadOptions options;
      options.format = format;
      const PeakMemory peak;
      StatementReader reader({file}, options);
      for (StatementBatch batch; reader.Read(batch);) {
      }
      EXPECT_LT(peak.Bytes(), 6 * kSize + 40'000'000) << name << ' ' << unit;
    }
  }
}

TEST(Reader, KeepsFewStatementsThatWaitForTheirDuration) {
  const auto line = [](const std::string& session, const std::string& text) {
    return "2026-11-24 09:05:00.123 UTC [" + session + "] LOG:  " + text + '\n';
  };
  const std::string longer(60, 'x');
  ReadOptions options;
  options.max_statement = 100;
  std::string log = line("1", "statement: a") + line("2", "statement: " + longer) +
                    line("1", "duration: 500 ms") + line("1", "statement: " + longer) +
                    line("2", "duration: 1 ms");
  const std::string at = " at=2026-11-24 09:05:00Z";
  std::vector<std::string> expected{"a|0.5" + at, longer + '|' + at, longer + '|' + at};
  // A statement that has got its duration takes no space.
  for (int i = 0; i < 5; ++i) {
    log += line("3", "statement: " + longer) + line("3", "duration: 500 ms");
    expected.push_back(longer + "|0.5" + at);
  }
  EXPECT_EQ(ReadText(log, options).statements, expected);

  log.clear();
  for (int i = 0; i <= 10'000; ++i) log += line(std::to_string(i), "statement: a");
  EXPECT_EQ(ReadText(log + line("0", "duration: 500 ms")).statements,
            std::vector<std::string>(10'001, "a|" + at));
}

TEST(Reader, KeepsFewMessagesOfSyslogOpen) {
  const auto line = [](const char* process, const char* number, const std::string& text) {
    return std::string("Nov 24 09:05:00 db1 postgres[") + process + "]: [1-" + number + "] " +
           text + '\n';
  };
  const std::string begun = "LOG:  statement: " + std::string(60, 'x');
  ReadOptions options;
  options.format = ReadableFormats().at("pglog");
  options.max_statement = 100;
  const std::string log = line("1", "1", begun) + line("1", "2", "y") + line("2", "1", begun) +
                          line("3", "1", "LOG:  statement: c") + line("1", "2", "lost") +
                          line("4", "1", "LOG:  statement: d") + line("3", "2", "e");
  const std::string x(60, 'x');
  EXPECT_THAT(ReadText(log, options).texts, UnorderedElementsAre(x + 'y', x, "ce", "d"));
}

TEST(Reader, TellsTheSpanOfAllEntries) {
  const Result result = ReadText(
      "2026-11-24T10:00:00.5Z\t1 Connect\ta\n2026-11-24T10:00:00+02:00\t1 Query\ta\n"
      "2026-11-24T11:30:00+02:00\t1 Query\tb\n2026-11-24T09:00:00Z\t1 Quit\t\n");
  EXPECT_EQ(result.statements.size(), 2);
  EXPECT_EQ(FormatLogTime(*result.first_time), "2026-11-24 10:00:00+02:00");
  EXPECT_EQ(FormatLogTime(*result.last_time), "2026-11-24 10:00:00Z");
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
    EXPECT_THAT(ReadText(log).texts, ElementsAre("select 1")) << command;
  }
}

TEST(GeneralLog, KeepsTheFirstStatementsOfALongPacket) {
  std::string packet;
  for (int i = 0; i < 1000; ++i) packet += "a;";
  const Result result = ReadText(Entry("general", packet) + Entry("general", packet + "a;"));
  EXPECT_EQ(result.texts.size(), 2000);
  EXPECT_THAT(result.remarks, HasSubstr("1 entry is damaged"));
}

TEST(Reader, KeepsNothingOfTextWithoutStatements) {
  for (const char* line : {"-- a comment\n", "261124  9:05:00\t    8 Quit\t\n"}) {
    std::string text;
    while (text.size() < 4'000'000) text += line;
    const TemporaryFolder folder;
    StatementReader reader({folder.Write("log", text)}, {});
    const PeakMemory peak;
    StatementBatch batch;
    EXPECT_FALSE(reader.Read(batch));
    EXPECT_LT(peak.Bytes(), text.size() / 2) << line;
  }
}

TEST(Reader, GoesOnAfterAFileThatIsMissing) {
  const TemporaryFolder folder;
  const std::string log = Entry("slowlog", "select 1") + Entry("slowlog", "select\n2");
  const std::string begun = folder.Write("log.1", log.substr(0, log.size() - 4));
  const std::string rest = folder.Write("log", log.substr(log.size() - 4));
  StatementReader reader({begun, "/no/such", rest}, {});
  StatementBatch batch;
  EXPECT_TRUE(reader.Read(batch));
  EXPECT_EQ(batch[0], "select 1");
  EXPECT_THROW(reader.Read(batch), InputError);
  EXPECT_TRUE(reader.Read(batch));
  EXPECT_EQ(batch[0], "select\n2");
  EXPECT_EQ(reader.PlaceOf(1), begun + ": statement 1");
  EXPECT_EQ(reader.PlaceOf(2), rest + ": statement 1");
  EXPECT_FALSE(reader.Read(batch));
}

TEST(Reader, ReadsEachFileAsItsKind) {
  const TemporaryFolder folder;
  std::vector<std::string> files;
  for (const char* const name : {"sql", "csvlog", "general", "jsonlog", "pglog", "slowlog"}) {
    files.push_back(folder.Write(name, Entry(name, "select '" + std::string(name) + "'")));
  }
  // They hold no statement: the first continues the JSON log.
  files.insert(files.begin() + 4, folder.Write("torn", "{\n"));
  files.push_back(folder.Write("quiet", "261124  9:05:00\t    8 Quit\t\n"));
  StatementReader reader(files, {});
  std::vector<std::string> found;
  for (StatementBatch batch; reader.Read(batch);) {
    ASSERT_EQ(batch.Size(), 1);
    const bool postgres = batch.SqlDialect() == Dialect::kPostgres;
    found.push_back(std::string(batch[0]) + (postgres ? " postgres" : ""));
  }
  EXPECT_THAT(found, ElementsAre("select 'sql'", "select 'csvlog' postgres", "select 'general'",
                                 "select 'jsonlog' postgres", "select 'pglog' postgres",
                                 "select 'slowlog'"));
  EXPECT_EQ(reader.TakeRemarks().size(), 8);

  ReadOptions options;
  options.dialect = Dialect::kAnsi;
  StatementReader chosen({files[1]}, options);
  StatementBatch batch;
  EXPECT_TRUE(chosen.Read(batch));
  EXPECT_EQ(batch.SqlDialect(), Dialect::kAnsi);
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
  const TemporaryFolder folder;
  for (const auto add_filter :
       {archive_write_add_filter_gzip, archive_write_add_filter_bzip2, archive_write_add_filter_xz,
        archive_write_add_filter_zstd, archive_write_add_filter_lz4}) {
    const std::string packed = Packed(text, add_filter);
    for (const std::size_t step : {1UL, 50'000UL}) {
      EXPECT_THAT(ReadText(packed + packed, {}, step).texts, ElementsAre("select 1", "select 1"));
    }
    std::size_t refused = 0;
    for (std::size_t size = 6; size < packed.size(); ++size) {
      StatementReader reader({folder.Write("cut", packed.substr(0, size))}, {});
      try {
        ReadAll(reader);
      } catch (const InputError& error) {
        EXPECT_THAT(error.what(), HasSubstr(folder.Path("cut") + ": packed data: "));
        ++refused;
      }
    }
    // Some packers end with bytes that unpacking does not need.
    EXPECT_GE(refused, packed.size() - 6 - 16);
  }
  EXPECT_THAT(ReadText(Packed("", archive_write_add_filter_gzip)).texts, ElementsAre());
}

TEST(PackedInput, LosesOnlyItsOwnStatements) {
  std::string text;
  for (int i = 0; i < 10'000; ++i) {
    text += Entry("slowlog", "select " + std::to_string(i * 7919 % 100'003));
  }
  const std::string packed = Packed(text, archive_write_add_filter_gzip);
  std::string longer = "# Query_time: 1  Lock_time: 0\nselect ";
  for (int i = 0; i < 40'000; ++i) longer += std::to_string(i * 7919 % 100'003);
  const std::string packed_longer = Packed(longer, archive_write_add_filter_gzip);
  const TemporaryFolder folder;
  StatementReader reader({folder.Write("cut", packed.substr(0, packed.size() / 2)),
                          folder.Write("longer", packed_longer.substr(0, packed_longer.size() - 9)),
                          folder.Write("next", Entry("slowlog", "select 'next'"))},
                         {});
  std::vector<std::string> found;
  std::size_t errors = 0;
  for (bool more = true; more;) {
    StatementBatch batch;
    try {
      more = reader.Read(batch);
      if (more) found.emplace_back(batch[batch.Size() - 1]);
    } catch (const InputError&) {
      ++errors;
    }
  }
  EXPECT_EQ(errors, 2);
  EXPECT_GT(found.size(), 1);
  EXPECT_EQ(found.back(), "select 'next'");
  EXPECT_EQ(reader.TakeRemarks().size(), 1);

  class FailingWaiter final : public InputWaiter {
    bool Wait(int) override { return waits_++ == 0 ? true : throw InputError("gone"); }
    int waits_ = 0;
  } waiter;
  Input input(folder.Path("cut"), &waiter);
  std::string to(text.size(), ' ');
  try {
    while (input.ReadText(to.data(), to.size()) > 0) {
    }
    ADD_FAILURE() << "the error is lost";
  } catch (const InputError& error) {
    EXPECT_STREQ(error.what(), "gone");
  }
}

TEST(PackedInput, IsNoTextThatLooksLikeIt) {
  for (const char* text : {"BZh", "BZhello", "\x1F\x8B", "PK\x03\x04", "Rar!", "begin 644 x\n"}) {
    const TemporaryFolder folder;
    Input input(folder.Write("text", text));
    std::string read;
    for (char c = 0; input.ReadText(&c, 1) == 1;) read += c;
    EXPECT_EQ(read, text);
  }
}

TEST(PostgresPrefix, IsReadByTheGivenPattern) {
  for (const CaseRow& row : ReadCases("prefixes.txt")) {
    ReadOptions options;
    options.format = ReadableFormats().at("pglog");
    options.prefix = row.texts.at(0);
    std::string found;
    const Result result = ReadText(row.texts.at(1) + "LOG:  statement: select 1\n", options);
    for (const std::string& statement : result.statements) found += statement;
    EXPECT_EQ(found, row.texts.at(2)) << row.texts[0];
  }
}

// Inputs of an attacker who wants a log to take long.
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
    // The quotients are 16 if the work is linear and 256 if it is quadratic. Searches are too fast
    // for the clock, so their bytes are counted. For the rest, times below 2 ms prove nothing.
    EXPECT_LT(all_searched, 2 * kGrowth * small_searched);
    EXPECT_LT(seconds, 5 * kGrowth * std::max(small_seconds, 0.002));
  }
}

}  // namespace
}  // namespace tarn::test
