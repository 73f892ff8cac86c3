#include "tarn_host/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "tarn_host/errors.h"

namespace tarn::host {
namespace {

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;

}  // namespace

bool WantsColour(int fd) noexcept {
  const char* no_color = std::getenv("NO_COLOR");
  if (no_color != nullptr && *no_color != '\0') return false;
  const char* term = std::getenv("TERM");
  return term != nullptr && std::string_view(term) != "dumb" && isatty(fd) == 1;
}

Output::Output() : Output(STDOUT_FILENO, "standard output") {}

Output::Output(int fd, std::string name)
    : fd_(fd), name_(std::move(name)), coloured_(WantsColour(fd)) {}

Output::~Output() {
  try {
    Flush();
  } catch (const ToolError&) {
    // Whoever wanted to know has called Flush.
    buffer_.clear();
  }
}

void Output::Write(std::string_view bytes) {
  buffer_ += bytes;
  if (buffer_.size() >= kBufferSize) Flush();
}

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
