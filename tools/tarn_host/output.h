#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tarn::host {

// Writes a file descriptor, standard output as a rule, through a buffer. Not thread-safe.
class Output {
 public:
  // `name` is what an error calls the stream. The descriptor stays the caller's.
  Output();
  Output(int fd, std::string name);
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  // Writes what is left, in silence: call Flush first to learn of an error.
  ~Output();

  // Throws ReaderGone when the stream is a pipe that nobody reads, and ToolError when it can't be
  // written otherwise; what is buffered then is given up.
  void Write(std::string_view bytes);
  void Flush();

  // Writes text that a stranger wrote: on a terminal as Printable makes it, elsewhere as it is. A
  // character must not be split between two calls. Throws as Write does.
  void WriteUntrusted(std::string_view text);

  // Whether colours are welcome: the stream is a terminal, NO_COLOR is unset or empty, and TERM
  // does not say "dumb".
  bool Coloured() const noexcept { return coloured_; }

  // As TerminalWidth of the stream.
  std::size_t Width() const noexcept;

 private:
  int fd_;
  std::string name_;
  std::string buffer_;
  bool terminal_;
  bool coloured_;
};

// How many columns the terminal on `fd` has; 0 when it is none.
std::size_t TerminalWidth(int fd) noexcept;

// The first `width` columns of `text`, a line in UTF-8, its last three dots if it is longer. Every
// character counts as one column. The whole text for the width 0.
std::string Fitted(std::string_view text, std::size_t width);

}  // namespace tarn::host
