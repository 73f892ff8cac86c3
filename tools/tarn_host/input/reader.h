// Reading statements from files and standard input.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::host {

// Names standard input where a file name is expected.
inline constexpr const char* kStandardInput = "-";

// A file or standard input, open for reading.
class Input {
 public:
  // Opens `file`, or takes standard input for "-". Throws InputError, as Read does, naming the file
  // and the system's reason.
  explicit Input(const std::string& file);
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input();

  // Reads what there is, up to `size` bytes, waiting for the first; 0 at the end.
  std::size_t Read(char* to, std::size_t size);

  // What messages call the input: its path or "standard input".
  const std::string& Name() const noexcept { return name_; }
  int Fd() const noexcept { return fd_; }

 private:
  std::string name_;
  int fd_;
};

// Everything that `file`, or standard input for "-", holds. Throws InputError.
std::string ReadAll(const std::string& file);

// How statements lie in an input.
//
// sql: separated by semicolons. A semicolon inside '...', "...", `...`, after "--" up to the end of
//   the line, or inside a /* comment */ separates nothing. Inside ' and " a backslash takes the
//   next character with it, as MySQL reads it; a doubled quote stands for itself everywhere. Blanks
//   around a statement and comments before it are dropped, comments within it stay; a statement
//   that has nothing else is none.
// lines: one a line, the newline excluded; an empty line is an empty statement.
// nul: each ended by a NUL byte, any other byte being content.
//
// The last statement needs no separator.
enum class StatementFormat { kSql, kLines, kNul };

// Whole statements cut from one stretch of an input, without copies.
class StatementBatch {
 public:
  std::size_t Size() const noexcept { return spans_.size(); }
  // Valid until the batch is filled again.
  std::string_view operator[](std::size_t index) const noexcept {
    return {bytes_.data() + spans_[index].begin, spans_[index].end - spans_[index].begin};
  }
  // Number within the input of the first statement of the batch; an input's first is 1.
  std::uint64_t FirstNumber() const noexcept { return first_number_; }
  // How many bytes of the input this batch took in.
  std::size_t BytesRead() const noexcept { return bytes_read_; }

 private:
  friend class StatementReader;

  struct Span {
    std::size_t begin;
    std::size_t end;
  };

  // Only ever grows, so that a batch filled again and again costs no allocation.
  std::vector<char> bytes_;
  std::vector<Span> spans_;
  std::uint64_t first_number_ = 0;
  std::size_t bytes_read_ = 0;
};

// Told to wait until there is something to read.
class InputWaiter {
 public:
  // False to stop reading: a statement that has only begun is dropped.
  virtual bool Wait(int fd) = 0;

 protected:
  ~InputWaiter() = default;
};

// Cuts one input into statements, block by block: memory grows with the longest statement, not with
// the input. Not thread-safe; a batch belongs to whoever had it filled.
class StatementReader {
 public:
  // Opens `file` as Input does. `waiter`, if any, is asked before every read. Throws InputError, as
  // Read does.
  StatementReader(const std::string& file, StatementFormat format, InputWaiter* waiter = nullptr);
  StatementReader(const StatementReader&) = delete;
  StatementReader& operator=(const StatementReader&) = delete;
  ~StatementReader();

  // Replaces `batch` by the next statements, at least one; false when there are no more. Returns as
  // soon as what has arrived holds a whole statement. Throws InputError; statements that were whole
  // by then have been delivered.
  bool Read(StatementBatch& batch);

  // After the last Read: "quote" or "comment" when the input ended inside one, else null.
  const char* OpenAtEnd() const noexcept;

  const std::string& Name() const noexcept { return input_.Name(); }

  class Splitter;

 private:
  Input input_;
  InputWaiter* waiter_;
  std::unique_ptr<Splitter> splitter_;
  // The begun statement that the last batch ended in.
  std::string pending_;
  std::uint64_t next_number_ = 1;
  bool at_end_ = false;
};

// Adds --input=sql|lines|nul to `command`; `format` must outlive the parsing.
void AddInputOption(CLI::App& command, StatementFormat& format);

// Adds the positional FILE... to `command`; `files` must outlive the parsing.
void AddFilesArgument(CLI::App& command, std::vector<std::string>& files);

// `files`, or standard input alone when there are none.
std::vector<std::string> FilesOrStandardInput(const std::vector<std::string>& files);

}  // namespace tarn::host
