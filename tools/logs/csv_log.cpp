#include "logs/format_splitters.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "logs/postgres_messages.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

constexpr std::size_t kNoPlace = std::string_view::npos;

// Removes a record's time and the comma after it from `line`: "2026-11-24 09:05:00.123 UTC,".
std::optional<LogTime> TakeRecordTime(std::string_view& line) {
  constexpr std::string_view kPattern = "9999-99-99 99:99:99.999 ";
  if (!BeginsLike(line, kPattern)) return std::nullopt;
  const std::optional<LogTime> time = TakeLogTime(line);
  constexpr std::size_t kLongestZone = 40;
  const std::size_t comma = line.substr(0, kLongestZone).find(',');
  if (!time || comma == kNoPlace) return std::nullopt;
  line.remove_prefix(comma + 1);
  return time;
}

// As find_first_of, which is slow if the next `a` or `b` is near.
std::size_t FindEither(std::string_view text, char a, char b, std::size_t from) noexcept {
  while (from < text.size() && text[from] != a && text[from] != b) ++from;
  return from;
}

enum class Start { kNo, kYes, kUndecided };

// Whether `rest` begins with a record for sure, and not with a text within another record. Within a
// text a quote is doubled or is the last byte. So a quote before any other byte begins a column:
// 2026-11-24 09:05:00.123 UTC,"shop"
Start BeginsRecordForSure(std::string_view rest, bool last) {
  constexpr std::string_view kPattern = "9999-99-99 99:99:99.999 ";
  // The columns before the first quoted one are shorter.
  constexpr std::size_t kMostLooked = 512;
  const Start unknown = last ? Start::kNo : Start::kUndecided;
  if (!BeginsLike(rest, kPattern.substr(0, rest.size()))) return Start::kNo;
  if (rest.size() < kPattern.size()) return unknown;
  const std::size_t stop = rest.substr(0, kMostLooked).find_first_of("\"\n");
  if (stop == kNoPlace) return rest.size() >= kMostLooked ? Start::kNo : unknown;
  if (stop + 1 == rest.size()) return unknown;
  constexpr std::string_view kNoContent = "\",\r\n";
  if (rest[stop] == '\n' || kNoContent.find(rest[stop + 1]) != kNoPlace) {
    return Start::kNo;
  }
  const std::string_view before = rest.substr(0, stop);
  std::string_view line = before;
  if (!TakeRecordTime(line)) return Start::kNo;
  // The columns of the user, the database, the address, the command and the message.
  constexpr std::array<std::ptrdiff_t, 5> kQuoted{1, 2, 4, 7, 13};
  const auto column = std::count(before.begin(), before.end(), ',');
  return std::find(kQuoted.begin(), kQuoted.end(), column) != kQuoted.end() ? Start::kYes
                                                                            : Start::kNo;
}

class CsvLogSplitter final : public Splitter {
 public:
  explicit CsvLogSplitter(const SplitterOptions& options)
      : max_statement_(options.max_statement), messages_(options.max_statement) {}

  std::size_t Split(std::string_view text, bool last, Found& found) override {
    record_begin_ = 0;
    while (position_ < text.size()) {
      if (at_line_begin_ && !BeginLine(text, last, found)) break;
      position_ = FindEither(text, '\n', lost_ ? '\n' : '"', position_);
      if (position_ == text.size()) break;
      if (text[position_++] == '"') {
        in_quotes_ = !in_quotes_;
        continue;
      }
      at_line_begin_ = true;
      if (in_quotes_) continue;
      if (too_long_) {
        found.CountTooLong();
      } else if (!lost_ &&
                 !TakeRecord(text.substr(record_begin_, position_ - 1 - record_begin_), found)) {
        ++found.damaged;
        lost_ = true;
      }
      too_long_ = false;
      record_begin_ = position_;
    }
    if (last) {
      Finish(text.substr(record_begin_), found);
      record_begin_ = text.size();
    } else if (lost_ || position_ - record_begin_ > max_statement_) {
      too_long_ = !lost_;
      record_begin_ = position_;
    }
    position_ -= record_begin_;
    return record_begin_;
  }

  std::string Problem() const override { return problem_; }
  std::string WhyEmpty() const override { return messages_.WhyEmpty(); }

