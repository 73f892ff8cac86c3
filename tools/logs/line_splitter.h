#pragma once

#include <cassert>
#include <cstddef>
#include <string>
#include <string_view>

#include "logs/splitter.h"
#include "sql/text.h"

namespace tarn::host {

// The base of splitters that read a log line by line. A line may begin a body, which is the text of
// statements and goes on up to the line before which EndBody is called. For example, the line
// "5 Query<tab>select 1" of a general query log begins the body "select 1". Not thread-safe.
class LineSplitter : public Splitter {
 public:
  explicit LineSplitter(const SplitterOptions& options) : max_statement_(options.max_statement) {}

  std::size_t Split(std::string_view text, bool last, Found& found) final;

  std::string Problem() const final { return problem_; }

 protected:
  // The reason why the last entry of the input is cut or may be, and empty if it is whole. If
  // `line_ended`, the input ends with the end of a line.
  virtual std::string WhyCut(bool line_ended) const {
    return line_ended ? "" : "ends within a line, so that its last entry may be cut";
  }

  // Takes the next line without its "\n"; a "\r" before it is kept. If the line is too long,
  // LineIsCut is true, `line` is only its beginning, and TakeEndOfLongLine gets its last bytes.
  virtual void TakeLine(std::string_view line) = 0;
  virtual void TakeEndOfLongLine(std::string_view /*end*/) {}
  // Whether `line`, which the end of the input cuts, may be the start of a line that begins an
  // entry.
  virtual bool MayBeginEntry(std::string_view /*line*/) const { return false; }
  // Takes a body that has ended, without the blanks around it.
  virtual void TakeBody(std::string_view /*body*/) {}
  // Whether an entry may begin with the next line. If so, NUL bytes before that line are a hole in
  // the file.
  virtual bool IsBetweenEntries() const { return !HasBody(); }
  // Called after the last line.
  virtual void EndInput() {}

  Found& Out() const noexcept { return *found_; }
  std::size_t MaxStatement() const noexcept { return max_statement_; }

  bool LineIsCut() const noexcept { return line_is_cut_; }

  bool HasBody() const noexcept { return body_begin_ != std::string_view::npos; }
  // Begins a body `offset` bytes after the start of the line. Requires: there is no body.
  void BeginBody(std::size_t offset) noexcept {
    assert(!HasBody());
    body_begin_ = line_begin_ + offset;
    body_is_too_long_ = line_is_cut_;
  }
  // Ends the body, if there is one, before the line.
  void EndBody() {
    if (!HasBody()) return;
    const std::string_view body = text_.substr(body_begin_, line_begin_ - body_begin_);
    if (body_is_too_long_) {
      ++found_->too_long;
    } else {
      TakeBody(Trimmed(body));
    }
    body_begin_ = std::string_view::npos;
  }

 private:
  void PassHole();
  void DropTooLong();

  const std::size_t max_statement_;
  std::string_view text_;
  Found* found_ = nullptr;
  std::size_t body_begin_ = std::string_view::npos;
  bool body_is_too_long_ = false;
  std::size_t line_begin_ = 0;
  bool line_is_cut_ = false;
  // No further end of a line is in this many bytes at the start of the text.
  std::size_t searched_ = 0;
  std::string problem_;
};

}  // namespace tarn::host
