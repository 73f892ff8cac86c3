#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "logs/formats.h"
#include "logs/input.h"
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
  // Number among all statements of the first of the batch; the first of all is 1.
  std::uint64_t FirstNumber() const noexcept { return first_number_; }
  // Whose SQL the statements are.
  Dialect SqlDialect() const noexcept { return dialect_; }

 private:
  friend class StatementReader;

  std::vector<char> bytes_;
  Found found_;
  std::uint64_t first_number_ = 0;
  Dialect dialect_ = Dialect::kMysql;
};

struct ReadOptions {
  // Null for that which the first lines of an input tell, or SQL.
  const Format* format = nullptr;
  // Unless a person has chosen one, that of the format.
  std::optional<Dialect> dialect;
  // As SplitterOptions::prefix.
  std::string prefix;
  // In bytes; a longer statement is left out and reported.
  std::size_t max_statement = kMaxStatement;
};

// Something that a person should know of an input.
struct Remark {
  std::string text;
  // Whether the input has a fault.
  bool is_problem;
};

// The statements of files, read one after another, block by block: memory grows with the longest
// statement, not with the input. Logs of one kind that follow one another are one log, as a server
// rotates it: an entry may begin in one file and end in the next. Not thread-safe; a batch belongs
// to whoever had it filled.
class StatementReader {
 public:
  // `waiter`, if any, is asked before every read and must outlive the reader.
  StatementReader(std::vector<std::string> files, const ReadOptions& options,
                  InputWaiter* waiter = nullptr);

  // Replaces `batch` by the next statements, at least one, of one file; false when there are no
  // more. Returns as soon as what has arrived holds a whole statement. A statement that has only
  // begun when the waiter ends the input is dropped. Throws InputError for a file that can't be
  // opened or read; statements that were whole by then have been delivered, and the next call goes
  // on with the next file.
  bool Read(StatementBatch& batch);

  // What there was to remark since the last call: faults of the inputs, and the kinds of log that
  // were recognised.
  std::vector<Remark> TakeRemarks();

  // "NAME: statement N", N counting within its input, for the statement of this number among all.
  std::string PlaceOf(std::uint64_t number) const;

  // How many bytes of the files were read so far.
  std::uint64_t BytesRead() const noexcept;

 private:
  // An input, and the number among all of its first statement.
  struct Start {
    std::string name;
    std::uint64_t first_number;
  };

  // Opens the next file and reads its first lines. Requires: there is one.
  void OpenNext();
  // Whether the log that is open ends before the file that has just been opened.
  bool EndsBeforeFile() const noexcept;
  void BeginFile(StatementBatch& batch);
  // Reports the faults of the file; the texts are the splitter's, if the log ends as well.
  void EndFile(const std::string& problem, const std::string& why_empty);
  // Requires: a log, or other text, is open.
  void EndLog(StatementBatch& batch);
  // Appends the next bytes of the file, if there are any.
  std::size_t ReadBlock(StatementBatch& batch);
  void MakeRoom(StatementBatch& batch);
  void Split(StatementBatch& batch, bool last);
  void AddProblem(const std::string& problem);
  bool Stopped() const noexcept { return input_ && input_->Source().Stopped(); }

  const std::vector<std::string> files_;
  const ReadOptions options_;
  InputWaiter* const waiter_;
  std::size_t next_file_ = 0;
  // Bytes of the files that are done with.
  std::uint64_t bytes_before_ = 0;

  // The file that is open, its first bytes until they are split, and the log that they belong to.
  std::optional<TextInput> input_;
  std::string head_;
  const Format* recognized_ = nullptr;
  bool new_file_ = false;

  // The log that is open, or other text: null for none.
  std::unique_ptr<Splitter> splitter_;
  const Format* format_ = nullptr;
  std::uint64_t statements_in_log_ = 0;
  // Where in the batch the bytes are that are not done with.
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  // Those bytes, between two batches.
  std::string begun_;

  // Of the file whose bytes were last split.
  struct Tally {
    // The log that its first lines are of, or null.
    const Format* recognized = nullptr;
    // Null if the file is empty so far.
    std::optional<char> last_byte;
    std::uint64_t entries = 0;
    std::uint64_t damaged = 0;
    std::uint64_t too_long = 0;
    std::uint64_t impossible_times = 0;
    // Statements before the first that was too long.
    std::uint64_t before_too_long = 0;
  };
  Tally tally_;

  std::vector<Start> starts_;
  std::uint64_t next_number_ = 1;
  std::vector<Remark> remarks_;
};

}  // namespace tarn::host
