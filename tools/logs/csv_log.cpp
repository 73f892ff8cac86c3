#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logs/log_lines.h"
#include "logs/log_splitter.h"
#include "logs/splitter.h"
#include "sql/dialect.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

constexpr std::string_view kRecordBegin = "9999-99-99 99:99:99.999 ";

class CsvLogSplitter final : public Splitter {
 public:
  std::size_t Split(std::string_view text, bool last, Found& found) override {
    empty_ = empty_ && text.empty();
    std::size_t begin = 0;
    for (; position_ < text.size(); ++position_) {
      position_ = std::min(text.find_first_of("\"\n", position_), text.size());
      if (position_ == text.size()) break;
      if (text[position_] == '"') {
        in_quotes_ = !in_quotes_;
        continue;
      }
      if (in_quotes_) {
        // A record may have lost its end.
        const std::string_view next = text.substr(position_ + 1);
        if (next.size() < kRecordBegin.size() && !last) break;
        if (!BeginsLike(next, kRecordBegin)) continue;
        ++damaged_;
      } else {
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
    if (const auto time = TimeAt(fields_[kLogTime])) {
      ExtendSpan(found.first_time, found.last_time, *time);
    };
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
    found.statements.push_back({owned, {.seconds = seconds}});
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

std::unique_ptr<Splitter> MakeCsvLogSplitter() { return std::make_unique<CsvLogSplitter>(); }

bool BeginsCsvLogRecord(std::string_view line) noexcept {
  return BeginsLike(line, kRecordBegin) && line.find(',') != kNoPlace;
}

}  // namespace tarn::host
