#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tarn::host {

// Writes to a file descriptor, by default standard output, through a buffer. Not thread-safe.
class Output {
 public:
  // Errors call the stream `name`. The caller closes the descriptor.
  Output();
  Output(int fd, std::string name);
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  // Writes the rest of the buffer and ignores errors. To learn of an error, call Flush first.
  ~Output();

  // Throws ReaderGone if the stream is a pipe whose reader has closed it, and ToolError on any
  // other error. Either discards the buffer.
  void Write(std::string_view bytes);
  void Flush();

  // Writes text that a stranger wrote: to a terminal with visible control characters (see
  // Printable), elsewhere unchanged. Throws as Write does. A character must not be split between
  // two calls.
  void WriteUntrusted(std::string_view text);

  // `text` to be printed in a colour, such as "1;32" for bold green, if the stream is a terminal,
  // NO_COLOR is unset or empty, and TERM is set to something other than "dumb"; otherwise `text`.
  std::string Coloured(std::string_view colour, std::string_view text) const;

  // Writes `line` and a newline. On a terminal the line is cut to its width (see Fitted). Throws as
  // Write does.
  void WriteFitted(std::string_view line);

  // The number of the terminal's columns; 0 if the stream is no terminal.
  std::size_t Width() const noexcept;

 private:
  int fd_;
  std::string name_;
  std::string buffer_;
  bool terminal_;
  bool coloured_;
};

// The number of columns of the terminal on `fd`.
std::size_t TerminalWidth(int fd) noexcept;

// The first `width` columns of `text`, a line in UTF-8. A longer text is cut and ends in three
// dots: Fitted("abcdef", 5) is "ab...". Each character counts as one column. The width 0 means no
// limit.
std::string Fitted(std::string_view text, std::size_t width);

}  // namespace tarn::host
