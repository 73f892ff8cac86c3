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

#include "logs/formats.h"
#include "logs/line_splitter.h"
#include "logs/postgres_messages.h"
#include "logs/scan.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

constexpr std::size_t kNoPlace = std::string_view::npos;

constexpr std::array<std::string_view, 12> kSeverities{"LOG",     "ERROR",  "FATAL",  "PANIC",
                                                       "WARNING", "NOTICE", "INFO",   "DEBUG1",
                                                       "DEBUG2",  "DEBUG3", "DEBUG4", "DEBUG5"};
// The words before the lines that add to a message.
constexpr std::array<std::string_view, 6> kSupplements{"DETAIL",  "HINT",     "QUERY",
                                                       "CONTEXT", "LOCATION", "STATEMENT"};

bool IsOneOf(std::string_view word, std::span<const std::string_view> words) noexcept {
  return std::find(words.begin(), words.end(), word) != words.end();
}

bool IsCapital(char c) noexcept { return IsDigit(c) || (c >= 'A' && c <= 'Z'); }

// The word before ":  " at the start of `text`, in any language: "LOG:  ready" -> "LOG"; empty if
// there is none.
std::string_view SeverityAt(std::string_view text) noexcept {
  constexpr std::size_t kLongest = 40;
  const std::string_view head = text.substr(0, kLongest);
  const auto* const end = std::find_if_not(head.begin(), head.end(),
                                           [](char c) { return IsCapital(c) || (c & 0x80) != 0; });
  const std::string_view word = TakeBytes(text, static_cast<std::size_t>(end - head.begin()));
  return text.starts_with(":  ") ? word : std::string_view();
}

// The size of a field at the start of `line` that ends at the `next` literal, if that is in it. The
// last field ends at the first one that a severity follows: "%u@%d " reads "a" and "b c" in
// "a@b c LOG:  x".
std::size_t SizeOfText(std::string_view line, std::string_view next, bool is_last) {
  if (next.empty()) return std::min(line.find(' '), line.size());
  std::size_t size = line.find(next);
  while (is_last && size != kNoPlace && SeverityAt(line.substr(size + next.size())).empty()) {
    size = line.find(next, size + 1);
  }
  return size;
}

// Removes the value of a field of log_line_prefix from `line`. `rest` is the prefix after the
// field. False if there is no such value.
bool TakeField(char field, std::string_view rest, std::string_view& line,
               PostgresMessage& message) {
  if (field == 's') return TakeLogTime(line).has_value();
  if (field == 'm' || field == 't' || field == 'n') {
    message.time = field == 'n' ? TakeEpochTime(line) : TakeLogTime(line);
    return message.time.has_value();
  }
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  if (field == 'p' || field == 'l') {
    const std::string_view number = TakeDigits(line);
    if (field == 'p') message.session = number;
    return !number.empty();
  }
  // Values such as "client backend" and "CREATE TABLE" hold a blank.
  if (field == 'b' || field == 'i') {
    for (const char* word : {"client ", "parallel ", "idle in ", "CREATE ", "ALTER ", "DROP "}) {
      TakePrefix(line, word);
    }
  }
  const std::string_view next = rest.substr(0, rest.find('%'));
  const std::size_t size = SizeOfText(line, next, next.size() == rest.size());
  const std::string_view value = Trimmed(TakeBytes(line, size));
  if (field == 'u') message.user = value;
  // The prefix in the server's manual adds the application: "orders/psql" -> "orders"
  if (field == 'd') message.database = value.substr(0, value.find('/'));
  // "10.0.0.1(5678)" -> "10.0.0.1"
  if (field == 'h' || field == 'r') message.host = value.substr(0, value.find('('));
  if (field == 'c') message.session = value;
  if (field == 'e') message.sqlstate = value;
  if (field == 'Q') message.query_id = value;
  return true;
}

// Reads the start of `line` by a log_line_prefix such as "%m [%p] %q%u@%d " into `message`, which
// has no other fields yet. Returns the rest, which begins with a severity, or nothing if the line
// begins in another way; `message` may have some fields then.
std::optional<std::string_view> ReadPrefix(std::string_view prefix, std::string_view line,
                                           PostgresMessage& message) {
  while (!prefix.empty()) {
    if (!TakePrefix(prefix, "%") || prefix.starts_with('%')) {
      if (!TakePrefix(line, TakeBytes(prefix, 1))) return std::nullopt;
      continue;
    }
    // A field may have a width to which it is padded: "%-10u".
    TakePrefix(prefix, "-");
    TakeDigits(prefix);
    if (prefix.empty()) break;
    const char field = TakeBytes(prefix, 1)[0];
    if (field != 'q') {
      if (!TakeField(field, prefix, line, message)) return std::nullopt;
    } else if (!SeverityAt(line).empty()) {
      // A process without a session ends its prefix here.
      break;
    }
  }
  return SeverityAt(line).empty() ? std::nullopt : std::optional(line);
}

