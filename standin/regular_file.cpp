#include "regular_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace tarn::standin {
namespace {

[[noreturn]] void Fail(const std::string& path, int error) {
  throw std::runtime_error(path + ": " + std::generic_category().message(error));
}

class Closing {
 public:
  explicit Closing(int descriptor) noexcept : descriptor_(descriptor) {}
  Closing(const Closing&) = delete;
  Closing& operator=(const Closing&) = delete;
  ~Closing() { close(descriptor_); }

 private:
  int descriptor_;
};

}  // namespace

std::size_t ReadRegularFile(const std::string& path, std::span<unsigned char> buffer,
                            struct stat& status) {
  // Without O_NONBLOCK the call itself would wait for a FIFO's writer.
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) Fail(path, errno);
  const Closing closing(descriptor);
  if (fstat(descriptor, &status) != 0) Fail(path, errno);
  if (!S_ISREG(status.st_mode)) Fail(path, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);

  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t count = read(descriptor, buffer.data() + filled, buffer.size() - filled);
    if (count == 0) break;
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      Fail(path, errno);
    }
  }
  return filled;
}

}  // namespace tarn::standin
