#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "logs/input.h"
#include "logs/log_splitter.h"
#include "logs/splitter.h"
#include "sql/dialect.h"

namespace tarn::host {

// Whole statements cut from one stretch of an input, without copies.
class StatementBatch {
 public:
  std::size_t Size() const noexcept { return found_.statements.size(); }
  // Valid until the batch is filled again.
  std::string_view operator[](std::size_t index) const noexcept {
    return found_.statements[index].text;
  }
  const Execution& ExecutionOf(std::size_t index) const noexcept {
    return found_.statements[index].execution;
  }
  // As Found has them.
  const std::optional<LogTime>& FirstTime() const noexcept { return found_.first_time; }
  const std::optional<LogTime>& LastTime() const noexcept { return found_.last_time; }
  // Number within the input of the first statement of the batch; an input's first is 1.
  std::uint64_t FirstNumber() const noexcept { return first_number_; }

 private:
  friend class StatementReader;

  // Only ever grows, so that a batch filled again and again costs no allocation.
  std::vector<char> bytes_;
  Found found_;
  std::uint64_t first_number_ = 0;
};

// Cuts one input into statements, block by block: memory grows with the longest statement, not with
// the input. Not thread-safe; a batch belongs to whoever had it filled.
class StatementReader {
 public:
  // Opens `file` as TextInput does. Throws InputError, as Read does.
  StatementReader(const std::string& file, StatementFormat format,
                  Dialect dialect = Dialect::kMysql, InputWaiter* waiter = nullptr);

  // Replaces `batch` by the next statements, at least one; false when there are no more. Returns as
  // soon as what has arrived holds a whole statement. A statement that has only begun when the
  // waiter ends the input is dropped. Throws InputError; statements that were whole by then have
  // been delivered.
  bool Read(StatementBatch& batch);

  // After the last Read: what is wrong with the input as a whole, as Splitter::Problem tells, or
  // that what was read as SQL looks like a log, or a log without statements like another.
  std::string Problem() const;

  const std::string& Name() const noexcept { return input_.Source().Name(); }
  // How many bytes of the file were read so far.
  std::uint64_t BytesRead() const noexcept { return input_.Source().BytesRead(); }

 private:
  TextInput input_;
  StatementFormat format_;
  std::unique_ptr<Splitter> splitter_;
  // The log that an input looks like; null for none and for that which it is read as.
  const LogKind* log_ = nullptr;
  bool head_seen_ = false;
  // What the last batch left of its bytes: the start of a statement.
  std::string begun_;
  std::uint64_t next_number_ = 1;
  bool at_end_ = false;
};

}  // namespace tarn::host
