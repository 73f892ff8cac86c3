#pragma once

#include <cassert>
#include <cstddef>
#include <functional>
#include <string_view>

#include "logs/formats.h"

namespace tarn::host {

// The base of splitters that read an input line by line. A line may begin a body, which is the text
// of statements and goes on up to the line at which it is ended. For example, the line
// "5 Query<tab>select 1" of a general query log begins the body "select 1". Not thread-safe.
class LineSplitter : public Splitter {
 public:
  // `end` is the byte that ends a line.
  explicit LineSplitter(char end = '\n') noexcept : end_(end) {}

  std::size_t Split(std::string_view text, bool last, Found& found) final;

 protected:
  // Takes the next line without its end; a "\r" before it is kept. If the line is too long,
  // LineIsCut is true, `line` is only its beginning, and TakeMore gets the rest in pieces.
  virtual void TakeLine(std::string_view line) = 0;
  virtual void TakeMore(std::string_view /*piece*/) {}
  // Takes a body that has ended, without the blanks around it.
  virtual void TakeBody(std::string_view /*body*/) {}
  // Called after the last line of the input.
  virtual void EndInput();

  Found& Out() const noexcept { return *found_; }

  bool LineIsCut() const noexcept { return line_is_cut_; }
  // Whether the line has an end. Only the last line of the input may have none.
  bool LineEnded() const noexcept { return line_ended_; }

  bool HasBody() const noexcept { return body_begin_ != std::string_view::npos; }
  // Begins a body with `rest`, the rest of the line. Requires: there is no body.
  void BeginBody(std::string_view rest) noexcept;
  // Ends the body, if there is one, before the line.
  void EndBody();
  void DropBody() noexcept { body_begin_ = std::string_view::npos; }

 private:
  void DropTooLong();

  const char end_;
  std::string_view text_;
  Found* found_ = nullptr;
  std::size_t body_begin_ = std::string_view::npos;
  bool body_is_too_long_ = false;
  std::size_t line_begin_ = 0;
  bool line_is_cut_ = false;
  bool line_ended_ = true;
  // No further end of a line is in this many bytes at the start of the text.
  std::size_t searched_ = 0;
};

// `line` without NUL bytes at its start. If a file is emptied while its server writes, it begins
// with a hole of them. Any thread may call it.
std::string_view WithoutHole(std::string_view line) noexcept;

// Calls `take` with each statement of a packet that a client sent to MySQL or MariaDB, without the
// comments before it and the semicolon after it: "select 1; /* a */ select 2;" -> "select 1",
// "select 2". A body such as that of CREATE PROCEDURE belongs to its statement. If there are more
// than 1,000 statements, the others are left out, and `found` counts a damaged entry.
void SplitPacket(std::string_view packet, Found& found,
                 const std::function<void(std::string_view)>& take);

}  // namespace tarn::host
