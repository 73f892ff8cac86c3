#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tarn::host {

// The file name that means standard input.
inline constexpr const char* kStandardInput = "-";

// Waits for input, so that an interrupt can end the wait.
class InputWaiter {
 public:
  // Waits until `fd` can be read. False if reading has to end.
  virtual bool Wait(int fd) = 0;

 protected:
  ~InputWaiter() = default;
};

// A file or standard input, open for reading. Not thread-safe.
class Input {
 public:
  // Opens `file`, or standard input if `file` is "-". If there is a `waiter`, each read waits for
  // it first, and it must outlive the input. Throws InputError, as Read does: "a.sql: Permission
  // denied".
  explicit Input(const std::string& file, InputWaiter* waiter = nullptr);
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input();

  // Reads the bytes that have arrived, at most `size`, after waiting for the first. Returns their
  // number, which is 0 at the end of the input or if the waiter ends it.
  std::size_t Read(char* to, std::size_t size);

  // The input's name in messages: its path or "standard input".
  const std::string& Name() const noexcept { return name_; }
  // The number of bytes that were read so far.
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

// The text in a file or standard input. If the input begins like a file of gzip, bzip2, xz, zstd or
// lz4, the text is unpacked. The byte order mark of UTF-8 is left out. Not thread-safe.
class TextInput {
 public:
  // As Input's constructor.
  explicit TextInput(const std::string& file, InputWaiter* waiter = nullptr);
  TextInput(const TextInput&) = delete;
  TextInput& operator=(const TextInput&) = delete;
  ~TextInput();

  // As Input::Read, of the unpacked text. Damaged packed data throw InputError, too.
  std::size_t Read(char* to, std::size_t size);

  // The input as it is, packed or not.
  const Input& Source() const noexcept { return input_; }

 private:
  class Unpacker;

  std::size_t ReadDecoded(char* to, std::size_t size);
  void Begin();

  Input input_;
  // The bytes that were read to recognise the packing, until Read returns them.
  std::array<char, 4096> head_{};
  std::size_t head_begin_ = 0;
  std::size_t head_end_ = 0;
  bool begun_ = false;
  std::unique_ptr<Unpacker> unpacker_;
};

}  // namespace tarn::host
