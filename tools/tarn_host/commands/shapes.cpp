#include "tarn_host/commands.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "logs/input.h"
#include "logs/reader.h"
#include "plugin/plugin.h"
#include "shapes/counter.h"
#include "tarn_host/errors.h"
#include "tarn_host/options.h"
#include "tarn_host/interrupt.h"
#include "tarn_host/output.h"
#include "tarn_host/progress.h"
#include "tarn_host/report.h"
#include "tarn_host/table.h"

namespace tarn::host {
namespace {

constexpr unsigned kMostThreads = 256;
// More shapes do not fit into memory.
constexpr std::uint64_t kMostShapes = std::numeric_limits<std::uint32_t>::max();

// A format that only `shapes` has. Its inputs hold no statements.
constexpr Format kReportFormat{"report", "a report", Dialect::kMysql, nullptr, nullptr, "", ""};

struct ShapesOptions {
  InputOptions input;
  TableOptions table;
  CountingRule rule;
  bool json = false;
  std::uint64_t threads = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
  std::string plugin;
  // As typed; empty if not given.
  std::string since;
  std::string until;
  std::array<std::string, kDetails> details;
  // The report or log to compare with.
  std::string compare;
};

// The problems with the inputs, and the exit code that follows from them.
class Problems {
 public:
  void Add(std::string problem, int exit_code) {
    lines_.push_back(std::move(problem));
    exit_code_ = std::max(exit_code_, exit_code);
  }

  // Returns the exit code.
  int Report() const {
    for (const std::string& line : lines_) ReportError(line);
    return exit_code_;
  }

 private:
  std::vector<std::string> lines_;
  int exit_code_ = kExitSuccess;
};

// Whether `file` can be read more than once.
bool IsRegular(const std::string& file) {
  std::error_code error;
  return std::filesystem::is_regular_file(file, error);
}

// Whether a file holds a report. Reads nothing from an input that can be read only once.
bool HoldsReport(const std::string& file) {
  if (file == kStandardInput || !IsRegular(file)) return false;
  try {
    char head[64];
    TextInput input(file);
    return BeginsReport({head, input.Read(head, sizeof head)});
  } catch (const InputError&) {
    // The error is reported when the file is read as a log.
    return false;
  }
}

std::string WholeText(const std::string& file, InterruptWatch& watch) {
  constexpr std::size_t kPiece = std::size_t{64} * 1024;
  TextInput input(file, &watch);
  std::string text;
  for (std::size_t got = kPiece; got > 0;) {
    const std::size_t size = text.size();
    text.resize(size + kPiece);
    got = input.Read(text.data() + size, kPiece);
    text.resize(size + got);
  }
  return text;
}

// Counts logs and adds reports.
class FileCounter {
 public:
  FileCounter(const ShapesOptions& options, impl_dao::CProductInterface& product,
              InterruptWatch& watch, Problems& problems)
      : options_(options),
        product_(product),
        watch_(watch),
        problems_(problems),
        counting_{.fold_digits = options.rule.fold_digits,
                  .exact = options.rule.exact,
                  .keys = options.rule.keys,
                  .group_by = options.rule.group_by,
                  .threads = static_cast<unsigned>(options.threads)} {}

  ShapeCount Count(const std::vector<std::string>& files) {
    std::vector<std::string> logs;
    ShapeCount total;
    for (const std::string& file : files) {
      if (options_.input.reading.format != &kReportFormat && !HoldsReport(file)) {
        logs.push_back(file);
        continue;
      }
      try {
        // The report to compare with was filtered when it was made.
        if (file != options_.compare && Filters()) {
          throw InputError(file + ": a report holds no single statements, so it can't be filtered");
        }
        const std::string text = WholeText(file, watch_);
        total += ReadReport(file == kStandardInput ? "standard input" : file, text, options_.rule);
      } catch (const InputError& error) {
        problems_.Add(error.what(), kExitTrouble);
      }
    }
    if (!logs.empty()) total += CountLogs(logs);
    return total;
  }

  // Reports statements that failed, and options for which the logs lack the facts.
  void ReportLeftOut(const ShapeCount& count) {
    const int exit_code = count.counted == 0 ? kExitFailed : kExitSuccess;
    bool untold = false;
    const auto report = [&](std::uint64_t number, const std::string& option, const char* detail) {
      if (number == 0) return;
      untold = true;
      problems_.Add("shapes: " + option + " left out " + std::to_string(number) +
                        (number == 1 ? " statement" : " statements") + " without a " + detail +
                        " in the log",
                    exit_code);
    };
    report(count.without_time, options_.since.empty() ? "--until" : "--since", "time");
    for (std::size_t i = 0; i < kDetails; ++i) {
      const char* const name = NameOf(static_cast<Detail>(i));
      report(count.without_detail.at(i), std::string("--") + name, name);
    }
    if (count.counted == 0 && counting_.filter.Active() && !untold) {
      problems_.Add("shapes: no statement has the given time, user, db and host", exit_code);
    }
    if (options_.table.rank.order == ShapeOrder::kRows && count.counted > 0 &&
        std::all_of(count.shapes.begin(), count.shapes.end(), [](const auto& entry) {
          return !entry.second.rows_examined && !entry.second.rows_sent;
        })) {
      problems_.Add("shapes: --sort=rows: the log records no rows", kExitFailed);
    }
    if (options_.rule.group_by && count.counted > 0 &&
        std::all_of(count.shapes.begin(), count.shapes.end(),
                    [](const auto& entry) { return entry.first.group.empty(); })) {
      problems_.Add(
          std::string("shapes: --group-by: the log records no ") + NameOf(*options_.rule.group_by),
          kExitFailed);
    }
    if (count.failed == 0) return;
    const bool one = count.failed == 1;
    std::string line =
        std::to_string(count.failed) + (one ? " statement failed" : " statements failed");
    if (!failure_.empty()) line += (one ? ": " : ", the first: ") + failure_;
    problems_.Add(line, kExitFailed);
  }

