#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string>
#include <system_error>

#include "standin/error.h"
#include "standin/secret_bytes.h"

namespace tarn::standin {

// The content of the file at `path`, of at most 1 MiB; links are followed. `status` becomes the
// file's status. Throws an Error with `code` and the message "NAME: REASON". Refuses anything but a
// regular file, since a FIFO or a device could block its reader for ever. Any thread may call.
inline SecretBytes ReadRegularFile(const std::string& path, struct stat& status, Code code,
                                   const std::string& name) {
  constexpr off_t kMaxBytes = 1 << 20;
  const auto require = [&](bool holds, int error) {
    Require(holds, code, name + ": " + std::generic_category().message(error));
  };
  // Without O_NONBLOCK the call itself would wait for a FIFO's writer.
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  const auto close_it = [](const int* opened) { close(*opened); };
  const std::unique_ptr<const int, decltype(close_it)> closing(&descriptor);
  require(descriptor >= 0, errno);
  require(fstat(descriptor, &status) == 0, errno);
  require(S_ISREG(status.st_mode), S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
  require(status.st_size <= kMaxBytes, EFBIG);
  SecretBytes content(static_cast<std::size_t>(status.st_size));
  std::size_t filled = 0;
  for (ssize_t count = 1; count > 0; filled += static_cast<std::size_t>(count)) {
    count = TEMP_FAILURE_RETRY(read(descriptor, content.data() + filled, content.size() - filled));
    require(count >= 0, errno);
  }
  content.resize(filled);
  return content;
}

}  // namespace tarn::standin
