#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

struct archive;

namespace tarn::host {

// The file name that means standard input.
inline constexpr const char* kStandardInput = "-";

// Waits for input, so that an interrupt can end the wait.
class InputWaiter {
 public:
  // Waits until `fd` can be read. False if reading has to end; then it stays false.
  virtual bool Wait(int fd) = 0;

 protected:
  ~InputWaiter() = default;
};

// A file or standard input, open for reading. Not thread-safe.
class Input {
 public:
  // Opens `file`, or standard input if `file` is "-". If there is a `waiter`, each read waits for
  // it first, and it must outlive the input. Throws InputError, as the readers do: "a.sql:
  // Permission denied".
  explicit Input(const std::string& file, InputWaiter* waiter = nullptr);
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input();

  // Reads the bytes that have arrived, at most `size`, after waiting for the first. Returns their
  // number, which is 0 at the end of the input or if the waiter ends it.
  std::size_t ReadBytes(char* to, std::size_t size);

  // As ReadBytes, but reads the input as text: if it begins like a file of gzip, bzip2, xz, zstd or
  // lz4, it is unpacked, and the byte order mark of UTF-8 is left out. Damaged packed data throw
  // InputError, too. Requires: ReadBytes was not called.
  std::size_t ReadText(char* to, std::size_t size);

  // The input's name in messages: its path or "standard input".
  const std::string& Name() const noexcept { return name_; }
  // The number of bytes, packed or not, that were read so far.
  std::uint64_t BytesRead() const noexcept { return bytes_read_; }
  // Whether the waiter ended the input.
  bool Stopped() const noexcept { return stopped_; }

 private:
  bool HeadBeginsWith(std::string_view magic);
  void BeginUnpacking();
  std::size_t ReadUnpacked(char* to, std::size_t size);
  void CheckUnpacking(int result);

  std::string name_;
  InputWaiter* waiter_;
  int fd_;
  std::uint64_t bytes_read_ = 0;
  bool stopped_ = false;

  // Whether ReadText was called, and the bytes that were read to recognise the packing, until
  // ReadText returns them.
  bool text_begun_ = false;
  std::string head_;
  // If the input is packed: its reader, the bytes of it that are still to be returned, and whether
  // it is at the end.
  std::shared_ptr<archive> unpacker_;
  std::string_view unpacked_;
  bool at_end_ = false;
  // The packed bytes that the reader gets, whether it has got them, and the error of reading them,
  // if there was one.
  std::string packed_;
  bool packed_is_read_ = false;
  std::exception_ptr error_;
};

}  // namespace tarn::host
