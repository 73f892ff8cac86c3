#include "logs/format_splitters.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "logs/line_splitter.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

constexpr std::size_t kNoPlace = std::string_view::npos;
// The size to which old servers pad a command with blanks.
constexpr std::size_t kPaddedSize = 11;

// The start of an entry: its time if the line has one, the index at which the command's argument
// begins, and whether the argument is a statement that the command runs.
struct Entry {
  std::optional<LogTime> time;
  std::size_t argument;
  bool runs;
};

// The commands other than Query and Execute, each between two ends of lines.
constexpr std::string_view kOtherCommands =
    "\nBinlog Dump\nBinlog Dump GTID\nBulk_execute\nChange user\nChange_user\nClose stmt\nConnect"
    "\nConnect Out\nCreate DB\nDaemon\nDebug\nDelayed insert\nDrop DB\nError\nFetch\nField List"
    "\nInit DB\nKill\nLong Data\nPing\nPrepare\nProcesslist\nQuit\nRefresh\nRegister Replica"
    "\nRegister Slave\nReset Connection\nReset connection\nReset stmt\nSet option\nShutdown"
    "\nSlave_IO\nSlave_SQL\nSlave_worker\nSleep\nStatistics\nSubscribe Group Replication Stream"
    "\nTable Dump\nTime\nUnimpl get tid\nclone\n";

// Whether `command`, which may be cut to kPaddedSize bytes, is one of kOtherCommands. It is a part
// of a line, so that no end of a line is in it.
bool IsOtherCommand(std::string_view command) {
  std::string listed = "\n" + std::string(command);
  if (command.size() < kPaddedSize - 1) listed += '\n';
  return !command.empty() && kOtherCommands.find(listed) != kNoPlace;
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
