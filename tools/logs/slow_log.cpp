#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "logs/log_lines.h"
#include "logs/log_splitter.h"
#include "logs/splitter.h"
#include "logs/sql_splitter.h"
#include "sql/dialect.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// The number behind "`name`: " in a line of a header.
template <typename Number>
std::optional<Number> NumberNamed(std::string_view line, std::string_view name) {
  const std::size_t at = line.find(name);
  if (at == kNoPlace) return std::nullopt;
  std::string_view rest = Trimmed(line.substr(at + name.size()));
  return TakeNumber<Number>(rest);
}

constexpr std::string_view kTime = "# Time: ";
constexpr std::string_view kUser = "# User@Host: ";
constexpr std::string_view kQueryTime = "# Query_time: ";

class SlowLogSplitter final : public LineSplitter {
 public:
  SlowLogSplitter() : LineSplitter("slow query log") {}

 private:
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
      AddTime(TimeAt(Trimmed(line.substr(kTime.size()))));
    }
    // The first of the lines that an entry has, whichever of them are left.
    if (line.starts_with(kTime) || line.starts_with(kUser)) measures_ = {};
    if (line.starts_with(kQueryTime)) {
      measures_ = {.seconds = NumberNamed<double>(line, "Query_time: "),
                   .rows_sent = NumberNamed<std::uint64_t>(line, " Rows_sent: "),
                   .rows_examined = NumberNamed<std::uint64_t>(line, " Rows_examined: ")};
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
    const std::size_t end = EndOfName(line, 2);
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
  Execution measures_;
  bool in_entry_ = false;
  // Whether the entry's text ends with a semicolon so far.
  bool statement_ended_ = false;
};

}  // namespace

std::unique_ptr<Splitter> MakeSlowLogSplitter() { return std::make_unique<SlowLogSplitter>(); }

bool BeginsSlowLogEntry(std::string_view line) noexcept {
  return line.starts_with(kTime) || line.starts_with(kUser) || line.starts_with(kQueryTime);
}

}  // namespace tarn::host
