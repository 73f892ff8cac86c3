#include "tarn_host/input/log_splitter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "tarn_host/input/dialect.h"

namespace tarn::host {
namespace {

constexpr std::size_t kNoPlace = std::string_view::npos;

// Whether `text` begins as `pattern` does, in which "9" stands for a digit.
bool BeginsLike(std::string_view text, std::string_view pattern) noexcept {
  return text.size() >= pattern.size() &&
         std::equal(pattern.begin(), pattern.end(), text.begin(),
                    [](char p, char c) { return p == '9' ? IsDigit(c) : p == c; });
}

// Takes the number at the start of `text` away from it; nothing when there is none or it is not
// finite or negative.
template <typename Number>
std::optional<Number> TakeNumber(std::string_view& text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  if constexpr (std::is_floating_point_v<Number>) {
    if (!std::isfinite(number) || std::signbit(number)) return std::nullopt;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// The number behind "`name`: " in a line of a header.
template <typename Number>
std::optional<Number> NumberNamed(std::string_view line, std::string_view name) {
  const std::size_t at = line.find(name);
  if (at == kNoPlace) return std::nullopt;
  std::string_view rest = Trimmed(line.substr(at + name.size()));
  return TakeNumber<Number>(rest);
}

constexpr std::string_view kIsoTime = "9999-99-99T99:99:99";
constexpr std::string_view kSpacedTime = "9999-99-99 99:99:99";

// The time at the start of `text`, "2026-11-24T09:05:00", "2026-11-24 09:05:00" or "261124
// 9:05:00", as Found has it; empty when there is none.
std::string TimeAt(std::string_view text) {
  if (BeginsLike(text, kIsoTime) || BeginsLike(text, kSpacedTime)) {
    std::string time(text.substr(0, kIsoTime.size()));
    time[10] = ' ';
    return time;
  }
  const bool two_digits = BeginsLike(text, "999999 99:99:99");
  if (!two_digits && !BeginsLike(text, "999999  9:99:99")) return {};
  std::string time = "20";
  time.append(text.substr(0, 2)).append("-").append(text.substr(2, 2)).append("-");
  time.append(text.substr(4, 2)).append(" ").append(text.substr(7, 8));
  if (!two_digits) time[11] = '0';
  return time;
}

// Goes through the lines of a log. An entry lasts from the place that BeginEntry gives to the line
// that ends it.
class LineSplitter : public Splitter {
 public:
  explicit LineSplitter(const char* name) : name_(name) {}

  std::size_t Split(std::string_view text, bool last, Found& found) final {
    text_ = text;
    found_ = &found;
    empty_ = empty_ && text.empty();
    while (line_begin_ < text.size()) {
      const std::size_t end = text.find('\n', std::max(line_begin_, searched_));
      if (end == kNoPlace && !last) break;
      const std::size_t line_end = std::min(end, text.size());
      std::string_view line = text.substr(line_begin_, line_end - line_begin_);
      if (line.ends_with('\r')) line.remove_suffix(1);
      next_line_ = std::min(line_end + 1, text.size());
      Line(line);
      line_begin_ = next_line_;
    }
    if (last) EndEntry();
    searched_ = text.size();
    const std::size_t done = std::min(body_begin_, line_begin_);
    line_begin_ -= done;
    searched_ -= done;
    if (body_begin_ != kNoPlace) body_begin_ -= done;
    return done;
  }

  std::string Problem() const final {
    return any_entry_ || empty_ ? std::string() : std::string("holds no entry of a ") + name_;
  }

 protected:
  // Looks at the line that begins at LineBegin().
  virtual void Line(std::string_view line) = 0;
  // Takes the entry's text, from the place where it began up to the line, if there is one.
  virtual void TakeBody(std::string_view body) = 0;

  std::size_t LineBegin() const noexcept { return line_begin_; }
  Found& Out() const noexcept { return *found_; }
  void SawEntry() noexcept { any_entry_ = true; }

  bool HasBody() const noexcept { return body_begin_ != kNoPlace; }
  std::string_view Body() const noexcept {
    return Trimmed(text_.substr(body_begin_, line_begin_ - body_begin_));
  }
  void BeginBody(std::size_t at) noexcept { body_begin_ = at; }
  void EndEntry() {
    if (HasBody()) TakeBody(Body());
    body_begin_ = kNoPlace;
  }

 private:
  const char* name_;
  std::string_view text_;
  Found* found_ = nullptr;
  std::size_t body_begin_ = kNoPlace;
  std::size_t line_begin_ = 0;
  std::size_t next_line_ = 0;
  // How much of the text is known to hold no further line's end.
  std::size_t searched_ = 0;
  bool any_entry_ = false;
  bool empty_ = true;
};

// What the server prints when it starts.
bool IsServerBanner(std::string_view line) noexcept {
  return line.starts_with("Tcp port:") || line.starts_with("TCP Port:") ||
         ((line.starts_with("Time ") || line.starts_with("Time\t")) &&
          line.find(" Command") != kNoPlace) ||
         (line.find(", Version: ") != kNoPlace && line.find("started with:") != kNoPlace);
}

class SlowLogSplitter final : public LineSplitter {
 public:
  SlowLogSplitter() : LineSplitter("slow query log") {}

 private:
  static constexpr std::string_view kTime = "# Time: ";
  static constexpr std::string_view kUser = "# User@Host: ";
  static constexpr std::string_view kQueryTime = "# Query_time: ";
  static constexpr std::string_view kCommand = "# administrator command: ";

  void Line(std::string_view line) override {
    const bool within = HasBody() && !statement_ended_;
    const bool header = line.starts_with(kTime) || line.starts_with(kUser) ||
                        line.starts_with(kQueryTime) || line.starts_with(kCommand) ||
                        (!within && IsOtherHeader(line));
    if (header) {
      EndEntry();
      Header(line);
    } else if (!within && IsServerBanner(line)) {
      EndEntry();
      SawEntry();
      in_entry_ = false;
    } else if (in_entry_ && (HasBody() || !IsPreamble(line))) {
      if (!HasBody()) BeginBody(LineBegin());
      line = Trimmed(line);
      if (!line.empty()) statement_ended_ = line.ends_with(';');
    }
  }

  void Header(std::string_view line) {
    if (line.starts_with(kTime)) {
      Out().AddTime(TimeAt(Trimmed(line.substr(kTime.size()))));
    }
    // The first of the lines that an entry has, whichever of them are left.
    if (line.starts_with(kTime) || line.starts_with(kUser)) measures_ = {};
    if (line.starts_with(kQueryTime)) {
      measures_ = {NumberNamed<double>(line, "Query_time: "),
                   NumberNamed<std::uint64_t>(line, " Rows_sent: ").value_or(0),
                   NumberNamed<std::uint64_t>(line, " Rows_examined: ").value_or(0)};
    }
    in_entry_ = true;
    SawEntry();
    if (line.starts_with(kCommand)) {
      // As it stands, but for the sign that makes it a comment.
      std::string_view command = Trimmed(line.substr(2));
      if (command.ends_with(';')) command.remove_suffix(1);
      Add(command);
      in_entry_ = false;
    }
  }

  // "# Thread_id: 5  Schema: shop" and the like.
  static bool IsOtherHeader(std::string_view line) noexcept {
    if (!line.starts_with("# ")) return false;
    const std::size_t end = std::min(EndOfName(line, 2), line.size());
    return end > 2 && line.substr(end).starts_with(": ");
  }

  static std::size_t EndOfName(std::string_view line, std::size_t at) noexcept {
    while (at < line.size() && IsWord(line[at])) ++at;
    return at;
  }

  static bool IsPreamble(std::string_view line) noexcept {
    line = Trimmed(line);
    // More of the header, such as "#   InnoDB_IO_r_ops: 0", may come before it.
    if (line.empty() || line.starts_with('#')) return true;
    if (!line.ends_with(';')) return false;
    return line.starts_with("use ") || line.starts_with("SET timestamp=") ||
           line.starts_with("SET last_insert_id=") || line.starts_with("SET insert_id=");
  }

  void TakeBody(std::string_view body) override {
    if (IsRoutine(body)) {
      if (body.ends_with(';')) body.remove_suffix(1);
      Add(body);
      return;
    }
    Found parts;
    MakeSqlSplitter(Dialect::kMysql)->Split(body, true, parts);
    for (const FoundStatement& part : parts.statements) Add(part.text);
  }

  // Whether semicolons belong to the statement's own text.
  static bool IsRoutine(std::string_view body) {
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

  void Add(std::string_view statement) {
    Out().statements.push_back({statement, std::exchange(measures_, {})});
  }

  // From the header until a statement takes them.
  Measures measures_;
  bool in_entry_ = false;
  // Whether the entry's text ends with a semicolon so far.
  bool statement_ended_ = false;
};

class GeneralLogSplitter final : public LineSplitter {
 public:
  GeneralLogSplitter() : LineSplitter("general query log") {}

  // Whether `line` begins an entry; then where what the command names begins in it, and whether the
  // command runs a statement.
  struct Entry {
    std::size_t argument;
    bool runs;
  };
  static std::optional<Entry> EntryAt(std::string_view line) {
    // Every command but Query and Execute; "Init DB" and the like are told by their first word.
    static constexpr std::array<std::string_view, 34> kOthers{
        "Binlog",      "Bulk_execute", "Change",    "Close",    "Connect",      "Create",
        "Daemon",      "Debug",        "Delayed",   "Drop",     "Error",        "Fetch",
        "Field",       "Init",         "Kill",      "Long",     "Ping",         "Prepare",
        "Processlist", "Quit",         "Refresh",   "Register", "Reset",        "Set",
        "Shutdown",    "Slave_IO",     "Slave_SQL", "Sleep",    "Slave_worker", "Statistics",
        "Subscribe",   "Table",        "Time",      "clone"};
    std::size_t at = 0;
    if (!TimeAt(line).empty()) {
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
    Out().AddTime(TimeAt(line));
    if (entry->runs) BeginBody(LineBegin() + entry->argument);
  }

  void TakeBody(std::string_view body) override {
    if (!body.empty()) Out().statements.push_back({body, {}});
  }
};

class CsvLogSplitter final : public Splitter {
 public:
  std::size_t Split(std::string_view text, bool last, Found& found) override {
    empty_ = empty_ && text.empty();
    std::size_t begin = 0;
    for (; position_ < text.size(); ++position_) {
      if (in_quotes_) {
        // A record may have lost its end.
        position_ = std::min(text.find_first_of("\"\n", position_), text.size());
        if (position_ == text.size()) break;
        if (text[position_] == '"') {
          in_quotes_ = false;
          continue;
        }
        const std::string_view next = text.substr(position_ + 1);
        if (next.size() < kRecordBegin.size() && !last) break;
        if (!BeginsLike(next, kRecordBegin)) continue;
        ++damaged_;
      } else {
        position_ = std::min(text.find_first_of("\"\n", position_), text.size());
        if (position_ == text.size()) break;
        if (text[position_] == '"') {
          in_quotes_ = true;
          continue;
        }
        Record(text.substr(begin, position_ - begin), found);
      }
      in_quotes_ = false;
      begin = position_ + 1;
    }
    if (last) {
      if (begin < text.size()) {
        if (in_quotes_) {
          ++damaged_;
        } else {
          Record(text.substr(begin), found);
        }
      }
      FlushWaiting(found);
      begin = text.size();
    }
    position_ -= begin;
    return begin;
  }

  std::string Problem() const override {
    if (!any_record_ && !empty_) return "holds no entry of a PostgreSQL CSV log";
    if (damaged_ == 0) return {};
    return std::to_string(damaged_) + (damaged_ == 1 ? " record is" : " records are") +
           " damaged and left out";
  }

 private:
  static constexpr std::string_view kRecordBegin = "9999-99-99 99:99:99.999 ";
  enum Column : std::size_t { kLogTime = 0, kSession = 5, kSeverity = 11, kMessage = 13 };
  // Of the oldest version that is read; later ones have added some behind.
  static constexpr std::size_t kFewestColumns = 23;
  // More sessions than a server has at one time.
  static constexpr std::size_t kMostWaiting = 10'000;

  void Record(std::string_view record, Found& found) {
    if (Trimmed(record).empty()) return;
    if (!ReadFields(record) || !BeginsLike(fields_[kLogTime], kSpacedTime)) {
      ++damaged_;
      return;
    }
    any_record_ = true;
    found.AddTime(TimeAt(fields_[kLogTime]));
    if (fields_[kSeverity] == "LOG") Message(fields_[kMessage], fields_[kSession], found);
  }

  // False when the record has too few columns.
  bool ReadFields(std::string_view record) {
    std::size_t count = 0;
    for (std::size_t at = 0; at <= record.size(); ++count) {
      if (count == fields_.size()) fields_.emplace_back();
      std::string& field = fields_[count];
      field.clear();
      while (at < record.size() && record[at] == '"') {
        // A doubled quote shows as a text that follows at once.
        const std::size_t end = std::min(record.find('"', at + 1), record.size());
        field.append(record.substr(at + 1, end - at - 1));
        at = end + 1;
        if (at < record.size() && record[at] == '"') field += '"';
      }
      const std::size_t comma = at < record.size() ? record.find(',', at) : kNoPlace;
      if (at < record.size()) field.append(record.substr(at, std::min(comma, record.size()) - at));
      at = comma == kNoPlace ? record.size() + 1 : comma + 1;
    }
    return count >= kFewestColumns;
  }

  void Message(std::string_view message, const std::string& session, Found& found) {
    std::optional<double> seconds;
    constexpr std::string_view kDuration = "duration: ";
    if (message.starts_with(kDuration)) {
      message.remove_prefix(kDuration.size());
      const auto milliseconds = TakeNumber<double>(message);
      constexpr std::string_view kUnit = " ms";
      if (!milliseconds || !message.starts_with(kUnit)) return;
      constexpr double kMillisecondsPerSecond = 1000;
      seconds = *milliseconds / kMillisecondsPerSecond;
      message.remove_prefix(kUnit.size());
      if (message.empty()) {
        const auto waiting = waiting_.find(session);
        if (waiting == waiting_.end()) return;
        Add(std::move(waiting->second), seconds, found);
        waiting_.erase(waiting);
        return;
      }
      constexpr std::string_view kGap = "  ";
      if (!message.starts_with(kGap)) return;
      message.remove_prefix(kGap.size());
    }
    const std::optional<std::string_view> statement = StatementIn(message);
    if (!statement) return;
    if (seconds) {
      Add(std::string(*statement), seconds, found);
      return;
    }
    std::string& waiting = waiting_[session];
    if (!waiting.empty()) Add(std::move(waiting), {}, found);
    waiting = *statement;
    if (waiting_.size() > kMostWaiting) FlushWaiting(found);
  }

  static std::optional<std::string_view> StatementIn(std::string_view message) {
    constexpr std::string_view kStatement = "statement: ";
    constexpr std::string_view kExecute = "execute ";
    std::size_t begin = kStatement.size();
    if (!message.starts_with(kStatement)) {
      if (!message.starts_with(kExecute)) return std::nullopt;
      const std::size_t colon = message.find(": ");
      if (colon == kNoPlace) return std::nullopt;
      begin = colon + 2;
    }
    return Trimmed(message.substr(begin));
  }

  static void Add(std::string statement, std::optional<double> seconds, Found& found) {
    const std::string& owned = found.owned.emplace_back(std::move(statement));
    found.statements.push_back({owned, {seconds, 0, 0}});
  }

  void FlushWaiting(Found& found) {
    for (auto& [session, statement] : waiting_) Add(std::move(statement), {}, found);
    waiting_.clear();
  }

  std::size_t position_ = 0;
  bool in_quotes_ = false;
  bool any_record_ = false;
  bool empty_ = true;
  std::uint64_t damaged_ = 0;
  std::vector<std::string> fields_;
  // By session: the statement whose duration may follow.
  std::map<std::string, std::string> waiting_;
};

}  // namespace

std::unique_ptr<Splitter> MakeSlowLogSplitter() { return std::make_unique<SlowLogSplitter>(); }

std::unique_ptr<Splitter> MakeGeneralLogSplitter() {
  return std::make_unique<GeneralLogSplitter>();
}

std::unique_ptr<Splitter> MakeCsvLogSplitter() { return std::make_unique<CsvLogSplitter>(); }

const LogKind* RecognizedLog(std::string_view head) {
  static constexpr LogKind kSlow{"a slow query log", "slowlog"};
  static constexpr LogKind kGeneral{"a general query log", "general"};
  static constexpr LogKind kCsv{"a PostgreSQL CSV log", "csvlog"};
  // A banner and a cut line may come before.
  constexpr int kLines = 6;
  for (int line_number = 0; line_number < kLines && !head.empty(); ++line_number) {
    const std::size_t end = std::min(head.find('\n'), head.size());
    const std::string_view line = head.substr(0, end);
    head.remove_prefix(std::min(end + 1, head.size()));
    if (line.starts_with("# Time: ") || line.starts_with("# User@Host: ") ||
        line.starts_with("# Query_time: ")) {
      return &kSlow;
    }
    if (GeneralLogSplitter::EntryAt(line)) return &kGeneral;
    if (BeginsLike(line, "9999-99-99 99:99:99.999 ") && line.find(',') != kNoPlace) return &kCsv;
  }
  return nullptr;
}

}  // namespace tarn::host
