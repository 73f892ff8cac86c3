#include "regular_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tarn::standin {
namespace {

[[noreturn]] void Fail(int error) { throw std::system_error(error, std::generic_category()); }

}  // namespace

RegularFile::RegularFile(const std::string& path)
    // Without O_NONBLOCK the call itself would wait for a FIFO's writer.
    : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)), status_{} {
  if (descriptor_ < 0) Fail(errno);
  int error = 0;
  if (fstat(descriptor_, &status_) != 0) {
    error = errno;
  } else if (S_ISDIR(status_.st_mode)) {
    error = EISDIR;
  } else if (!S_ISREG(status_.st_mode)) {
    error = EINVAL;
  }
  if (error == 0) return;
  // The destructor of an object that was never complete does not run.
  close(descriptor_);
  Fail(error);
}

RegularFile::~RegularFile() { close(descriptor_); }

std::size_t RegularFile::Read(std::span<unsigned char> buffer) {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t count = read(descriptor_, buffer.data() + filled, buffer.size() - filled);
    if (count == 0) break;
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      Fail(errno);
    }
  }
  return filled;
}

}  // namespace tarn::standin
