#include "logs/reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sql/errors.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// A file of a log may begin inside a statement, and still a block of this size should hold a line
// that begins an entry. A batch of the shortest statements in it takes a few MiB.
constexpr std::size_t kBlockSize = std::size_t{128} * 1024;

// "a slow query log: use --input=slowlog"
std::string TitleWithAdvice(const Format& format) {
  return format.make_splitter == nullptr
             ? fmt::format("{}, which is not read: {}", format.title, format.advice)
             : fmt::format("{}: use --input={}", format.title, format.name);
}

}  // namespace

StatementReader::StatementReader(std::vector<std::string> files, const ReadOptions& options,
                                 InputWaiter* waiter)
    : files_(std::move(files)), options_(options), waiter_(waiter) {
  found_.max_statement = options.max_statement;
}

bool StatementReader::Read(StatementBatch& batch) {
  while (found_.statements.empty()) {
    if (!file_ && next_file_ < files_.size()) {
      file_ = std::make_unique<File>(files_[next_file_++], waiter_);
    }
    if (Stopped()) return false;
    if (splitter_ && (!file_ || EndsBeforeFile())) {
      EndLog();
    } else if (!file_) {
      return false;
    } else if (!file_->begun) {
      BeginFile();
    } else {
      ReadBlock();
    }
  }
  text_.swap(batch.text_);
  std::swap(found_, batch.found_);
  found_.Clear();
  found_.summary = std::exchange(batch.found_.summary, {});
  found_.max_statement = options_.max_statement;
  // The memory of the last batch is used again, unless a very long statement needed it.
  const std::size_t rest = batch.text_.size() - begin_;
  if (text_.capacity() > 4 * (rest + kBlockSize)) text_ = {};
  text_.assign(batch.text_.end() - static_cast<std::ptrdiff_t>(rest), batch.text_.end());
  begin_ = 0;
  batch.first_number_ = next_number_;
  batch.dialect_ = options_.dialect.value_or(format_->dialect);
  next_number_ += batch.Size();
  return true;
}

StatementReader::File::File(const std::string& name, InputWaiter* waiter)
    : input(name, waiter), head(kBlockSize) {
  std::size_t size = 0;
  std::size_t got = 0;
  do {
    got = input.ReadText(head.data() + size, head.size() - size);
    size += got;
  } while (got > 0 && MayBecomeALog({head.data(), size}));
  head.resize(size);
  recognized = RecognizedFormat({head.data(), size});
}

bool StatementReader::EndsBeforeFile() const noexcept {
  if (file_->begun) return false;
  const std::string_view path = file_->input.Name();
  const std::string_view name = path.substr(path.rfind('/') + 1);
  if (!format_->IsLog() || name.find(".sql") != std::string_view::npos) return true;
  // If a file begins inside a long entry, its first lines fit no log, and it goes on with this one.
  return options_.format == nullptr && file_->recognized != nullptr && file_->recognized != format_;
}

void StatementReader::BeginFile() {
  file_->begun = true;
  const std::string_view head(file_->head.data(), file_->head.size());
  if (splitter_) {
    EndFile();
    // The last line of the file before ends there, unless the first one of this file continues it.
    // A part of a prefix of PostgreSQL looks like another prefix, unless that has a time.
    const std::string_view line = head.substr(0, head.find('\n'));
    const bool within_blanks =
        begin_ == text_.size() || IsBlank(text_.back()) || line.empty() || IsBlank(line[0]);
    const bool timed = format_->name != "pglog" || LogTimeAt(line);
    if (!within_blanks && timed && format_->begins_entry(line)) text_.push_back('\n');
  }
  starts_.push_back({file_->input.Name(), next_number_});
  recognized_ = file_->recognized;
  empty_ = head.empty();
  if (!splitter_) BeginLog(IsServerBanner(head.substr(0, head.find('\n'))) ? "slowlog" : "sql");
  if (!splitter_) return CloseFile();
  text_.insert(text_.end(), head.begin(), head.end());
  file_->head = {};
  Split(false);
}

