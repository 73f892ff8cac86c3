#pragma once

#include <cassert>
#include <cstddef>
#include <string>
#include <string_view>

#include "logs/splitter.h"
#include "sql/text.h"

namespace tarn::host {

// Goes through the lines of a log whose entries are lines, some of which begin a body: the text of
// statements, which lasts up to the line that ends it.
class LineSplitter : public Splitter {
 public:
  explicit LineSplitter(const SplitterOptions& options) : max_statement_(options.max_statement) {}

  std::size_t Split(std::string_view text, bool last, Found& found) final;

  std::string Problem() const final { return problem_; }

 protected:
  // Why an entry that ends with the input, and with the line's end where `line_ended`, is cut or
  // may be; empty when it is whole.
  virtual std::string WhyCut(bool line_ended) const {
    return line_ended ? "" : "ends within a line, so that its last entry may be cut";
  }

  // Looks at the next line; a carriage return before its end is left there. Of a line that is too
  // long this is the beginning (see LineIsCut), and only its last bytes follow.
  virtual void TakeLine(std::string_view line) = 0;
  virtual void TakeEndOfLongLine(std::string_view /*end*/) {}
  // Whether `line`, which the input ends in, may be the start of one that begins an entry.
  virtual bool MayBeginEntry(std::string_view /*line*/) const { return false; }
  // Takes the body without blanks around it.
  virtual void TakeBody(std::string_view /*body*/) {}
  // Whether an entry may begin with the next line, so that bytes of value 0 before it are a hole in
  // the file.
  virtual bool IsBetweenEntries() const { return !HasBody(); }
  // A Found that may be another is filled from now on.
  virtual void BeginFound() {}
  // There are no more lines.
  virtual void EndInput() {}

  Found& Out() const noexcept { return *found_; }
  std::size_t MaxStatement() const noexcept { return max_statement_; }

  bool LineIsCut() const noexcept { return line_is_cut_; }

  bool HasBody() const noexcept { return body_begin_ != std::string_view::npos; }
  // The body begins `offset` bytes after the start of the line. Requires: there is none.
  void BeginBody(std::size_t offset) noexcept {
    assert(!HasBody());
    body_begin_ = line_begin_ + offset;
    body_is_too_long_ = line_is_cut_;
  }
  // Ends the body before the line, if there is a body.
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
  // How much of the text is known to hold no further line's end.
  std::size_t searched_ = 0;
  std::string problem_;
};

}  // namespace tarn::host
