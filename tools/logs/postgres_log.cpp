#include "logs/format_splitters.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logs/line_splitter.h"
#include "logs/postgres_messages.h"
#include "logs/postgres_prefix.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

constexpr std::size_t kNoPlace = std::string_view::npos;

bool IsOneOf(std::string_view word, std::span<const std::string_view> words) noexcept {
  return std::find(words.begin(), words.end(), word) != words.end();
}

constexpr std::array<std::string_view, 12> kSeverities{"LOG",     "ERROR",  "FATAL",  "PANIC",
                                                       "WARNING", "NOTICE", "INFO",   "DEBUG1",
                                                       "DEBUG2",  "DEBUG3", "DEBUG4", "DEBUG5"};
constexpr std::array<std::string_view, 6> kSupplements{"DETAIL",  "HINT",     "QUERY",
                                                       "CONTEXT", "LOCATION", "STATEMENT"};

// The text that syslog adds before a line: "Nov 24 09:05:00 db1 postgres[1234]: [5-1] ".
struct SyslogStamp {
  std::string_view process;
  // The number of the line within its message: "1" in [5-1].
  std::string_view line_number;
};

std::optional<SyslogStamp> TakeSyslogStamp(std::string_view& line) {
  constexpr std::string_view kDigits = "0123456789";
  constexpr std::string_view kMark = "]: [";
  // The stamp is shorter even if the host's name is long.
  constexpr std::size_t kMostLooked = 400;
  const std::size_t mark = line.substr(0, kMostLooked).find(kMark);
  if (mark == kNoPlace) return std::nullopt;
  const std::size_t open = line.rfind('[', mark);
  // If a blank is before "[1234]: [1-1] ", that is the server's own prefix.
  if (open == kNoPlace || open == 0 || line[open - 1] == ' ') return std::nullopt;
  const std::string_view process = line.substr(open + 1, mark - open - 1);
  std::string_view rest = line.substr(mark + kMark.size());
  const std::size_t dash = rest.find_first_not_of(kDigits);
  if (process.find_first_not_of(kDigits) != kNoPlace || dash == kNoPlace || rest[dash] != '-') {
    return std::nullopt;
  }
  rest.remove_prefix(dash + 1);
  const std::size_t end = rest.find_first_not_of(kDigits);
  if (end == kNoPlace || !rest.substr(end).starts_with("] ")) return std::nullopt;
  line = rest.substr(end + 2);
  return SyslogStamp{process, rest.substr(0, end)};
}

// Reads prefixes of the form that a person has given, or of the usual forms.
class PrefixReader {
 public:
  explicit PrefixReader(const std::string& format) {
    // The defaults of the server, of Debian, of Amazon RDS and of Cloud SQL, and forms that are
    // often advised.
    static constexpr std::array<std::string_view, 7> kUsual{
        "%m [%p] ",
        "%m [%p] %q%u@%d ",
        "%t:%r:%u@%d:[%p]:",
        "%m [%p]: [%l-1] db=%d,user=%u ",
        "%t [%p]: [%l-1] user=%u,db=%d,app=%a,client=%h ",
        "%t [%p]: [%l-1] user=%u,db=%d ",
        ""};
    if (!format.empty()) {
      prefixes_.emplace_back(format);
    } else {
      for (const std::string_view usual : kUsual) prefixes_.emplace_back(usual);
    }
  }

  std::optional<std::string_view> Read(std::string_view line, PostgresMessage& message) {
    for (std::size_t tried = 0; tried < prefixes_.size(); ++tried) {
      // The form of the last line is tried first, as lines of one log have one form.
      const std::size_t index = (last_ + tried) % prefixes_.size();
      if (const auto rest = prefixes_[index].Read(line, message)) {
        last_ = index;
        return rest;
      }
      message = {};
    }
    return prefixes_.size() > 1 ? ReadAny(line, message) : std::nullopt;
  }

 private:
  // Reads a prefix of any other form, of which only a time at its start and a process in brackets
  // are used, if they are there: "2026-11-24 09:05:00 shop [1234] ".
  static std::optional<std::string_view> ReadAny(std::string_view line, PostgresMessage& message) {
    constexpr std::size_t kMostLooked = 1000;
    const std::string_view head = line.substr(0, kMostLooked);
    std::size_t mark = 0;
    std::size_t begin = 0;
    for (;; mark += 1) {
      mark = head.find(":  ", mark);
      if (mark == kNoPlace) return std::nullopt;
      begin = mark;
      while (begin > 0 && head[begin - 1] >= '0' && head[begin - 1] <= 'Z') --begin;
      const std::string_view word = head.substr(begin, mark - begin);
      const std::size_t colon = word.rfind(':');
      if (colon != kNoPlace) begin += colon + 1;
      const std::string_view severity = head.substr(begin, mark - begin);
      if (IsOneOf(severity, kSeverities) || IsOneOf(severity, kSupplements)) break;
    }
    std::string_view rest = head.substr(0, begin);
    message.time = TakeLogTime(rest);
    const std::size_t open = rest.find('[');
    const std::size_t close = rest.find(']', std::min(open, rest.size()));
    if (open != kNoPlace && close != kNoPlace) {
      message.session = rest.substr(open + 1, close - open - 1);
    }
    return line.substr(begin);
  }

