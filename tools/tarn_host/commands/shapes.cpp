#include "tarn_host/commands.h"

#include <fmt/format.h>

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
#include "tarn_host/interrupt.h"
#include "tarn_host/output.h"
#include "tarn_host/progress.h"
#include "tarn_host/report.h"
#include "tarn_host/table.h"

namespace tarn::host {
namespace {

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
    Input input(file);
    return BeginsReport({head, input.ReadText(head, sizeof head)});
  } catch (const InputError&) {
    // The error is reported when the file is read as a log.
    return false;
  }
}

// "2026-11-24", "2026-11-24 09:05" or with seconds, a fraction and a zone.
std::optional<LogTime> TimeTyped(std::string text) {
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

// The microseconds of "90s", "30m", "2h" or "7d".
std::optional<std::int64_t> DistanceTyped(const std::string& text) {
  constexpr std::int64_t kSecond = 1'000'000;
  static const std::map<std::string, std::int64_t> kUnits{
      {"s", kSecond}, {"m", 60 * kSecond}, {"h", 3600 * kSecond}, {"d", 86'400 * kSecond}};
  // No log spans a distance of more digits.
  constexpr std::size_t kMostDigits = 7;
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  const auto unit = kUnits.find(text.substr(digits));
  if (digits == 0 || digits > kMostDigits || unit == kUnits.end()) return std::nullopt;
  return std::stoll(text) * unit->second;
}

// Counts logs, adds reports, and prints the sum or a comparison.
class ShapesRun {
 public:
  // Throws PluginError and ToolError, as Run does.
  explicit ShapesRun(const ShapesOptions& options)
      : options_(options),
        plugin_(ChosenPlugin(options.plugin)),
        counting_{.fold_digits = options.rule.fold_digits,
                  .exact = options.rule.exact,
                  .keys = options.rule.keys,
                  .group_by = options.rule.group_by,
                  .threads = static_cast<unsigned>(options.threads)} {}

  // Returns the exit code.
  int Run() {
    std::optional<ShapeCount> before;
    if (!options_.compare.empty()) {
      before = Count({options_.compare});
      if (exit_code_ == kExitTrouble) return ReportProblems();
    }
    const ShapeCount count = Count(options_.input.files);
    if (watch_.Stop()) {
      Add("shapes: interrupted; this is what was counted so far", kExitInterrupted);
    }
    Output output;
    if (before) {
      const Comparison comparison = Compare(*before, count, options_.table.rank.top);
      if (options_.json) {
        WriteComparison(comparison, output);
      } else {
        PrintTable(comparison, output);
      }
    } else if (options_.json) {
      WriteReport(count, options_.table.rank, options_.rule, plugin_.Product(), output);
    } else {
      PrintTable(count, options_.table, output);
    }
    output.Flush();
    AddWhatIsLeftOut(count);
    return ReportProblems();
  }

 private:
  int ReportProblems() const {
    for (const std::string& problem : problems_) ReportError(problem);
    return exit_code_;
  }

  // Adds a line for the person. Lines are reported at the end, after the progress and the output.
  void Add(std::string problem, int exit_code) {
    problems_.push_back(std::move(problem));
    exit_code_ = std::max(exit_code_, exit_code);
  }

  ShapeCount Count(const std::vector<std::string>& files) {
    std::vector<std::string> logs;
    ShapeCount total;
    for (const std::string& file : files) {
      if (options_.input.reading.format != &kReportFormat && !HoldsReport(file)) {
        logs.push_back(file);
        continue;
      }
      try {
        total += ReportIn(file);
      } catch (const InputError& error) {
        Add(error.what(), kExitTrouble);
      }
    }
    if (!logs.empty()) total += CountLogs(logs);
    return total;
  }

  // Throws InputError.
  ShapeCount ReportIn(const std::string& file) {
    const bool filters = !options_.since.empty() || !options_.until.empty() ||
                         options_.details != decltype(options_.details){};
    // The report to compare with was filtered when it was made.
    if (filters && file != options_.compare) {
      throw InputError(file + ": a report holds no single statements, so it can't be filtered");
    }
    Input input(file, &watch_);
    std::string text;
    std::array<char, 4096> block;
    while (const std::size_t got = input.ReadText(block.data(), block.size())) {
      text.append(block.data(), got);
    }
    return ReadReport(input.Name(), text, options_.rule);
  }

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
            Add(std::move(remark.text), remark.is_problem ? kExitFailed : kExitSuccess);
          }
          if (!more) return false;
          position = batch.FirstNumber();
          progress.Show(reader.BytesRead(), position + batch.Size() - 1);
          return true;
        } catch (const InputError& error) {
          Add(error.what(), kExitTrouble);
        }
      }
    };
    ShapeCount count = CountShapes(next, plugin_.Product(), counting_);
    if (const auto& failure = count.first_failure) {
      failure_ = reader.PlaceOf(failure->position) + ": " + failure->reason;
    }
    return count;
  }

  // Sets the filter. A distance such as "2h" is counted from the log's end, so the logs are read
  // an additional time to find it.
  void ChooseStatements(const std::vector<std::string>& logs) {
    std::optional<LogTime> end;
    const auto choose = [&](const char* option, const std::string& text) {
      auto limit = TimeTyped(text);
      if (limit || text.empty()) return limit;
      const auto distance = DistanceTyped(text);
      if (!distance) {
        throw ToolError(fmt::format("shapes: {}: {} is neither a time nor a number of s, m, h or d",
                                    option, text));
      }
      if (!end) end = EndOf(logs, option);
      limit = end;
      limit->wall_microseconds -= *distance;
      return limit;
    };
    counting_.filter.since = choose("--since", options_.since);
    counting_.filter.until = choose("--until", options_.until);
    for (std::size_t i = 0; i < kDetails; ++i) {
      if (!options_.details.at(i).empty()) counting_.filter.details.at(i) = options_.details.at(i);
    }
  }

  LogTime EndOf(const std::vector<std::string>& logs, const char* option) {
    for (const std::string& log : logs) {
      if (IsRegular(log)) continue;
      throw ToolError(
          fmt::format("shapes: {}: {} cannot be read twice to find the log's end; give a time",
                      option, log == kStandardInput ? "standard input" : log));
    }
    std::optional<LogTime> first;
    std::optional<LogTime> last;
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
    if (!last) throw ToolError(fmt::format("shapes: {}: the log records no time", option));
    return *last;
  }

  // Adds the statements that failed or were left out, and the options for which the logs lack the
  // facts.
  void AddWhatIsLeftOut(const ShapeCount& count) {
    const int exit_code = count.counted == 0 ? kExitFailed : kExitSuccess;
    bool untold = false;
    const auto add = [&](std::uint64_t number, const char* option, const char* detail) {
      if (number == 0) return;
      untold = true;
      Add(fmt::format("shapes: --{} left out {} statement{} without a {} in the log", option,
                      number, number == 1 ? "" : "s", detail),
          exit_code);
    };
    add(count.without_time, options_.since.empty() ? "until" : "since", "time");
    for (std::size_t i = 0; i < kDetails; ++i) {
      const char* const name = NameOf(static_cast<Detail>(i));
      add(count.without_detail.at(i), name, name);
    }
    if (count.counted == 0 && counting_.filter.Active() && !untold) {
      Add("shapes: no statement has the given time, user, db and host", exit_code);
    }
    const auto of_none = [&count](const auto& has_fact) {
      return count.counted > 0 && std::none_of(count.shapes.begin(), count.shapes.end(), has_fact);
    };
    const auto order = options_.table.rank.order;
    if (order == ShapeOrder::kRows && of_none([](const ShapeEntry& entry) {
          return entry.second.rows_examined || entry.second.rows_sent;
        })) {
      Add("shapes: --sort=rows: the log records no rows", kExitFailed);
    }
    if ((order == ShapeOrder::kTime || order == ShapeOrder::kMax) &&
        of_none([](const ShapeEntry& entry) { return entry.second.times.Known(); })) {
      Add(fmt::format("shapes: --sort={}: the log records no durations",
                      order == ShapeOrder::kTime ? "time" : "max"),
          kExitFailed);
    }
    if (options_.rule.group_by &&
        of_none([](const ShapeEntry& entry) { return !entry.first.group.empty(); })) {
      Add(fmt::format("shapes: --group-by: the log records no {}", NameOf(*options_.rule.group_by)),
          kExitFailed);
    }
    if (count.failed == 0) return;
    const bool one = count.failed == 1;
    std::string line = fmt::format("{} statement{} failed", count.failed, one ? "" : "s");
    if (!failure_.empty()) line += (one ? ": " : ", the first: ") + failure_;
    Add(line, kExitFailed);
  }

  const ShapesOptions& options_;
  const Plugin plugin_;
  InterruptWatch watch_;
  CountOptions counting_;
  // The first statement that failed, as "NAME: statement N: REASON".
  std::string failure_;
  std::vector<std::string> problems_;
  int exit_code_ = kExitSuccess;
};

}  // namespace

int Shapes(const ShapesOptions& options) { return ShapesRun(options).Run(); }

}  // namespace tarn::host
