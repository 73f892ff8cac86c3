#include "regular_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>

namespace tarn::standin {
namespace {

struct Close {
  void operator()(const int* descriptor) const noexcept { close(*descriptor); }
};

}  // namespace

std::size_t ReadRegularFile(const std::string& path, std::span<unsigned char> buffer,
                            struct stat& status, Code code, const std::string& name) {
  // Without O_NONBLOCK the call itself would wait for a FIFO's writer.
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  int error = errno;
  const std::unique_ptr<const int, Close> closing(&descriptor);
  const auto require = [&](bool holds) {
    Require(holds, code, name + ": " + std::generic_category().message(error));
  };
  require(descriptor >= 0);
  error = fstat(descriptor, &status) != 0 ? errno : S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  require(S_ISREG(status.st_mode));
  std::size_t filled = 0;
  for (ssize_t count = 1; count != 0 && filled < buffer.size();) {
    count = read(descriptor, buffer.data() + filled, buffer.size() - filled);
    error = errno;
    require(count >= 0 || error == EINTR);
    if (count > 0) filled += static_cast<std::size_t>(count);
  }
  return filled;
}

}  // namespace tarn::standin