// Reads a prefix of an unknown form, of which only the first time and the first process in brackets
// are used, if they are there: "shop 2026-11-24 09:05:00 UTC [1234] ".
std::optional<std::string_view> ReadAnyPrefix(std::string_view line, PostgresMessage& message) {
  constexpr std::size_t kMostLooked = 1000;
  const std::string_view head = line.substr(0, kMostLooked);
  for (std::size_t mark = head.find(":  "); mark != kNoPlace; mark = head.find(":  ", mark + 1)) {
    std::size_t begin = mark;
    while (begin > 0 && IsCapital(head[begin - 1])) --begin;
    const std::string_view severity = head.substr(begin, mark - begin);
    if (!IsOneOf(severity, kSeverities) && !IsOneOf(severity, kSupplements)) continue;
    for (std::size_t i = 0; i < begin; ++i) {
      std::string_view rest = head.substr(i, begin - i);
      if (!message.time && IsDigit(rest[0]) && (i == 0 || !IsDigit(head[i - 1]))) {
        const bool epoch = BeginsLike(rest, "9999999999.999");
        message.time = epoch ? TakeEpochTime(rest) : TakeLogTime(rest);
      } else if (message.session.empty() && TakePrefix(rest, "[")) {
        const std::string_view id = TakeDigits(rest);
        if (rest.starts_with(']')) message.session = id;
      }
    }
    return line.substr(begin);
  }
  return std::nullopt;
}

// As ReadPrefix, for prefixes of the usual forms and, if it is none of them, of any other form.
std::optional<std::string_view> ReadUsualPrefix(std::string_view line, PostgresMessage& message) {
  // The default of Debian, which fits that of the server, too, then those of Amazon RDS, of Azure
  // and of Cloud SQL, and forms that are often advised.
  for (const char* prefix :
       {"%m [%p] %q%u@%d ", "%t:%r:%u@%d:[%p]:", "%t-%c-", "%m [%p]: [%l-1] db=%d,user=%u ",
        "%t [%p]: [%l-1] user=%u,db=%d,app=%a,client=%h ", "%t [%p]: [%l-1] user=%u,db=%d "}) {
    if (const auto rest = ReadPrefix(prefix, line, message)) return rest;
    message = {};
  }
  return ReadAnyPrefix(line, message);
}

// The text that syslog adds before a line: "Nov 24 09:05:00 db1 postgres[1234]: [5-1] ".
struct SyslogStamp {
  std::optional<LogTime> time = {};
  std::string_view process = {};
  // The number of the line within its message: "2" in [5-2]. Syslog may leave out all numbers.
  std::string_view line_number = "1";
};

std::optional<SyslogStamp> TakeSyslogStamp(std::string_view& line) {
  // The stamp is shorter even if the host's name is long, and a severity comes after it.
  constexpr std::size_t kMostLooked = 400;
  std::string_view head = line.substr(0, kMostLooked);
  head = head.substr(0, head.find(":  "));
  const std::size_t mark = head.find("]: ");
  if (mark == kNoPlace || line.starts_with('\t')) return std::nullopt;
  const std::size_t open = head.rfind('[', mark);
  // If a blank is before "[1234]: ", that is the server's own prefix.
  if (open == kNoPlace || open == 0 || line[open - 1] == ' ') return std::nullopt;
  // Older forms of the time have no year and are not used.
  SyslogStamp stamp{.time = LogTimeAt(line)};
  std::string_view rest = line.substr(open + 1);
  stamp.process = TakeDigits(rest);
  if (stamp.process.empty() || !TakePrefix(rest, "]: ")) return std::nullopt;
  line = rest;
  if (TakePrefix(rest, "[") && !TakeDigits(rest).empty() && TakePrefix(rest, "-")) {
    const std::string_view number = TakeDigits(rest);
    if (!TakePrefix(rest, "] ")) return stamp;
    stamp.line_number = number;
    line = rest;
  }
  return stamp;
}

class PostgresLogSplitter final : public LineSplitter {
 public:
  explicit PostgresLogSplitter(std::string prefix) : prefix_(std::move(prefix)) {}

