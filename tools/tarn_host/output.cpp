#include "tarn_host/output.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "tarn_host/errors.h"

namespace tarn::host {
namespace {

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;

// By the rule of Output::Coloured.
bool WantsColour(int fd) noexcept {
  const char* no_color = std::getenv("NO_COLOR");
  if (no_color != nullptr && *no_color != '\0') return false;
  const char* term = std::getenv("TERM");
  return term != nullptr && std::string_view(term) != "dumb" && isatty(fd) == 1;
}

}  // namespace

std::size_t TerminalWidth(int fd) noexcept {
  constexpr std::size_t kUsualWidth = 80;
  winsize size{};
  return ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

std::string Fitted(std::string_view text, std::size_t width) {
  constexpr std::string_view kDots = "...";
  const auto begins_character = [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  };
  // The offset at which a text that is too long is cut, to append the dots.
  std::size_t cut = 0;
  std::size_t columns = 0;
  for (std::size_t at = 0; at < text.size() && width > 0; ++at) {
    if (!begins_character(text[at])) continue;
    if (columns + kDots.size() == width) cut = at;
    if (columns++ == width) return std::string(text.substr(0, cut)).append(kDots, 0, width);
  }
  return std::string(text);
}

Output::Output() : Output(STDOUT_FILENO, "standard output") {}

Output::Output(int fd, std::string name)
    : fd_(fd), name_(std::move(name)), terminal_(isatty(fd) == 1), coloured_(WantsColour(fd)) {}

std::size_t Output::Width() const noexcept { return terminal_ ? TerminalWidth(fd_) : 0; }

Output::~Output() {
  try {
    Flush();
  } catch (const ToolError&) {
    // A caller who wants to know of the error has called Flush.
    buffer_.clear();
  }
}

void Output::Write(std::string_view bytes) {
  buffer_ += bytes;
  if (buffer_.size() >= kBufferSize) Flush();
}

void Output::WriteUntrusted(std::string_view text) {
  terminal_ ? Write(Printable(text)) : Write(text);
}

std::string Output::Coloured(std::string_view colour, std::string_view text) const {
  return coloured_ ? fmt::format("\x1B[{}m{}\x1B[0m", colour, text) : std::string(text);
}

void Output::WriteFitted(std::string_view line) { Write(Fitted(line, Width()) + '\n'); }

void Output::Flush() {
  std::string_view rest = buffer_;
  while (!rest.empty()) {
    const ssize_t written = write(fd_, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      const int error = errno;
      buffer_.clear();
      if (error == EPIPE) throw ReaderGone(SystemReason(name_, error));
      throw ToolError("cannot write " + SystemReason(name_, error));
    }
  }
  buffer_.clear();
}

}  // namespace tarn::host
