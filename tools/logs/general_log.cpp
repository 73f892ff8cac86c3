#include "logs/format_splitters.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "logs/line_splitter.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// The size to which old servers pad a command with blanks.
constexpr std::size_t kPaddedSize = 11;

// The start of an entry: its time if the line has one, the index at which the command's argument
// begins, and whether the argument is a statement that the command runs.
struct Entry {
  std::optional<LogTime> time;
  std::size_t argument;
  bool runs;
};

// The commands other than Query and Execute.
constexpr auto kOtherCommands = [] {
  std::string_view names =
      "Binlog Dump|Binlog Dump GTID|Bulk_execute|Change user|Change_user|Close stmt|Connect|"
      "Connect Out|Create DB|Daemon|Debug|Delayed insert|Drop DB|Error|Fetch|Field List|Init DB|"
      "Kill|Long Data|Ping|Prepare|Processlist|Quit|Refresh|Register Replica|Register Slave|"
      "Reset Connection|Reset connection|Reset stmt|Set option|Shutdown|Slave_IO|Slave_SQL|"
      "Slave_worker|Sleep|Statistics|Subscribe Group Replication Stream|Table Dump|Time|"
      "Unimpl get tid|clone|";
  std::array<std::string_view, 41> commands;
  for (std::string_view& command : commands) {
    command = names.substr(0, names.find('|'));
    names.remove_prefix(command.size() + 1);
  }
  return commands;
}();

// Whether `command`, which may be cut to kPaddedSize bytes, is one of kOtherCommands.
bool IsOtherCommand(std::string_view command) {
  return std::any_of(kOtherCommands.begin(), kOtherCommands.end(), [command](std::string_view one) {
    return one == command || (command.size() >= kPaddedSize - 1 && one.starts_with(command));
  });
}

bool Runs(std::string_view command) noexcept { return command == "Query" || command == "Execute"; }

std::optional<Entry> EntryAt(std::string_view line) {
  Entry entry{};
  std::string_view rest = line;
  if (!rest.empty() && IsDigit(rest[0])) {
    entry.time = TakeLogTime(rest);
    if (!entry.time) return std::nullopt;
  }
  if (rest.empty() || (rest[0] != '\t' && rest[0] != ' ')) return std::nullopt;
  rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
  const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
  if (digits == 0 || digits == rest.size() || rest[digits] != ' ') return std::nullopt;
  rest.remove_prefix(digits + 1);
  const auto position = [&](std::size_t at) { return line.size() - rest.size() + at; };

  const std::size_t tab = std::min(rest.find('\t'), rest.size());
  std::string_view command = Trimmed(rest.substr(0, tab));
  entry.runs = Runs(command);
  entry.argument = position(std::min(tab + 1, rest.size()));
  if ((entry.runs && tab < rest.size()) || (!entry.runs && IsOtherCommand(command))) return entry;
  if (rest.size() < kPaddedSize) return std::nullopt;
  command = Trimmed(rest.substr(0, kPaddedSize));
  entry.runs = Runs(command);
  entry.argument = position(kPaddedSize);
  if (!entry.runs && !IsOtherCommand(command)) return std::nullopt;
  return entry;
}

class GeneralLogSplitter final : public LineSplitter {
 public:
  using LineSplitter::LineSplitter;

 private:
  void TakeLine(std::string_view line) override {
    const std::optional<Entry> entry = EntryAt(line);
    if (entry) {
      EndBody();
      ++Out().entries;
      if (entry->time) time_ = entry->time;
      Out().AddTime(entry->time);
      if (entry->runs) BeginBody(entry->argument);
    } else if (IsServerBanner(line)) {
      EndBody();
    }
  }

  bool MayBeginEntry(std::string_view line) const override {
    return !line.empty() && (IsDigit(line[0]) || IsBlank(line[0]));
  }

  void TakeBody(std::string_view body) override {
    if (!body.empty()) Out().statements.push_back({body, {.time = time_}});
  }

  // The time of the last line that has one. Within the same second servers leave it out.
  std::optional<LogTime> time_;
};

}  // namespace

std::unique_ptr<Splitter> MakeGeneralLogSplitter(const SplitterOptions& options) {
  return std::make_unique<GeneralLogSplitter>(options);
}

bool BeginsGeneralLogEntry(std::string_view line) { return EntryAt(line).has_value(); }

}  // namespace tarn::host
