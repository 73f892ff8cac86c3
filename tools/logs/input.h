#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tarn::host {

// Names standard input where a file name is expected.
inline constexpr const char* kStandardInput = "-";

// Told to wait until there is something to read.
class InputWaiter {
 public:
  // Waits until `fd` can be read; false when no more is to be read.
  virtual bool Wait(int fd) = 0;

 protected:
  ~InputWaiter() = default;
};

// A file or standard input, open for reading. Not thread-safe.
class Input {
 public:
  // Opens `file`, or takes standard input for "-". `waiter`, if any, is asked before every read.
  // Throws InputError, as Read does, naming the file and the system's reason. Requires: `waiter`
  // outlives the input.
  explicit Input(const std::string& file, InputWaiter* waiter = nullptr);
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input();

  // Reads what there is, up to `size` bytes, waiting for the first; 0 at the end, or when the
  // waiter wants no more.
  std::size_t Read(char* to, std::size_t size);

  // What messages call the input: its path or "standard input".
  const std::string& Name() const noexcept { return name_; }
  // How many bytes were read so far.
  std::uint64_t BytesRead() const noexcept { return bytes_read_; }
  // Whether the waiter ended the input.
  bool Stopped() const noexcept { return stopped_; }

 private:
  std::string name_;
  InputWaiter* waiter_;
  int fd_;
  std::uint64_t bytes_read_ = 0;
  bool stopped_ = false;
};

// The text in a file or standard input: unpacked if it begins as a file of gzip, bzip2, xz, zstd or
// lz4 does, without the byte order mark of UTF-8. Not thread-safe.
class TextInput {
 public:
  // As Input's.
  explicit TextInput(const std::string& file, InputWaiter* waiter = nullptr);
  TextInput(const TextInput&) = delete;
  TextInput& operator=(const TextInput&) = delete;
  ~TextInput();

  // As Input::Read; what is damaged in a packed file throws InputError, too.
  std::size_t Read(char* to, std::size_t size);

  // The input underneath.
  const Input& Source() const noexcept { return input_; }

 private:
  class Unpacker;

  std::size_t ReadDecoded(char* to, std::size_t size);
  void Begin();

  Input input_;
  // What was read to recognise the packing, until it is handed on.
  std::array<char, 4096> head_{};
  std::size_t head_begin_ = 0;
  std::size_t head_end_ = 0;
  bool begun_ = false;
  std::unique_ptr<Unpacker> unpacker_;
};

}  // namespace tarn::host
