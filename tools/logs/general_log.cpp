#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "logs/formats.h"
#include "logs/line_splitter.h"
#include "logs/scan.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// The size to which old servers pad a command with blanks.
constexpr std::size_t kPaddedSize = 11;

// The commands other than Query and Execute, each followed by "|".
constexpr std::string_view kOtherCommands =
    "Binlog Dump|Binlog Dump GTID|Bulk_execute|Change user|Change_user|Close stmt|Connect|"
    "Connect Out|Create DB|Daemon|Debug|Delayed insert|Drop DB|Error|Fetch|Field List|Init DB|Kill|"
    "Long Data|Ping|Prepare|Processlist|Quit|Refresh|Register Replica|Register Slave|"
    "Reset Connection|Reset connection|Reset stmt|Set option|Shutdown|Slave_IO|Slave_SQL|"
    "Slave_worker|Sleep|Statistics|Subscribe Group Replication Stream|Table Dump|Time|"
    "Unimpl get tid|clone|";

// Whether `command`, which may be cut to kPaddedSize bytes, is one of kOtherCommands.
bool IsOtherCommand(std::string_view command) {
  for (std::string_view rest = kOtherCommands; !rest.empty(); TakePrefix(rest, "|")) {
    const std::string_view one = TakeBytes(rest, rest.find('|'));
    const bool may_be_cut = command.size() >= kPaddedSize - 1;
    if (may_be_cut ? one.starts_with(command) : one == command) return true;
  }
  return false;
}

// The start of an entry: its time if the line has one, the argument of its command, and whether the
// argument is a statement that the command runs.
struct Entry {
  std::optional<LogTime> time;
  std::string_view argument;
  bool runs;
};

std::optional<Entry> EntryAt(std::string_view line) {
  Entry entry{};
  if (!line.empty() && IsDigit(line[0])) {
    entry.time = TakeLogTime(line);
    if (!entry.time) return std::nullopt;
  }
  const std::size_t blanks = std::min(line.find_first_not_of(" \t"), line.size());
  line.remove_prefix(blanks);
  if (blanks == 0 || TakeDigits(line).empty() || !TakePrefix(line, " ")) return std::nullopt;
  for (const std::size_t size : {std::min(line.find('\t'), line.size()), kPaddedSize}) {
    if (size > line.size()) break;
    const std::string_view command = Trimmed(line.substr(0, size));
    entry.argument = line.substr(size);
    entry.runs = command == "Query" || command == "Execute";
    if (entry.runs ? size < line.size() : IsOtherCommand(command)) {
      // MySQL 5 writes the id of a prepared statement before it: "[1] select 5".
      std::string_view rest = Trimmed(entry.argument);
      const bool any = TakePrefix(rest, "[") && !TakeDigits(rest).empty() && TakePrefix(rest, "] ");
      if (command == "Execute" && any) entry.argument = rest;
      return entry;
    }
  }
  return std::nullopt;
}

class GeneralLogSplitter final : public LineSplitter {
  void TakeLine(std::string_view line) override {
    line = WithoutHole(line);
    if (const std::optional<Entry> entry = EntryAt(line)) {
      EndBody();
      Out().CountEntry(entry->time);
      if (entry->time) time_ = entry->time;
      if (entry->runs) BeginBody(entry->argument);
    } else if (IsServerBanner(line) || (!LineEnded() && MayBeginEntry(line))) {
      EndBody();
      time_.reset();
    }
  }

  // Whether `line`, which the end of the input has cut, may be the start of an entry.
  static bool MayBeginEntry(std::string_view line) noexcept {
    return !line.empty() && (IsDigit(line[0]) || IsBlank(line[0]));
  }

  void TakeBody(std::string_view body) override {
    SplitPacket(body, Out(),
                [this](std::string_view statement) { Out().Add(statement, {.time = time_}); });
  }

  // The time of the last line that has one. Within the same second servers leave it out.
  std::optional<LogTime> time_;
};

}  // namespace

std::unique_ptr<Splitter> MakeGeneralLogSplitter(const SplitterOptions& /*options*/) {
  return std::make_unique<GeneralLogSplitter>();
}

bool BeginsGeneralLogEntry(std::string_view line) { return EntryAt(line).has_value(); }

}  // namespace tarn::host
