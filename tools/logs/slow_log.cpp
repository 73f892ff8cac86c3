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
    if (!value.ends_with(':')) take(name, value);
  }
}

std::string_view TakeWord(std::string_view& text) noexcept {
  const auto* const end = std::find_if_not(text.begin(), text.end(), IsWord);
  return TakeBytes(text, static_cast<std::size_t>(end - text.begin()));
}

// Whether `line` is a header such as "# Thread_id: 5  Schema: shop".
bool IsHeader(std::string_view line) noexcept {
  if (!TakePrefix(line, "# ")) return false;
  return line.starts_with(kUser.substr(2)) || line.starts_with(kCommand.substr(2)) ||
         (!TakeWord(line).empty() && line.starts_with(": "));
}

// Whether semicolons may be within the statement, for example in the body of CREATE PROCEDURE.
bool IsRoutine(std::string_view body) {
  if (!EqualIgnoringCase(TakeWord(body), "create")) return false;
  for (body = body.substr(0, body.find_first_of("(;")); !body.empty();) {
    body.remove_prefix(1);
    const std::string_view word = TakeWord(body);
    for (const char* kind : {"procedure", "function", "trigger", "event"}) {
      if (EqualIgnoringCase(word, kind)) return true;
    }
  }
  return false;
}

class SlowLogSplitter final : public LineSplitter {
  // The values of an entry's header.
  struct Entry {
    // Without texts. The first statement gets it.
    Execution execution;
    std::string user;
    std::string host;
    std::string schema;
    std::string error;
    bool any_measures = false;
    bool any_timestamp = false;
    // The line "use shop". It is the statement if no other one follows.
    std::string use;
  };
  enum class State { kOutside, kHeader, kStatement };

  bool IsBetweenEntries() const noexcept { return !HasBody() || statement_ended_; }

  void TakeLine(std::string_view line) override {
    const std::string_view bare = WithoutHole(line);
    if (IsBetweenEntries()) {
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
    statement_ended_ = false;
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
      const std::optional<LogTime> time = LogTimeAt(Trimmed(line));
      if (time) time_ = time;
      if (!time) ++Out().summary.impossible_times;
      TakeTime(time);
    } else if (TakePrefix(line, kUser)) {
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
    entry_.execution.time = time;
    WidenSpan(Out().first_time, Out().last_time, time);
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
    if (name == "Schema") entry_.schema = value;
    if (name == "Errno" || name == "Last_errno") entry_.error = value == "0" ? "" : value;
  }

  // Takes a line that the server writes between the header and the statement, such as
  // "SET timestamp=5;". False if `line` is another one.
  bool TakePreamble(std::string_view line) {
    // Other header lines are not used: "#   InnoDB_IO_r_ops: 0"
    if (line.empty() || line.starts_with('#')) return true;
    if (!line.ends_with(';')) return false;
    line.remove_suffix(1);
    // If "use" follows the timestamp, it is the statement and not the server's own line.
    if (line.starts_with("use ") && !entry_.any_timestamp) {
      entry_.use = line;
      std::string_view name = Trimmed(line.substr(4));
      if (name.size() >= 2 && name.starts_with('`') && name.ends_with('`')) {
        name = name.substr(1, name.size() - 2);
      }
      used_database_ = name;
      return true;
    }
    if (TakePrefix(line, "SET timestamp=")) {
      entry_.any_timestamp = true;
      TakeTimestamp(line);
      return true;
    }
    return line.starts_with("SET last_insert_id=") || line.starts_with("SET insert_id=");
  }

  // Takes the time of the statement's start. If the entry has a "# Time:" too, their difference is
  // the offset of the log's clock. Otherwise the entry gets its timestamp by that clock.
  void TakeTimestamp(std::string_view value) {
    constexpr std::int64_t kZoneStep = 900'000'000;
    std::optional<LogTime> time = TakeEpochTime(value);
    if (!time || !value.empty()) {
      ++Out().summary.impossible_times;
    } else if (entry_.execution.time) {
      // The server writes "# Time:" after the statement.
      const double taken = entry_.execution.seconds.value_or(0) * 1e6;
      const std::int64_t ahead = entry_.execution.time->wall_microseconds -
                                 time->wall_microseconds - static_cast<std::int64_t>(taken);
      clock_ahead_ = (ahead + kZoneStep / 2) / kZoneStep * kZoneStep;
    } else {
      time->wall_microseconds += clock_ahead_;
      if (time_) time->offset_seconds = time_->offset_seconds;
      TakeTime(time);
    }
  }

  void TakeBody(std::string_view body) override {
    // The most statements of an entry, which has one in practice. Without a limit a batch would
    // grow with the semicolons of a hostile entry.
    constexpr std::size_t kMostStatements = 1'000;
    const bool one = IsRoutine(body) || body.find(';') >= body.size() - 1;
    // A statement after a comment needs the splitter, which drops the comment.
    constexpr std::string_view kComments = "/-#";
    if (one && kComments.find(body.front()) == kNoPlace) {
      if (body.ends_with(';')) body.remove_suffix(1);
      return Add(Trimmed(body));
    }
    const auto splitter = MakeSqlSplitter({});
    constexpr std::size_t kPiece = std::size_t{64} * 1024;
    Found parts;
    std::size_t done = 0;
    for (std::size_t end = 0; end < body.size() && parts.statements.size() <= kMostStatements;) {
      end = std::min(body.size(), end + kPiece);
      done += splitter->Split(body.substr(done, end - done), end == body.size(), parts);
    }
    if (parts.statements.size() > kMostStatements) {
      ++Out().summary.damaged;
      parts.statements.resize(kMostStatements);
    }
    for (const FoundStatement& part : parts.statements) Add(part.text);
  }

  void Add(std::string_view statement) {
    if (statement.empty()) return;
    Execution execution = std::exchange(entry_.execution, {});
    if (!execution.time) execution.time = time_;
    execution.user = Out().Share(&Execution::user, entry_.user);
    execution.host = Out().Share(&Execution::host, entry_.host);
    execution.database =
        Out().Share(&Execution::database, entry_.schema.empty() ? used_database_ : entry_.schema);
    execution.error = Out().Own(std::exchange(entry_.error, {}));
    Out().Add(statement, execution);
  }

  State state_ = State::kOutside;
  Entry entry_;
  // Whether the entry's last line so far ends with a semicolon.
  bool statement_ended_ = false;
  // The database of the last "use", which the server writes if another database is used.
  std::string used_database_;
  // The last "# Time:", which older servers leave out within the same second.
  std::optional<LogTime> time_;
  // The microseconds by which the log's clock is ahead of UTC.
  std::int64_t clock_ahead_ = 0;
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