 private:
  ShapeCount CountLogs(const std::vector<std::string>& logs) {
    ChooseStatements(logs);
    StatementReader reader(logs, options_.input.Reading(), &watch_);
    ProgressBar progress(logs);
    std::mutex mutex;
    const auto next = [&](StatementBatch& batch, std::uint64_t& position) {
      const std::lock_guard lock(mutex);
      for (;;) {
        try {
          const bool more = reader.Read(batch);
          for (Remark& remark : reader.TakeRemarks()) {
            problems_.Add(std::move(remark.text), remark.is_problem ? kExitFailed : kExitSuccess);
          }
          if (!more) return false;
          position = batch.FirstNumber();
          progress.Show(reader.BytesRead(), position + batch.Size() - 1);
          return true;
        } catch (const InputError& error) {
          problems_.Add(error.what(), kExitTrouble);
        }
      }
    };
    ShapeCount count = CountShapes(next, product_, counting_);
    if (const auto& failure = count.first_failure) {
      failure_ = reader.PlaceOf(failure->position) + ": " + failure->reason;
    }
    return count;
  }

  bool Filters() const {
    return !options_.since.empty() || !options_.until.empty() ||
           std::any_of(options_.details.begin(), options_.details.end(),
                       [](const std::string& detail) { return !detail.empty(); });
  }

  // Sets the filter. A distance such as "2h" is counted from the log's end, so the logs are read
  // an additional time to find it.
  void ChooseStatements(const std::vector<std::string>& logs) {
    std::optional<LogTime> end;
    for (const auto& [name, text, limit] :
         {std::tuple("--since", &options_.since, &counting_.filter.since),
          std::tuple("--until", &options_.until, &counting_.filter.until)}) {
      if (text->empty()) continue;
      *limit = TimeTyped(*text);
      if (*limit) continue;
      const auto distance = MicrosecondsTyped(*text);
      if (!distance) {
        throw ToolError(std::string("shapes: ") + name + ": " + *text +
                        " is neither a time nor a number of s, m, h or d");
      }
      if (!end) end = EndOf(logs, name);
      *limit = end;
      (*limit)->wall_microseconds -= *distance;
    }
    for (std::size_t i = 0; i < kDetails; ++i) {
      if (!options_.details.at(i).empty()) counting_.filter.details.at(i) = options_.details.at(i);
    }
  }

  LogTime EndOf(const std::vector<std::string>& logs, const std::string& option) {
    std::optional<LogTime> first;
    std::optional<LogTime> last;
    for (const std::string& log : logs) {
      if (!IsRegular(log)) {
        throw ToolError("shapes: " + option + ": " +
                        (log == kStandardInput ? "standard input" : log) +
                        " cannot be read twice to find the log's end; give a time");
      }
    }
    StatementReader reader(logs, options_.input.Reading(), &watch_);
    for (StatementBatch batch;;) {
      try {
        if (!reader.Read(batch)) break;
        WidenSpan(first, last, batch.FirstTime());
        WidenSpan(first, last, batch.LastTime());
      } catch (const InputError&) {
        // Counting reports it.
      }
    }
    if (!last) throw ToolError("shapes: " + option + ": the log records no time");
    return *last;
  }

  // "2026-11-24", "2026-11-24 09:05" or with seconds, a fraction and a zone.
  static std::optional<LogTime> TimeTyped(std::string text) {
    constexpr std::string_view kDate = "2026-11-24";
    constexpr std::string_view kMinutes = "2026-11-24 09:05";
    if (text.size() == kDate.size()) text += " 00:00";
    if (text.size() >= kMinutes.size() && text.find(':', kMinutes.size()) != kMinutes.size()) {
      text.insert(kMinutes.size(), ":00");
    }
    std::string_view rest = text;
    const auto time = TakeLogTime(rest);
    return rest.empty() ? time : std::nullopt;
  }

