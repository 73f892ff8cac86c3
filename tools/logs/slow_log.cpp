#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "logs/formats.h"
#include "logs/line_splitter.h"
#include "logs/scan.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

constexpr std::size_t kNoPlace = std::string_view::npos;
constexpr std::string_view kTime = "# Time: ";
constexpr std::string_view kUser = "# User@Host: ";
constexpr std::string_view kQueryTime = "# Query_time: ";
constexpr std::string_view kCommand = "# administrator command: ";

// Calls `take` with each name and value of a header line: "# Schema: shop  QC_hit: No" ->
// take("Schema", "shop"), take("QC_hit", "No").
template <typename Take>
void ForEachField(std::string_view line, const Take& take) {
  for (std::size_t colon = line.find(": "); colon != kNoPlace; colon = line.find(": ")) {
    const std::size_t blank = line.substr(0, colon).rfind(' ');
    const std::string_view name = line.substr(blank + 1, colon - blank - 1);
    line.remove_prefix(colon + 2);
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::string_view value = Trimmed(line.substr(0, line.find(' ')));
    // A value may be missing, as that of Schema in "Schema:   Last_errno: 0".
    take(name, value.ends_with(':') ? std::string_view() : value);
  }
}

// Whether `line` is a header such as "# Thread_id: 5  Schema: shop".
bool IsHeader(std::string_view line) noexcept {
  if (!TakePrefix(line, "# ")) return false;
  if (line.starts_with(kUser.substr(2)) || line.starts_with(kCommand.substr(2))) return true;
  const std::string_view name = TakeBytes(line, line.find(": "));
  return !name.empty() && !line.empty() && std::all_of(name.begin(), name.end(), IsWord);
}

// Whether `line` is one that the server writes before each statement, which begins
// "SET timestamp=5;" or "SET last_insert_id=1,insert_id=2,timestamp=5;".
bool SetsVariables(std::string_view line) noexcept {
  return Trimmed(line).ends_with(';') && TakePrefix(line, "SET ") &&
         (line.starts_with("timestamp=") || line.starts_with("last_insert_id=") ||
          line.starts_with("insert_id="));
}

class SlowLogSplitter final : public LineSplitter {
  // The values of an entry's header.
  struct Entry {
    // Without texts. The first statement gets it.
    Execution execution;
    std::string user;
    std::string host;
    // Empty if the session has no database, and null if the header does not name it.
    std::optional<std::string> schema;
    std::string error;
    bool any_measures = false;
    bool any_timestamp = false;
    // Whether the lines up to "SET timestamp=" explain or warn.
    bool in_remarks = false;
    // The line "use shop". It is the statement if no other one follows.
    std::string use;
  };
  enum class State { kOutside, kHeader, kStatement };

  bool IsBetweenEntries() const noexcept { return !HasBody() || statement_ended_; }

  void TakeLine(std::string_view line) override {
    const std::string_view bare = WithoutHole(line);
    if (IsBetweenEntries()) {
      // MariaDB quotes values of the statement in these lines.
      const bool remark = bare.starts_with("# explain: ") || Trimmed(bare) == "# Warnings";
      entry_.in_remarks =
          state_ == State::kHeader && (entry_.in_remarks || remark) && !SetsVariables(bare);
      if (entry_.in_remarks) return;
      if (IsHeader(bare)) {
        if (bare.starts_with(kCommand)) entry_.use.clear();
        EndEntry();
        TakeHeader(bare);
        return;
      }
      if (IsServerBanner(bare)) {
        EndEntry();
        state_ = State::kOutside;
        used_database_.clear();
        time_.reset();
        return;
      }
      // The end of the input may have cut a header.
      if (!LineEnded() && bare.starts_with('#')) return EndBody();
      if (state_ == State::kOutside || (!HasBody() && TakePreamble(Trimmed(bare)))) return;
    }
    if (!HasBody()) BeginBody(bare);
    state_ = State::kStatement;
    TakeMore(line);
  }

  void TakeMore(std::string_view piece) override {
    piece = Trimmed(piece);
    if (!piece.empty()) statement_ended_ = piece.ends_with(';');
  }

  void EndInput() override {
    const bool whole = HasBody() ? statement_ended_ : state_ != State::kHeader;
    EndEntry();
    LineSplitter::EndInput();
    if (!whole) Out().summary.problem = "ends within an entry";
  }

  void EndEntry() {
    EndBody();
    if (state_ == State::kHeader) Add(Out().Own(std::exchange(entry_.use, {})));
  }

  void TakeHeader(std::string_view line) {
    const bool measures = line.starts_with(kQueryTime);
    // A server may leave out each kind of header line, so that each may be an entry's first.
    if (state_ != State::kHeader || line.starts_with(kTime) ||
        (entry_.any_measures && (measures || line.starts_with(kUser)))) {
      entry_ = {};
      state_ = State::kHeader;
      ++Out().summary.entries;
    }
    if (TakePrefix(line, kTime)) {
      TakeTime(LogTimeAt(Trimmed(line)));
      // Percona's server may write both on one line.
      line.remove_prefix(std::min(line.find(kUser), line.size()));
    }
    if (TakePrefix(line, kUser)) {
      TakeUser(line);
    } else if (line.starts_with(kCommand)) {
      // "# administrator command: Ping;" -> "administrator command: Ping"
      line = Trimmed(line.substr(2));
      if (line.ends_with(';')) line.remove_suffix(1);
      Add(line);
      state_ = State::kOutside;
    } else {
      entry_.any_measures = entry_.any_measures || measures;
      ForEachField(line, [this](auto name, auto value) { TakeField(name, value); });
    }
  }

