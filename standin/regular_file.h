#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <span>
#include <string>

namespace tarn::standin {

// A regular file open for reading; closed with the object. Not synchronised.
class RegularFile {
 public:
  // Opens the file at `path`, following links. Throws std::system_error, whose code() holds the
  // reason, also for anything that is no regular file: a FIFO or a device could block its reader
  // for ever.
  explicit RegularFile(const std::string& path);

  RegularFile(const RegularFile&) = delete;
  RegularFile& operator=(const RegularFile&) = delete;
  ~RegularFile();

  // The file's status when it was opened.
  const struct stat& Status() const noexcept { return status_; }

  // Reads on into `buffer` until it is full or the file ends; the number of bytes read. Throws
  // std::system_error.
  std::size_t Read(std::span<unsigned char> buffer);

 private:
  int descriptor_;
  struct stat status_;
};

}  // namespace tarn::standin
