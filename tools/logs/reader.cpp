#include "logs/reader.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "logs/sql_splitter.h"

namespace tarn::host {
namespace {

constexpr std::size_t kBlockSize = std::size_t{256} * 1024;

std::unique_ptr<Splitter> MakeSplitter(StatementFormat format, Dialect dialect) {
  switch (format) {
    case StatementFormat::kSql:
      return MakeSqlSplitter(dialect);
    case StatementFormat::kLines:
      return MakeSeparatorSplitter('\n');
    case StatementFormat::kNul:
      return MakeSeparatorSplitter('\0');
    case StatementFormat::kSlowLog:
      return MakeSlowLogSplitter();
    case StatementFormat::kGeneralLog:
      return MakeGeneralLogSplitter();
    case StatementFormat::kCsvLog:
      break;
  }
  return MakeCsvLogSplitter();
}

}  // namespace

StatementReader::StatementReader(const std::string& file, StatementFormat format, Dialect dialect,
                                 InputWaiter* waiter)
    : input_(file, waiter), format_(format), splitter_(MakeSplitter(format, dialect)) {}

bool StatementReader::Read(StatementBatch& batch) {
  batch.found_.Clear();
  if (batch.bytes_.size() < begun_.size() + kBlockSize) {
    batch.bytes_.resize(begun_.size() + kBlockSize);
  }
  std::size_t size = begun_.copy(batch.bytes_.data(), begun_.size());
  begun_.clear();

  std::size_t done = 0;
  while (batch.found_.statements.empty() && !at_end_) {
    if (size == batch.bytes_.size()) {
      // Either way a byte is copied a bounded number of times.
      if (done >= size / 2) {
        size -= done;
        std::memmove(batch.bytes_.data(), batch.bytes_.data() + done, size);
        done = 0;
      } else {
        batch.bytes_.resize(2 * size);
      }
    }
    const std::size_t got = input_.Read(batch.bytes_.data() + size, batch.bytes_.size() - size);
    if (!head_seen_) {
      head_seen_ = true;
      log_ = RecognizedLog({batch.bytes_.data() + size, got});
      if (log_ != nullptr && StatementFormats().at(log_->format) == format_) log_ = nullptr;
    }
    size += got;
    at_end_ = got == 0;
    if (input_.Source().Stopped()) return false;
    done += splitter_->Split({batch.bytes_.data() + done, size - done}, at_end_, batch.found_);
  }

  begun_.assign(batch.bytes_.data() + done, size - done);
  batch.first_number_ = next_number_;
  next_number_ += batch.Size();
  return batch.Size() > 0;
}

std::string StatementReader::Problem() const {
  if (log_ != nullptr && (format_ == StatementFormat::kSql || next_number_ == 1)) {
    return Name() + ": looks like " + log_->name + ": use --input=" + log_->format;
  }
  const std::string problem = input_.Source().Stopped() ? "" : splitter_->Problem();
  return problem.empty() ? problem : Name() + ": " + problem;
}

}  // namespace tarn::host