  void TakeTime(const std::optional<LogTime>& time) {
    if (time) entry_.execution.time = time_ = time;
    if (!time) ++Out().summary.impossible_times;
  }

  // "shop[shop] @ web [10.0.0.1]  Id:     8" -> user "shop", host "web"
  void TakeUser(std::string_view line) {
    const std::size_t at = line.find(" @ ");
    if (at == kNoPlace) return;
    const std::string_view user = TakeBytes(line, at);
    entry_.user = Trimmed(user.substr(0, user.find('[')));
    line.remove_prefix(3);
    const std::string_view name = Trimmed(TakeBytes(line, line.find('[')));
    TakePrefix(line, "[");
    entry_.host = name.empty() ? line.substr(0, line.find(']')) : name;
  }

  void TakeField(std::string_view name, std::string_view value) {
    if (name == "Schema") entry_.schema = value;
    if (value.empty()) return;
    std::string_view rest = value;
    const auto seconds = [&] {
      return Out().PossibleSeconds(TakeNumber<double>(rest).value_or(-1));
    };
    const auto count = [&] { return TakeNumber<std::uint64_t>(rest); };
    if (name == "Query_time") entry_.execution.seconds = seconds();
    if (name == "Lock_time") entry_.execution.lock_seconds = seconds();
    if (name == "Rows_sent") entry_.execution.rows_sent = count();
    if (name == "Rows_examined") entry_.execution.rows_examined = count();
    if (name == "Rows_affected") entry_.execution.rows_affected = count();
    if (name == "Errno" || name == "Last_errno") entry_.error = value == "0" ? "" : value;
  }

  // Takes a line that the server writes between the header and the statement, such as
  // "SET timestamp=5;". False if `line` is another one.
  bool TakePreamble(std::string_view line) {
    // Other header lines are not used: "#   InnoDB_IO_r_ops: 0"
    if (line.empty() || line.starts_with('#')) return true;
    // If "use" follows the timestamp, it is the statement and not the server's own line.
    if (line.starts_with("use ") && line.ends_with(';') && !entry_.any_timestamp) {
      line.remove_suffix(1);
      entry_.use = line;
      std::string_view name = Trimmed(line.substr(4));
      if (TakePrefix(name, "`") && name.ends_with('`')) name.remove_suffix(1);
      used_database_ = name;
      entry_.schema.reset();
      return true;
    }
    if (!SetsVariables(line)) return false;
    std::string_view value = line.substr(std::min(line.find("timestamp="), line.size()));
    if (!TakePrefix(value, "timestamp=")) return true;
    entry_.any_timestamp = true;
    std::optional<LogTime> time = TakeEpochTime(value);
    if (value != ";") time.reset();
    // So that all times of a log are comparable, it counts more than a "# Time:" without a zone.
    const std::optional<LogTime>& written = entry_.execution.time;
    if (!time || !written || !written->offset_seconds) TakeTime(time);
    return true;
  }

  void TakeBody(std::string_view body) override {
    SplitPacket(body, Out(), [this](std::string_view statement) { Add(statement); });
  }

  void Add(std::string_view statement) {
    if (statement.empty()) return;
    Execution execution = std::exchange(entry_.execution, {});
    execution.time = time_;
    WidenSpan(Out().first_time, Out().last_time, execution.time);
    execution.user = Out().Share(&Execution::user, entry_.user);
    execution.host = Out().Share(&Execution::host, entry_.host);
    execution.database = Out().Share(&Execution::database, entry_.schema.value_or(used_database_));
    execution.error = Out().Own(std::exchange(entry_.error, {}));
    Out().Add(statement, execution);
  }

  State state_ = State::kOutside;
  Entry entry_;
  // Whether the entry's last line so far ends with a semicolon.
  bool statement_ended_ = false;
  // The database of the last "use", which the server writes if another database is used.
  std::string used_database_;
  // The last time of an entry. Older servers leave it out within the same second.
  std::optional<LogTime> time_;
};

}  // namespace

std::unique_ptr<Splitter> MakeSlowLogSplitter(const SplitterOptions& /*options*/) {
  return std::make_unique<SlowLogSplitter>();
}

bool BeginsSlowLogEntry(std::string_view line) {
  if (TakePrefix(line, kTime)) return LogTimeAt(line).has_value();
  if (line.starts_with(kUser)) return line.find(" @ ") != kNoPlace;
  return line.starts_with(kQueryTime) && line.find("Lock_time: ") != kNoPlace;
}

bool IsServerBanner(std::string_view line) noexcept {
  return line.starts_with("Tcp port:") || line.starts_with("TCP Port:") ||
         ((line.starts_with("Time ") || line.starts_with("Time\t")) &&
          line.find(" Command") != kNoPlace) ||
         (Trimmed(line).ends_with("started with:") && line.find(", Version: ") != kNoPlace);
}

}  // namespace tarn::host
