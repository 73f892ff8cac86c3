#include "logs/reader.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

std::string Counted(std::uint64_t count, const char* one, const char* several) {
  return std::to_string(count) + " " + (count == 1 ? one : several);
}

std::string NotRead(const Format& format) {
  return std::string(format.title) + ", which is not read: " + std::string(format.advice);
}

}  // namespace

StatementReader::StatementReader(std::vector<std::string> files, const ReadOptions& options,
                                 InputWaiter* waiter)
    : files_(std::move(files)), options_(options), waiter_(waiter) {}

bool StatementReader::Read(StatementBatch& batch) {
  batch.found_.Clear();
  // A batch keeps its memory for the next statements, unless a very long one needed it.
  if (batch.bytes_.size() > 4 * (begun_.size() + kBlockSize)) batch.bytes_ = {};
  batch.bytes_.resize(std::max(batch.bytes_.size(), begun_.size() + kBlockSize));
  begin_ = 0;
  end_ = begun_.copy(batch.bytes_.data(), begun_.size());
  begun_.clear();

  while (batch.found_.statements.empty()) {
    try {
      if (!input_ && next_file_ < files_.size()) OpenNext();
    } catch (const InputError&) {
      // The file after this one may go on with the log.
      begun_.assign(batch.bytes_.data() + begin_, end_ - begin_);
      throw;
    }
    if (Stopped()) return false;
    if (splitter_ && (!input_ || EndsBeforeFile())) {
      EndLog(batch);
    } else if (!input_) {
      return false;
    } else if (new_file_) {
      BeginFile(batch);
    } else if (ReadBlock(batch) > 0) {
      Split(batch, false);
    } else if (!Stopped()) {
      bytes_before_ += input_->Source().BytesRead();
      input_.reset();
    }
  }

  begun_.assign(batch.bytes_.data() + begin_, end_ - begin_);
  batch.first_number_ = next_number_;
  batch.dialect_ = options_.dialect.value_or(format_->dialect);
  next_number_ += batch.Size();
  return true;
}

void StatementReader::OpenNext() {
  assert(next_file_ < files_.size());
  const std::string& file = files_[next_file_++];
  try {
    input_.emplace(file, waiter_);
    head_.resize(kBlockSize);
    std::size_t size = 0;
    std::size_t got = 0;
    do {
      got = input_->Read(head_.data() + size, head_.size() - size);
      size += got;
    } while (got > 0 && MayBecomeALog({head_.data(), size}));
    head_.resize(size);
  } catch (const InputError&) {
    input_.reset();
    throw;
  }
  recognized_ = RecognizedFormat(head_);
  new_file_ = true;
}

bool StatementReader::EndsBeforeFile() const noexcept {
  if (!new_file_) return false;
  if (!format_->IsLog()) return true;
  // If a file begins inside a long entry, its first lines fit no log, and it goes on with this one.
  return options_.format == nullptr && recognized_ != nullptr && recognized_ != format_;
}

void StatementReader::BeginFile(StatementBatch& batch) {
  const std::string& name = input_->Source().Name();
  if (splitter_) {
    const char last_byte = tally_.last_byte.value_or('\n');
    EndFile({}, {});
    // The last line of the file before ends there, unless the first one of this file continues it.
    const std::string_view first_line = std::string_view(head_).substr(0, head_.find('\n'));
    const bool within_blanks = IsBlank(last_byte) || first_line.empty() || IsBlank(first_line[0]);
    if (!within_blanks && format_->begins_entry(first_line)) head_.insert(0, "\n");
  } else {
    static const Format* const kSql = ReadableFormats().at("sql");
    const Format* const chosen = options_.format != nullptr ? options_.format : recognized_;
    const Format* const format = chosen != nullptr ? chosen : kSql;
    if (format->make_splitter == nullptr) {
      starts_.push_back({name, next_number_});
      AddProblem("is " + NotRead(*format));
      new_file_ = false;
      bytes_before_ += input_->Source().BytesRead();
      input_.reset();
      return;
    }
    if (options_.format == nullptr && format->IsLog() && format != format_) {
      remarks_.push_back({name + ": read as " + std::string(format->title) +
                              " (--input=" + std::string(format->name) + ")",
                          false});
    }
    format_ = format;
    statements_in_log_ = 0;
    splitter_ = format->make_splitter({.dialect = options_.dialect.value_or(format->dialect),
                                       .max_statement = options_.max_statement,
                                       .prefix = options_.prefix});
  }
  starts_.push_back({name, next_number_});
  new_file_ = false;
  while (batch.bytes_.size() - end_ < head_.size()) MakeRoom(batch);
  tally_.recognized = recognized_;
  if (!head_.empty()) tally_.last_byte = head_.back();
  end_ += head_.copy(batch.bytes_.data() + end_, head_.size());
  Split(batch, false);
}