  // "90s", "30m", "2h" or "7d".
  static std::optional<std::int64_t> MicrosecondsTyped(const std::string& text) {
    constexpr std::int64_t kSecond = 1'000'000;
    const std::map<char, std::int64_t> units = {
        {'s', kSecond}, {'m', 60 * kSecond}, {'h', 3600 * kSecond}, {'d', 86'400 * kSecond}};
    // No log spans a distance of more digits.
    constexpr std::size_t kMostDigits = 7;
    const std::size_t digits = text.find_first_not_of("0123456789");
    if (digits == 0 || digits > kMostDigits || digits + 1 != text.size()) return std::nullopt;
    const auto unit = units.find(text[digits]);
    if (unit == units.end()) return std::nullopt;
    return std::stoll(text) * unit->second;
  }

  const ShapesOptions& options_;
  impl_dao::CProductInterface& product_;
  InterruptWatch& watch_;
  Problems& problems_;
  CountOptions counting_;
  // The first statement that failed, as "NAME: statement N: REASON".
  std::string failure_;
};

int Shapes(const ShapesOptions& options) {
  const Plugin plugin(ChosenPlugin(options.plugin));
  InterruptWatch watch;
  Problems problems;
  Output output;
  FileCounter counter(options, plugin.Product(), watch, problems);
  std::optional<ShapeCount> before;
  if (!options.compare.empty()) before = counter.Count({options.compare});
  const ShapeCount count = counter.Count(options.input.files);
  watch.Stop();
  if (watch.Interrupted()) {
    problems.Add("shapes: interrupted; this is what was counted so far", kExitInterrupted);
  }
  if (before) {
    const Comparison comparison = Compare(*before, count, options.table.rank.top);
    if (options.json) {
      WriteComparison(comparison, output);
    } else {
      PrintTable(comparison, output);
    }
  } else if (options.json) {
    WriteReport(count, options.table.rank, options.rule, plugin.Product(), output);
  } else {
    PrintTable(count, options.table, output);
  }
  output.Flush();
  counter.ReportLeftOut(count);
  return problems.Report();
}

}  // namespace

void AddShapesCommand(CommandLine& line) {
  auto [command, options] =
      line.Add("shapes", "Count statements by shape, and sum up their times", Shapes);
  auto formats = ReadableFormats();
  formats.emplace(kReportFormat.name, &kReportFormat);
  AddInputOptions(command, options.input, formats);
  command.Flag("--exact", options.rule.exact,
               "Count by the canonical text, which keeps values and lists");
  command.Flag(
      "--fold-digits", options.rule.fold_digits,
      "Count names that differ only in digits as one, such as orders_2024 and orders_2025");
  command.Flag("--keys", options.rule.keys,
               "Count the canonical texts of each shape, which are the keys in a host's tables");
  command.Choice("--sort", options.table.rank.order,
                 std::map<std::string, ShapeOrder>{{"count", ShapeOrder::kCount},
                                                   {"time", ShapeOrder::kTime},
                                                   {"max", ShapeOrder::kMax},
                                                   {"rows", ShapeOrder::kRows}},
                 "ORDER",
                 "Print first the shapes with the most statements (count), the most time (time, "
                 "the default if times are known), the slowest statement (max) or the most rows "
                 "examined (rows)");
  command.Count("--top", options.table.rank.top, kMostShapes,
                "Print the first N shapes and sum up the others");
  command.Count("--min-count", options.table.rank.min_count, kMostShapes,
                "Sum up the shapes of fewer than N statements");
  command.Flag("--examples", options.table.examples,
               "Print below each shape its slowest statement and when it ran");
  command.Name("--since", options.since, "TIME",
               "Leave out statements before a time, such as 2026-11-24 09:05, or before the last "
               "90s, 30m, 2h or 7d of the log");
  command.Name("--until", options.until, "TIME", "Leave out statements of this time or later");
  std::map<std::string, Detail> details;
  for (std::size_t i = 0; i < kDetails; ++i) {
    const std::string name = NameOf(static_cast<Detail>(i));
    command.Name("--" + name, options.details.at(i), "NAME",
                 "Leave out statements of every other " + name);
    details.emplace(name, static_cast<Detail>(i));
  }
  command.Choice("--group-by", options.rule.group_by, details, "DETAIL",
                 "Count the shapes of each user, database (db) or host separately");
  command.Name("--compare", options.compare, "FILE",
               "Print the changes since the report or log FILE");
  command.Flag("--json", options.json,
               "Print JSON, with examples; reports can be read again and add up");
  command.Count("--threads", options.threads, kMostThreads,
                "Count on N threads (default: one per processor)");
  AddPluginOption(command, options.plugin);
  command.Footer(
      "Statements have one shape if they differ only in values, in the length of lists of values,\n"
      "in the number of VALUES rows, or in comments, case and spacing. If the input is a log with\n"
      "times, the times are summed up. Statements that fail are reported. Ctrl-C ends the input\n"
      "and prints the counts so far.\n\n"
      "Examples:\n"
      "  tarn_host shapes statements.sql\n"
      "  tarn_host shapes --input=slowlog --top 10 mysql-slow.log.1.gz\n"
      "  tarn_host shapes --input=csvlog --sort=max --examples postgresql.csv\n"
      "  tarn_host shapes --input=slowlog --since 2h --user shop mysql-slow.log\n"
      "  tarn_host shapes --json statements.sql\n"
      "  tarn_host shapes a.json b.json c.json");
}

}  // namespace tarn::host
