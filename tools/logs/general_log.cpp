#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "logs/log_lines.h"
#include "logs/log_splitter.h"
#include "logs/splitter.h"
#include "sql/dialect.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// Whether `line` begins an entry; then where what the command names begins in it, and whether the
// command runs a statement.
struct Entry {
  std::size_t argument;
  bool runs;
};

std::optional<Entry> EntryAt(std::string_view line) {
  // Every command but Query and Execute; "Init DB" and the like are told by their first word.
  static constexpr std::array<std::string_view, 34> kOthers{
      "Binlog",      "Bulk_execute", "Change",    "Close",    "Connect",      "Create",
      "Daemon",      "Debug",        "Delayed",   "Drop",     "Error",        "Fetch",
      "Field",       "Init",         "Kill",      "Long",     "Ping",         "Prepare",
      "Processlist", "Quit",         "Refresh",   "Register", "Reset",        "Set",
      "Shutdown",    "Slave_IO",     "Slave_SQL", "Sleep",    "Slave_worker", "Statistics",
      "Subscribe",   "Table",        "Time",      "clone"};
  std::size_t at = 0;
  if (TimeAt(line)) {
    // "261124 09:05:00" has a blank in it.
    at = line.find_first_of(" \t", IsDigit(line[4]) && IsDigit(line[5]) ? 8 : 0);
  }
  if (at == kNoPlace || at >= line.size() || (line[at] != '\t' && line[at] != ' ')) {
    return std::nullopt;
  }
  at = line.find_first_not_of(" \t", at);
  if (at == kNoPlace || !IsDigit(line[at])) return std::nullopt;
  while (at < line.size() && IsDigit(line[at])) ++at;
  if (at == line.size() || line[at] != ' ') return std::nullopt;
  const std::size_t tab = line.find('\t', at);
  const std::string_view command = line.substr(at + 1, std::min(tab, line.size()) - at - 1);
  const std::string_view first = command.substr(0, command.find(' '));
  const bool runs = command == "Query" || command == "Execute";
  if (!runs && std::find(kOthers.begin(), kOthers.end(), first) == kOthers.end()) {
    return std::nullopt;
  }
  return Entry{tab == kNoPlace ? line.size() : tab + 1, runs};
}

class GeneralLogSplitter final : public LineSplitter {
 public:
  GeneralLogSplitter() : LineSplitter("general query log") {}

 private:
  void Line(std::string_view line) override {
    const std::optional<Entry> entry = EntryAt(line);
    if (!entry) {
      if (IsServerBanner(line)) {
        EndEntry();
        SawEntry();
      }
      return;
    }
    EndEntry();
    SawEntry();
    AddTime(TimeAt(line));
    if (entry->runs) BeginBody(LineBegin() + entry->argument);
  }

  void TakeBody(std::string_view body) override {
    if (!body.empty()) Out().statements.push_back({body, {}});
  }
};

}  // namespace

std::unique_ptr<Splitter> MakeGeneralLogSplitter() {
  return std::make_unique<GeneralLogSplitter>();
}

bool BeginsGeneralLogEntry(std::string_view line) { return EntryAt(line).has_value(); }

}  // namespace tarn::host