void StatementReader::BeginLog(const char* fallback) {
  const Format* const format = options_.format != nullptr ? options_.format
                               : recognized_ != nullptr   ? recognized_
                                                          : ReadableFormats().at(fallback);
  if (format->make_splitter == nullptr) return AddRemark("is " + TitleWithAdvice(*format));
  if (options_.format == nullptr && format->IsLog() && format != format_) {
    AddRemark(fmt::format("read as {} (--input={})", format->title, format->name), false);
  }
  format_ = format;
  executions_in_log_ = 0;
  splitter_ = format->make_splitter(
      {.dialect = options_.dialect.value_or(format->dialect), .prefix = options_.prefix});
}

void StatementReader::ReadBlock() {
  // Each byte is moved a bounded number of times.
  if (begin_ >= text_.size() / 2) {
    text_.erase(text_.begin(), text_.begin() + static_cast<std::ptrdiff_t>(begin_));
    begin_ = 0;
  }
  const std::size_t size = text_.size();
  text_.resize(size + kBlockSize);
  std::size_t got = 0;
  try {
    got = file_->input.ReadText(text_.data() + size, kBlockSize);
  } catch (const InputError&) {
    // The rest of the statement that has begun is unknown, so that its start is of no use.
    file_.reset();
    splitter_.reset();
    found_.summary = {};
    text_.clear();
    begin_ = 0;
    throw;
  }
  text_.resize(size + got);
  if (got > 0) return Split(false);
  if (!Stopped()) CloseFile();
}

void StatementReader::CloseFile() noexcept {
  bytes_before_ += file_->input.BytesRead();
  file_.reset();
}

void StatementReader::Split(bool last) {
  begin_ += splitter_->Split({text_.data() + begin_, text_.size() - begin_}, last, found_);
}

void StatementReader::EndLog() {
  Split(true);
  assert(begin_ == text_.size());
  splitter_.reset();
  EndFile();
}

void StatementReader::EndFile() {
  const Summary summary = std::exchange(found_.summary, {});
  executions_in_log_ += summary.executions;
  if (recognized_ != nullptr && recognized_ != format_) {
    const bool misread = format_->name == "sql" || executions_in_log_ == 0;
    AddRemark("looks like " + TitleWithAdvice(*recognized_), misread);
    if (misread) return;
  }
  if (format_->IsLog() && !empty_ && summary.entries == 0) {
    return AddRemark(fmt::format("holds no entry of {}{}", format_->title,
                                 options_.prefix.empty() ? "" : " with this --prefix"));
  }
  const auto add_count = [this](std::uint64_t count, const char* one, const char* several,
                                std::string_view fault) {
    if (count > 0) AddRemark(fmt::format("{} {} {}", count, count == 1 ? one : several, fault));
  };
  if (!summary.problem.empty()) AddRemark(summary.problem);
  add_count(summary.too_long, "statement is", "statements are",
            fmt::format("longer than {} bytes and left out before statement {} (--max-statement)",
                        options_.max_statement, summary.before_too_long + 1));
  add_count(summary.damaged, "entry is", "entries are", "damaged and left out");
  add_count(summary.impossible_times, "time is", "times are", "impossible and left out");
  for (const auto& [kind, count] : summary.lost) {
    add_count(count, "message holds", "messages hold", kind);
  }
  if (!splitter_ && summary.entries > 0 && executions_in_log_ == 0 && summary.problem.empty()) {
    AddRemark("holds entries and no statement" +
              (summary.lost.empty() ? ": " + std::string(format_->advice) : ""));
  }
}

void StatementReader::AddRemark(const std::string& text, bool is_problem) {
  remarks_.push_back({starts_.back().name + ": " + text, is_problem});
}

std::vector<Remark> StatementReader::TakeRemarks() { return std::exchange(remarks_, {}); }

std::string StatementReader::PlaceOf(std::uint64_t number) const {
  const auto start = std::find_if(starts_.rbegin(), starts_.rend(), [number](const Start& one) {
    return one.first_number <= number;
  });
  assert(start != starts_.rend());
  return fmt::format("{}: statement {}", start->name, number - start->first_number + 1);
}

std::uint64_t StatementReader::BytesRead() const noexcept {
  return bytes_before_ + (file_ ? file_->input.BytesRead() : 0);
}

}  // namespace tarn::host
