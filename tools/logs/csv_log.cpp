#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
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
// The oldest version that is read has 23 columns, and no version has 64.
constexpr std::size_t kFewestColumns = 23;
constexpr std::size_t kMostColumns = 64;

// The texts of the columns that are used, by the columns' indexes; null for the others.
constexpr auto kColumns = [] {
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

// Removes a record's time from `line`: "2026-11-24 09:05:00.123 UTC,".
std::optional<LogTime> TakeRecordTime(std::string_view& line) {
  if (!BeginsLike(line, "9999-99-99 99:99:99.999 ")) return std::nullopt;
  const std::optional<LogTime> time = TakeLogTime(line);
  return TakePrefix(line, ",") ? time : std::nullopt;
}

// Whether `line` begins a record for sure, and is not in a text within another record. Within a
// text a quote is doubled or is the last byte. So a quote before any other byte begins a column:
// 2026-11-24 09:05:00.123 UTC,"shop"
bool BeginsRecordForSure(std::string_view line) {
  // The columns before the first quoted one are shorter.
  constexpr std::size_t kMostLooked = 512;
  constexpr std::string_view kNoContent = "\",\r";
  const std::size_t quote = line.substr(0, kMostLooked).find('"');
  if (quote == kNoPlace || quote + 1 == line.size() ||
      kNoContent.find(line[quote + 1]) != kNoPlace) {
    return false;
  }
  const std::string_view before = line.substr(0, quote);
  // The columns of the user, the database, the address, the command and the message.
  constexpr std::array<std::ptrdiff_t, 5> kQuoted{1, 2, 4, 7, 13};
  const auto column = std::count(before.begin(), before.end(), ',');
  line = before;
  return TakeRecordTime(line) && std::find(kQuoted.begin(), kQuoted.end(), column) != kQuoted.end();
}

class CsvLogSplitter final : public LineSplitter {
  void TakeLine(std::string_view line) override {
    if (HasBody() && !in_quotes_) EndBody();
    const std::string_view bare = WithoutHole(line);
    if ((HasBody() || lost_) && BeginsRecordForSure(bare)) {
      // The record before this line has lost its end.
      if (HasBody()) ++Out().summary.damaged;
      DropBody();
      lost_ = false;
    }
    if (lost_ || (!HasBody() && Trimmed(bare).empty())) return;
    if (!HasBody()) {
      BeginBody(bare);
      in_quotes_ = false;
    }
    TakeMore(line);
  }

  void TakeMore(std::string_view piece) override {
    if (std::count(piece.begin(), piece.end(), '"') % 2 == 1) in_quotes_ = !in_quotes_;
  }

  void TakeBody(std::string_view record) override {
    PostgresMessage message;
    lost_ = !ReadRecord(record, message);
    if (!lost_) return messages_.Take(std::move(message), Out());
    ++Out().summary.damaged;
  }

  void EndInput() override {
    const bool cut = HasBody() && in_quotes_;
    LineSplitter::EndInput();
    if (lost_ && (cut || !LineEnded())) Out().summary.problem = "ends within an entry";
    messages_.Flush(Out());
  }

  // False if the record is damaged.
  static bool ReadRecord(std::string_view record, PostgresMessage& message) {
    std::string_view columns = record;
    message.time = TakeRecordTime(columns);
    if (!message.time || !ReadColumns(record, message)) return false;
    // "10.0.0.1:5678" -> "10.0.0.1"
    std::string& host = message.host;
    const std::size_t colon = host.rfind(':');
    if (colon != kNoPlace && host.find_first_not_of("0123456789", colon + 1) == kNoPlace) {
      host.resize(colon);
    }
    return true;
  }

  // False if the record is not valid CSV, or has too few columns or too many.
  static bool ReadColumns(std::string_view rest, PostgresMessage& message) {
    std::string unused;
    for (std::size_t column = 0; column < kMostColumns; ++column) {
      std::string& text = kColumns[column] != nullptr ? message.*kColumns[column] : unused;
      if (rest.starts_with('"')) {
        do {
          rest.remove_prefix(1);
          const std::size_t size = rest.find('"');
          if (size == kNoPlace) return false;
          text += TakeBytes(rest, size);
          rest.remove_prefix(1);
          // A doubled quote is one quote within the text.
          if (rest.starts_with('"')) text += '"';
        } while (rest.starts_with('"'));
      } else {
        text = TakeBytes(rest, rest.find(','));
        if (text.find('"') != kNoPlace) return false;
      }
      if (rest.empty()) return column + 1 >= kFewestColumns;
      if (!TakePrefix(rest, ",")) return false;
    }
    return false;
  }

  PostgresMessages messages_;
  // Whether the body, which has begun, has an open quote.
  bool in_quotes_ = false;
  // Whether a record was damaged. If so, the bytes after it may be within quotes or not.
  bool lost_ = false;
};

}  // namespace

std::unique_ptr<Splitter> MakeCsvLogSplitter(const SplitterOptions& /*options*/) {
  return std::make_unique<CsvLogSplitter>();
}

bool BeginsCsvLogRecord(std::string_view line) { return TakeRecordTime(line).has_value(); }

}  // namespace tarn::host