void StatementReader::MakeRoom(StatementBatch& batch) {
  // In both cases each byte is copied a bounded number of times.
  if (begin_ >= end_ / 2 && begin_ > 0) {
    end_ -= begin_;
    std::memmove(batch.bytes_.data(), batch.bytes_.data() + begin_, end_);
    begin_ = 0;
  } else {
    batch.bytes_.resize(2 * batch.bytes_.size());
  }
}

std::size_t StatementReader::ReadBlock(StatementBatch& batch) {
  if (end_ == batch.bytes_.size()) MakeRoom(batch);
  const std::size_t room = std::min(batch.bytes_.size() - end_, kBlockSize);
  std::size_t got = 0;
  try {
    got = input_->Read(batch.bytes_.data() + end_, room);
  } catch (const InputError&) {
    // The rest of the statement that has begun is unknown, so that its start is of no use.
    input_.reset();
    splitter_.reset();
    tally_ = {};
    throw;
  }
  if (got > 0) tally_.last_byte = batch.bytes_[end_ + got - 1];
  end_ += got;
  return got;
}

void StatementReader::Split(StatementBatch& batch, bool last) {
  Found& found = batch.found_;
  begin_ += splitter_->Split({batch.bytes_.data() + begin_, end_ - begin_}, last, found);
  // Splitters do not count statements that are too long if all their bytes came at once.
  const auto too_long = [this](const FoundStatement& statement) {
    return statement.text.size() > options_.max_statement;
  };
  const auto first = std::find_if(found.statements.begin(), found.statements.end(), too_long);
  if (first != found.statements.end()) {
    found.before_too_long = static_cast<std::size_t>(first - found.statements.begin());
    found.too_long += std::erase_if(found.statements, too_long);
  }
  if (tally_.too_long == 0) {
    tally_.before_too_long = next_number_ - starts_.back().first_number + found.before_too_long;
  }
  tally_.entries += std::exchange(found.entries, 0);
  tally_.damaged += std::exchange(found.damaged, 0);
  tally_.too_long += std::exchange(found.too_long, 0);
  tally_.impossible_times += std::exchange(found.impossible_times, 0);
  statements_in_log_ += found.statements.size();
}

void StatementReader::EndFile(const std::string& problem, const std::string& why_empty) {
  const Tally tally = std::exchange(tally_, {});
  const Format* const looks = tally.recognized;
  const bool wrong =
      looks != nullptr && looks != format_ && (format_->name == "sql" || statements_in_log_ == 0);
  if (wrong) {
    AddProblem("looks like " +
               (looks->make_splitter == nullptr
                    ? NotRead(*looks)
                    : std::string(looks->title) + ": use --input=" + std::string(looks->name)));
    return;
  }
  if (format_->IsLog() && tally.last_byte && tally.entries == 0) {
    AddProblem("holds no entry of " + std::string(format_->title));
    return;
  }
  if (!problem.empty()) AddProblem(problem);
  if (tally.too_long > 0) {
    AddProblem(Counted(tally.too_long, "statement is", "statements are") + " longer than " +
               std::to_string(options_.max_statement) + " bytes and left out before statement " +
               std::to_string(tally.before_too_long + 1) + " (--max-statement)");
  }
  if (tally.damaged > 0) {
    AddProblem(Counted(tally.damaged, "entry is", "entries are") + " damaged and left out");
  }
  if (tally.impossible_times > 0) {
    AddProblem(Counted(tally.impossible_times, "time is", "times are") +
               " impossible and left out");
  }
  if (format_->IsLog() && !splitter_ && tally.entries > 0 && statements_in_log_ == 0) {
    AddProblem("holds entries and no statement: " +
               (why_empty.empty() ? std::string(format_->advice) : why_empty));
  }
}

void StatementReader::EndLog(StatementBatch& batch) {
  assert(splitter_);
  Split(batch, true);
  assert(begin_ == end_);
  const auto splitter = std::exchange(splitter_, nullptr);
  EndFile(splitter->Problem(), splitter->WhyEmpty());
}

void StatementReader::AddProblem(const std::string& problem) {
  remarks_.push_back({starts_.back().name + ": " + problem, true});
}

std::vector<Remark> StatementReader::TakeRemarks() { return std::exchange(remarks_, {}); }

std::string StatementReader::PlaceOf(std::uint64_t number) const {
  const auto start = std::find_if(starts_.rbegin(), starts_.rend(), [number](const Start& one) {
    return one.first_number <= number;
  });
  assert(start != starts_.rend());
  return start->name + ": statement " + std::to_string(number - start->first_number + 1);
}

std::uint64_t StatementReader::BytesRead() const noexcept {
  return bytes_before_ + (input_ ? input_->Source().BytesRead() : 0);
}

}  // namespace tarn::host