 private:
  // A message of which more lines may follow.
  struct Open {
    PostgresMessage message;
    // The text that the next line continues; null if it is not used, as that of a HINT.
    std::string* target = nullptr;
    bool too_long = false;
  };

  // No server has more processes at one time.
  static constexpr std::size_t kMostOpen = 10'000;

  void EndInput() override {
    CloseAll();
    LineSplitter::EndInput();
    messages_.Flush(Out());
  }

  void TakeLine(std::string_view line) override {
    line = WithoutHole(line);
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::optional<SyslogStamp> stamp = TakeSyslogStamp(line);
    PostgresMessage message;
    std::optional<std::string_view> head;
    // A line that begins with a tab continues a message, even if a prefix is in it. Syslog writes
    // the tab as "#011".
    std::string_view text = line;
    const bool continues = TakePrefix(text, "\t") || (stamp && TakePrefix(text, "#011"));
    if (!continues) {
      head = prefix_.empty() ? ReadUsualPrefix(line, message) : ReadPrefix(prefix_, line, message);
    }
    if (stamp && !message.time) message.time = stamp->time;
    const std::string process(stamp ? stamp->process : head ? message.session : last_);
    const auto open = open_.find(process);
    const bool supplement = head && IsOneOf(SeverityAt(*head), kSupplements);
    if (open != open_.end() && supplement) {
      BeginText(open->second, *head);
    } else if (head && (!stamp || stamp->line_number == "1")) {
      // Only syslog may mix the lines of several messages.
      if (!stamp || open_.size() >= kMostOpen || open_bytes_ > Out().max_statement) {
        CloseAll();
      } else if (open != open_.end()) {
        Close(open->second);
        open_.erase(open);
      }
      if (!supplement) Begin(process, *head, std::move(message));
    } else if (open != open_.end() && (continues || stamp)) {
      // Syslog splits a long line, and the rest of it begins without a tab.
      Append(open->second, continues ? "\n" : "", text);
    }
  }

  void Begin(const std::string& process, std::string_view head, PostgresMessage&& message) {
    message.session = process;
    message.severity = SeverityAt(head);
    // A server writes "[unknown]" while a client logs in.
    for (std::string* name : {&message.user, &message.database, &message.host}) {
      if (*name == "[unknown]") name->clear();
    }
    Open& open = open_[process];
    open.message = std::move(message);
    BeginText(open, head);
    last_ = process;
  }

  // Begins a text of the message with the rest of a line such as "DETAIL:  ...".
  void BeginText(Open& open, std::string_view head) {
    const std::string_view word = SeverityAt(head);
    open.target = word == "DETAIL"              ? &open.message.detail
                  : word == "STATEMENT"         ? &open.message.statement
                  : IsOneOf(word, kSupplements) ? nullptr
                                                : &open.message.text;
    head.remove_prefix(word.size() + 3);
    // With log_error_verbosity = verbose an SQLSTATE comes first: "ERROR:  42703: no x".
    if (open.target == &open.message.text && head.substr(0, 7).find(": ") == 5 &&
        std::all_of(head.begin(), head.begin() + 5, IsCapital)) {
      open.message.sqlstate = TakeBytes(head, 5);
      head.remove_prefix(2);
    }
    Append(open, "", head);
  }

  void Append(Open& open, std::string_view before, std::string_view text) {
    if (open.target == nullptr) return;
    if (LineIsCut() || open.target->size() + text.size() > Out().max_statement) {
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

  void Close(Open& open) {
    if (open.too_long) return Out().CountTooLong();
    messages_.Take(std::move(open.message), Out());
  }

  const std::string prefix_;
  PostgresMessages messages_;
  // By process.
  std::map<std::string, Open> open_;
  std::size_t open_bytes_ = 0;
  // The process of the last message. Lines without a prefix continue that message.
  std::string last_;
};

}  // namespace

std::unique_ptr<Splitter> MakePostgresLogSplitter(const SplitterOptions& options) {
  return std::make_unique<PostgresLogSplitter>(options.prefix);
}

bool BeginsPostgresLogEntry(std::string_view line) {
  if (line.starts_with('\t') || line.find(":  ") == kNoPlace) return false;
  const bool stamped = TakeSyslogStamp(line).has_value();
  PostgresMessage message;
  const auto head = ReadUsualPrefix(line, message);
  // Any text may hold "LOG:  ".
  return head &&
         (stamped || message.time || !message.session.empty() || head->size() == line.size());
}

}  // namespace tarn::host
