#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "logs/formats.h"
#include "logs/input.h"
#include "sql/dialect.h"

namespace tarn::host {

// Whole statements of one input. Their texts are views of the batch's own bytes. Not thread-safe.
class StatementBatch {
 public:
  std::size_t Size() const noexcept { return found_.statements.size(); }
  // Requires: `index` is less than Size(). Both views are valid until the batch is filled again.
  std::string_view operator[](std::size_t index) const noexcept {
    assert(index < Size());
    return found_.statements[index].text;
  }
  const Execution& ExecutionOf(std::size_t index) const noexcept {
    assert(index < Size());
    return found_.statements[index].execution;
  }
  // As in Found.
  const std::optional<LogTime>& FirstTime() const noexcept { return found_.first_time; }
  const std::optional<LogTime>& LastTime() const noexcept { return found_.last_time; }
  // The number of the batch's first statement among all statements of all inputs, from 1.
  std::uint64_t FirstNumber() const noexcept { return first_number_; }
  // The dialect of the statements.
  Dialect SqlDialect() const noexcept { return dialect_; }

 private:
  friend class StatementReader;

  std::vector<char> text_;
  Found found_;
  std::uint64_t first_number_ = 0;
  Dialect dialect_ = Dialect::kMysql;
};

struct ReadOptions {
  // If it is null, the first lines of an input decide, and if they begin no log, it is SQL.
  const Format* format = nullptr;
  // If it is absent, the dialect of the format.
  std::optional<Dialect> dialect;
  // As SplitterOptions::prefix.
  std::string prefix;
  // In bytes; a longer statement is left out and reported.
  std::size_t max_statement = kMaxStatement;
};

// A line for the person about an input, such as "a.log: 2 entries are damaged and left out".
struct Remark {
  std::string text;
  // Whether it reports a fault of the input.
  bool is_problem;
};

// Reads the statements of files one after another, block by block. Memory grows with the longest
// statement, not with the input. If logs of one format follow one another, they are one log that a
// server has rotated: an entry may begin in one file and end in the next. Not thread-safe, but
// another thread may use a batch that was filled.
class StatementReader {
 public:
  // If there is a `waiter`, each read of a file waits for it first. It must outlive the reader.
  StatementReader(std::vector<std::string> files, const ReadOptions& options,
                  InputWaiter* waiter = nullptr);

  // Replaces `batch` by the next statements of one file, at least one, as soon as they have
  // arrived. False if there are no more. If the waiter ends the input, a statement that is not
  // whole is dropped. Throws InputError if a file can't be opened or read; earlier calls have
  // returned the statements before that, and the next call goes on with the next file.
  bool Read(StatementBatch& batch);

  // The remarks since the last call: faults of the inputs, and the logs that were recognised.
  std::vector<Remark> TakeRemarks();

  // "NAME: statement N" for the statement with this number among all: the input's name and the
  // statement's number within it. Requires: the statement was read.
  std::string PlaceOf(std::uint64_t number) const;

  // The number of bytes of the files, packed or not, that were read so far.
  std::uint64_t BytesRead() const noexcept;

 private:
  // An open file: its first bytes until they are split, and the log that they begin or null.
  struct File {
    // Reads the first bytes.
    File(const std::string& name, InputWaiter* waiter);

    Input input;
    std::vector<char> head;
    const Format* recognized = nullptr;
    bool begun = false;
  };
  // A file that was begun, and the number of its first statement among all.
  struct Start {
    std::string name;
    std::uint64_t first_number;
  };

  // Whether the open log ends before the file that was opened last.
  bool EndsBeforeFile() const noexcept;
  void BeginFile();
  // `fallback` names the format if the file's first lines begin no log.
  void BeginLog(const char* fallback);
  void ReadBlock();
  void CloseFile() noexcept;
  void EndLog();
  // Reports the faults of the file whose bytes were split last.
  void EndFile();
  void Split(bool last);
  void AddRemark(const std::string& text, bool is_problem = true);
  bool Stopped() const noexcept { return file_ && file_->input.Stopped(); }

  const std::vector<std::string> files_;
  const ReadOptions options_;
  InputWaiter* const waiter_;
  std::size_t next_file_ = 0;
  std::unique_ptr<File> file_;
  // The number of bytes of the files before the open one.
  std::uint64_t bytes_before_ = 0;

  // The splitter of the open log, or of other text; null if none is open.
  std::unique_ptr<Splitter> splitter_;
  const Format* format_ = nullptr;
  std::uint64_t executions_in_log_ = 0;
  // The text from `begin_` on is still to be split.
  std::vector<char> text_;
  std::size_t begin_ = 0;
  // The statements for the next batch, and the facts about the file that was begun last.
  Found found_;
  // The log that the first lines of that file begin, or null, and whether it is empty.
  const Format* recognized_ = nullptr;
  bool empty_ = false;

  std::vector<Start> starts_;
  std::uint64_t next_number_ = 1;
  std::vector<Remark> remarks_;
};

}  // namespace tarn::host