 private:
  // The oldest version that is read has 23 columns, and no version has 64.
  static constexpr std::size_t kFewestColumns = 23;
  static constexpr std::size_t kMostColumns = 64;
  // The texts of the columns that are used, by the columns' indexes; null for the others.
  static constexpr auto kColumns = [] {
    std::array<std::string PostgresMessage::*, kMostColumns> columns{};
    columns[1] = &PostgresMessage::user;
    columns[2] = &PostgresMessage::database;
    columns[4] = &PostgresMessage::host;
    columns[5] = &PostgresMessage::session;
    columns[11] = &PostgresMessage::severity;
    columns[12] = &PostgresMessage::sqlstate;
    columns[13] = &PostgresMessage::text;
    columns[14] = &PostgresMessage::detail;
    columns[19] = &PostgresMessage::statement;
    columns[25] = &PostgresMessage::query_id;
    return columns;
  }();

  // Looks at the line that begins at the position. False if bytes that have not arrived decide.
  bool BeginLine(std::string_view text, bool last, Found& found) {
    if (in_quotes_ || lost_) {
      const Start start = BeginsRecordForSure(text.substr(position_), last);
      if (start == Start::kUndecided) return false;
      if (start == Start::kYes) {
        // The record before this line has lost its end.
        if (in_quotes_) ++found.damaged;
        in_quotes_ = lost_ = too_long_ = false;
        record_begin_ = position_;
      }
    } else if (text[position_] == '\0') {
      // If a file is emptied while its server writes, it begins with NUL bytes.
      position_ = record_begin_ = std::min(text.find_first_not_of('\0', position_), text.size());
      return position_ < text.size();
    }
    at_line_begin_ = false;
    return true;
  }

  void Finish(std::string_view rest, Found& found) {
    if (too_long_ || (!lost_ && !Trimmed(rest).empty())) {
      const bool whole = !too_long_ && !in_quotes_ && TakeRecord(rest, found);
      problem_ =
          whole ? "ends within a line, so that its last entry may be cut" : "ends within an entry";
    }
    messages_.Flush(found);
  }

  // False if the record is damaged.
  bool TakeRecord(std::string_view record, Found& found) {
    if (Trimmed(record).empty()) return true;
    if (record.ends_with('\r')) record.remove_suffix(1);
    message_ = {};
    std::string_view columns = record;
    message_.time = TakeRecordTime(columns);
    if (!message_.time || !ReadColumns(record)) return false;
    // "10.0.0.1:5678" -> "10.0.0.1"
    std::string& host = message_.host;
    const std::size_t colon = host.rfind(':');
    if (colon != kNoPlace && host.find_first_not_of("0123456789", colon + 1) == kNoPlace) {
      host.resize(colon);
    }
    messages_.Take(message_, found);
    return true;
  }

  // False if the record is not valid CSV, or has too few columns or too many.
  bool ReadColumns(std::string_view record) {
    std::size_t count = 0;
    for (std::size_t at = 0; at <= record.size(); ++count) {
      if (count == kMostColumns) return false;
      std::string& field = kColumns[count] != nullptr ? message_.*kColumns[count] : unused_;
      if (at == record.size() || record[at] != '"') {
        const std::size_t end = FindEither(record, ',', '"', at);
        if (end < record.size() && record[end] == '"') return false;
        field.assign(record.substr(at, end - at));
        at = end + 1;
        continue;
      }
      field.clear();
      do {
        const std::size_t end = record.find('"', at + 1);
        if (end == kNoPlace) return false;
        field.append(record.substr(at + 1, end - at - 1));
        at = end + 1;
        // A doubled quote is one quote within the text.
        if (at < record.size() && record[at] == '"') field += '"';
      } while (at < record.size() && record[at] == '"');
      if (at < record.size() && record[at] != ',') return false;
      ++at;
    }
    return count >= kFewestColumns;
  }

  const std::size_t max_statement_;
  PostgresMessages messages_;
  // The index in the text from which reading goes on, and that at which the record begins.
  std::size_t position_ = 0;
  std::size_t record_begin_ = 0;
  bool at_line_begin_ = true;
  bool in_quotes_ = false;
  // Whether a record was damaged. If so, the bytes after it may be within quotes or not.
  bool lost_ = false;
  // Whether the first bytes of the record are dropped.
  bool too_long_ = false;
  std::string problem_;
  PostgresMessage message_;
  // Takes the columns that are not used.
  std::string unused_;
};

}  // namespace

std::unique_ptr<Splitter> MakeCsvLogSplitter(const SplitterOptions& options) {
  return std::make_unique<CsvLogSplitter>(options);
}

bool BeginsCsvLogRecord(std::string_view line) { return TakeRecordTime(line).has_value(); }

}  // namespace tarn::host