  std::vector<PostgresPrefix> prefixes_;
  std::size_t last_ = 0;
};

class PostgresLogSplitter final : public LineSplitter {
 public:
  explicit PostgresLogSplitter(const SplitterOptions& options)
      : LineSplitter(options), prefix_(options.prefix), messages_(options.max_statement) {}

  std::string WhyEmpty() const override { return messages_.WhyEmpty(); }

 private:
  // A message of which more lines may follow.
  struct Open {
    PostgresMessage message;
    // The text that the next line continues; null if it is not used, as that of a HINT.
    std::string* target = nullptr;
    bool too_long = false;
  };
  // The open messages by their processes.
  using OpenMessages = std::map<std::string, Open, std::less<>>;

  // No server has more processes at one time.
  static constexpr std::size_t kMostOpen = 10'000;

  void EndInput() override {
    CloseAll();
    messages_.Flush(Out());
  }

  void TakeLine(std::string_view line) override {
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::optional<SyslogStamp> stamp = TakeSyslogStamp(line);
    // A line that begins with a tab continues a message, even if a prefix is in it.
    if (stamp ? stamp->line_number == "1" : !line.starts_with('\t')) {
      PostgresMessage message;
      if (const auto rest = prefix_.Read(line, message)) {
        TakeHead(*rest, std::move(message), stamp);
        return;
      }
    }
    const auto open = stamp ? open_.find(stamp->process) : open_.find(last_);
    if (open == open_.end()) return;
    std::string_view text = line;
    // Syslog writes a tab as "#011".
    constexpr std::string_view kWrittenTab = "#011";
    if (text.starts_with('\t')) {
      Append(open->second, "\n", text.substr(1));
    } else if (stamp && text.starts_with(kWrittenTab)) {
      Append(open->second, "\n", text.substr(kWrittenTab.size()));
    } else if (stamp) {
      TakeSyslogLine(open->second, text);
    }
  }

  // Takes a line of syslog that is not the first of its message: a DETAIL or STATEMENT, or the rest
  // of a long line that syslog has split.
  void TakeSyslogLine(Open& open, std::string_view text) {
    PostgresMessage message;
    const auto rest = prefix_.Read(text, message);
    if (!rest || !TakeSupplement(open, *rest)) Append(open, "", text);
  }

  void TakeHead(std::string_view rest, PostgresMessage&& message,
                const std::optional<SyslogStamp>& stamp) {
    const std::string process(stamp ? stamp->process : message.session);
    const auto known = open_.find(process);
    if (known != open_.end() && TakeSupplement(known->second, rest)) return;
    const std::string_view severity = SeverityAt(rest);
    // Only syslog may mix the lines of several messages.
    if (!stamp || open_.size() >= kMostOpen || open_bytes_ > MaxStatement()) {
      CloseAll();
    } else if (known != open_.end()) {
      Close(known->second);
      open_.erase(known);
    }
    if (IsOneOf(severity, kSupplements)) return;
    if (message.session.empty()) message.session = process;
    message.severity = severity;
    // A server writes "[unknown]" while a client logs in.
    for (std::string* name : {&message.user, &message.database, &message.host}) {
      if (*name == "[unknown]") name->clear();
    }
    Open& open = open_[process];
    open.message = std::move(message);
    open.target = &open.message.text;
    Append(open, "", rest.substr(severity.size() + 3));
    last_ = process;
  }

  // Takes a line such as "DETAIL:  ..." that adds to the message. False if `rest` is another line.
  bool TakeSupplement(Open& open, std::string_view rest) {
    const std::string_view severity = SeverityAt(rest);
    if (!IsOneOf(severity, kSupplements)) return false;
    open.target = severity == "DETAIL"      ? &open.message.detail
                  : severity == "STATEMENT" ? &open.message.statement
                                            : nullptr;
    Append(open, "", rest.substr(severity.size() + 3));
    return true;
  }

  void Append(Open& open, std::string_view before, std::string_view text) {
    if (open.target == nullptr) return;
    if (LineIsCut() || open.target->size() + text.size() > MaxStatement()) {
      open.too_long = true;
      text = {};
    }
    open.target->append(before).append(text);
    open_bytes_ += before.size() + text.size();
  }

  void CloseAll() {
    for (auto& [process, open] : open_) Close(open);
    open_.clear();
    open_bytes_ = 0;
  }

  void Close(const Open& open) {
    if (open.too_long) {
      Out().CountTooLong();
    } else {
      messages_.Take(open.message, Out());
    }
  }

  PrefixReader prefix_;
  PostgresMessages messages_;
  OpenMessages open_;
  std::size_t open_bytes_ = 0;
  // The process of the last message. Lines without a prefix continue that message.
  std::string last_;
};

}  // namespace

std::unique_ptr<Splitter> MakePostgresLogSplitter(const SplitterOptions& options) {
  return std::make_unique<PostgresLogSplitter>(options);
}

bool BeginsPostgresLogEntry(std::string_view line) {
  if (line.find(":  ") == kNoPlace) return false;
  const bool syslog = TakeSyslogStamp(line).has_value();
  if (!syslog && !LogTimeAt(line)) return false;
  PostgresMessage message;
  return PrefixReader({}).Read(line, message).has_value();
}

}  // namespace tarn::host
