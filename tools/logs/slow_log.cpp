#include "logs/format_splitters.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "logs/line_splitter.h"
#include "sql/dialect.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

constexpr std::size_t kNoPlace = std::string_view::npos;
constexpr std::string_view kTime = "# Time: ";
constexpr std::string_view kUser = "# User@Host: ";
constexpr std::string_view kQueryTime = "# Query_time: ";
constexpr std::string_view kCommand = "# administrator command: ";
constexpr std::string_view kSetTimestamp = "SET timestamp=";

template <typename Number>
std::optional<Number> NumberIn(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

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

std::size_t EndOfName(std::string_view line, std::size_t at) noexcept {
  while (at < line.size() && IsWord(line[at])) ++at;
  return at;
}

// Whether `line` is a header such as "# Thread_id: 5  Schema: shop".
bool IsOtherHeader(std::string_view line) noexcept {
  if (!line.starts_with("# ")) return false;
  const std::size_t end = EndOfName(line, 2);
  return end > 2 && line.substr(end).starts_with(": ");
}

// Whether semicolons may be within the statement, for example in the body of CREATE PROCEDURE.
bool IsRoutine(std::string_view body) {
  constexpr std::string_view kCreate = "create";
  if (!EqualIgnoringCase(body.substr(0, kCreate.size()), kCreate)) return false;
  const std::string_view head = body.substr(0, body.find_first_of("(;"));
  for (std::size_t at = 0; at < head.size();) {
    const std::size_t end = EndOfName(head, at);
    const std::string_view word = head.substr(at, end - at);
    for (const char* kind : {"procedure", "function", "trigger", "event"}) {
      if (EqualIgnoringCase(word, kind)) return true;
    }
    at = end + 1;
  }
  return false;
}

class SlowLogSplitter final : public LineSplitter {
 public:
  using LineSplitter::LineSplitter;

 private:
  // The most statements of an entry, which has one in practice. Without a limit a batch would grow
  // with the semicolons of a hostile entry.
  static constexpr std::size_t kMostStatements = 1'000;

  bool IsBetweenEntries() const override { return !HasBody() || statement_ended_; }

  bool MayBeginEntry(std::string_view line) const override {
    return statement_ended_ && line.starts_with('#');
  }

  std::string WhyCut(bool line_ended) const override {
    const bool whole = HasBody() ? statement_ended_ : state_ != State::kHeader;
    return whole ? LineSplitter::WhyCut(line_ended) : "ends within an entry";
  }

  void TakeLine(std::string_view line) override {
    if (IsBetweenEntries()) {
      if (IsHeader(line)) {
        if (line.starts_with(kCommand)) used_.clear();
        EndEntry();
        TakeHeader(line);
        return;
      }
      if (IsServerBanner(line)) {
        EndEntry();
        state_ = State::kOutside;
        used_database_.clear();
        return;
      }
      if (state_ == State::kOutside || (!HasBody() && TakePreamble(line))) return;
    }
    if (state_ == State::kOutside) return;
    if (!HasBody()) BeginBody(0);
    state_ = State::kStatement;
    TakeEndOfLongLine(line);
  }

  void TakeEndOfLongLine(std::string_view end) override {
    end = Trimmed(end);
    if (!end.empty()) statement_ended_ = end.ends_with(';');
  }

  void EndInput() override { EndEntry(); }

  void EndEntry() {
    EndBody();
    statement_ended_ = false;
    if (state_ == State::kHeader && !used_.empty()) Add(Out().owned.emplace_back(used_));
    used_.clear();
  }

  static bool IsHeader(std::string_view line) noexcept {
    return line.starts_with('#') &&
           (line.starts_with(kTime) || line.starts_with(kUser) || line.starts_with(kQueryTime) ||
            line.starts_with(kCommand) || IsOtherHeader(line));
  }

  void TakeHeader(std::string_view line) {
    if (state_ != State::kHeader || line.starts_with(kTime)) BeginHeader();
    if (line.starts_with(kTime)) {
      std::string_view rest = Trimmed(line.substr(kTime.size()));
      execution_.time = TakeLogTime(rest);
      if (execution_.time) {
        Out().AddTime(execution_.time);
        time_ = execution_.time;
      } else {
        ++Out().impossible_times;
      }
    } else if (line.starts_with(kUser)) {
      if (any_measures_) BeginHeader();
      TakeUser(line.substr(kUser.size()));
    } else if (line.starts_with(kCommand)) {
      // "# administrator command: Ping;" -> "administrator command: Ping"
      std::string_view command = Trimmed(line.substr(2));
      if (command.ends_with(';')) command.remove_suffix(1);
      Add(command);
      state_ = State::kOutside;
    } else {
      if (line.starts_with(kQueryTime) && any_measures_) BeginHeader();
      ForEachField(
          line, [this](std::string_view name, std::string_view value) { TakeField(name, value); });
    }
  }

  // Begins an entry at its first header line. A server may leave out each kind of header line.
  void BeginHeader() {
    execution_ = {};
    any_measures_ = any_timestamp_ = false;
    schema_.clear();
    user_.clear();
    host_.clear();
    state_ = State::kHeader;
    ++Out().entries;
  }

  // "shop[shop] @ web [10.0.0.1]  Id:     8" -> user "shop", host "web"
  void TakeUser(std::string_view line) {
    const std::size_t at = line.find(" @ ");
    if (at == kNoPlace) return;
    const std::string_view user = line.substr(0, at);
    user_ = Trimmed(user.substr(0, user.find('[')));
    line.remove_prefix(at + 3);
    const std::size_t bracket = std::min(line.find('['), line.size());
    const std::string_view name = Trimmed(line.substr(0, bracket));
    const std::string_view address = line.substr(std::min(bracket + 1, line.size()));
    host_ = name.empty() ? address.substr(0, address.find(']')) : name;
  }

  void TakeField(std::string_view name, std::string_view value) {
    if (name == "Query_time") {
      any_measures_ = true;
      execution_.seconds = Out().PossibleSeconds(NumberIn<double>(value).value_or(-1));
    } else if (name == "Lock_time") {
      execution_.lock_seconds = Out().PossibleSeconds(NumberIn<double>(value).value_or(-1));
    } else if (name == "Rows_sent") {
      execution_.rows_sent = NumberIn<std::uint64_t>(value);
    } else if (name == "Rows_examined") {
      execution_.rows_examined = NumberIn<std::uint64_t>(value);
    } else if (name == "Rows_affected") {
      execution_.rows_affected = NumberIn<std::uint64_t>(value);
    } else if (name == "Schema") {
      schema_ = value;
    } else if (name == "Errno" || name == "Last_errno") {
      error_ = value == "0" ? "" : value;
    }
  }

  // Takes a line that the server writes between the header and the statement, such as
  // "SET timestamp=5;". False if `line` is another one.
  bool TakePreamble(std::string_view line) {
    line = Trimmed(line);
    // Other header lines are not used: "#   InnoDB_IO_r_ops: 0"
    if (line.empty() || line.starts_with('#')) return true;
    if (!line.ends_with(';')) return false;
    constexpr std::string_view kUse = "use ";
    // If "use" follows the timestamp, it is the statement and not the server's own line.
    if (line.starts_with(kUse) && !any_timestamp_) {
      used_ = line.substr(0, line.size() - 1);
      std::string_view name = Trimmed(std::string_view(used_).substr(kUse.size()));
      if (name.size() >= 2 && name[0] == '`' && name.ends_with('`')) {
        name = name.substr(1, name.size() - 2);
      }
      used_database_ = name;
      return true;
    }
    if (line.starts_with(kSetTimestamp)) {
      any_timestamp_ = true;
      TakeTimestamp(line.substr(kSetTimestamp.size(), line.size() - kSetTimestamp.size() - 1));
      return true;
    }
    return line.starts_with("SET last_insert_id=") || line.starts_with("SET insert_id=");
  }

  // Takes seconds since 1970 in UTC. If an entry has a "# Time:" too, their difference is the
  // offset of the log's clock. An entry without "# Time:" gets its timestamp by that clock.
  void TakeTimestamp(std::string_view value) {
    constexpr std::int64_t kMicroseconds = 1'000'000;
    constexpr std::int64_t kMost = 253'402'300'799;  // 9999-12-31 23:59:59
    constexpr std::int64_t kZoneStep = 900;
    const auto seconds = NumberIn<std::int64_t>(value.substr(0, value.find('.')));
    if (!seconds || *seconds < 0 || *seconds > kMost) {
      ++Out().impossible_times;
      return;
    }
    if (execution_.time) {
      const std::int64_t ahead = execution_.time->wall_microseconds / kMicroseconds - *seconds;
      // The server writes the time after the statement, but the timestamp is that of its start.
      const auto taken = static_cast<std::int64_t>(execution_.seconds.value_or(0));
      zone_seconds_ = (ahead - taken + kZoneStep / 2) / kZoneStep * kZoneStep;
      return;
    }
    execution_.time = LogTime{(*seconds + zone_seconds_) * kMicroseconds, 0};
    if (time_) {
      execution_.time->offset_seconds = time_->offset_seconds;
    }
    Out().AddTime(execution_.time);
  }

  void TakeBody(std::string_view body) override {
    used_.clear();
    const std::size_t semicolon = body.find(';');
    if (IsRoutine(body) || semicolon == kNoPlace || semicolon + 1 == body.size()) {
      if (body.ends_with(';')) body.remove_suffix(1);
      // A statement after a comment needs the splitter, which drops the comment.
      if (body.empty() || (body[0] != '/' && body[0] != '-' && body[0] != '#')) {
        Add(Trimmed(body));
        return;
      }
    }
    const auto splitter = MakeSqlSplitter({.max_statement = MaxStatement()});
    constexpr std::size_t kPiece = std::size_t{64} * 1024;
    std::size_t done = 0;
    std::size_t statements = 0;
    for (std::size_t end = 0; end < body.size() && statements < kMostStatements;) {
      end = std::min(body.size(), end + kPiece);
      Found parts;
      done += splitter->Split(body.substr(done, end - done), end == body.size(), parts);
      for (const FoundStatement& part : parts.statements) {
        if (++statements <= kMostStatements) Add(part.text);
      }
    }
    if (statements > kMostStatements) ++Out().damaged;
  }

  void Add(std::string_view statement) {
    if (statement.empty()) return;
    if (!execution_.time && time_) execution_.time = time_;
    execution_.user = Out().Share(&Execution::user, user_);
    execution_.host = Out().Share(&Execution::host, host_);
    execution_.database =
        Out().Share(&Execution::database, schema_.empty() ? used_database_ : schema_);
    if (!error_.empty()) execution_.error = Out().owned.emplace_back(std::exchange(error_, {}));
    Out().statements.push_back({statement, std::exchange(execution_, {})});
  }

  enum class State { kOutside, kHeader, kStatement };

  State state_ = State::kOutside;
  // The values of the header, until a statement gets them.
  Execution execution_;
  bool any_measures_ = false;
  bool any_timestamp_ = false;
  std::string error_;
  std::string user_;
  std::string host_;
  std::string schema_;
  // The database of the last "use", which the server writes if another database is used.
  std::string used_database_;
  // The "use" line of the entry. It is the statement if no other one follows.
  std::string used_;
  // The last "# Time:", which older servers leave out within the same second.
  std::optional<LogTime> time_;
  std::int64_t zone_seconds_ = 0;
  // Whether the entry's last line so far ends with a semicolon.
  bool statement_ended_ = false;
};

}  // namespace

std::unique_ptr<Splitter> MakeSlowLogSplitter(const SplitterOptions& options) {
  return std::make_unique<SlowLogSplitter>(options);
}

bool BeginsSlowLogEntry(std::string_view line) {
  if (line.starts_with(kTime)) return LogTimeAt(line.substr(kTime.size())).has_value();
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
