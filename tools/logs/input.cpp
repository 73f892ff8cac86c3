#include "logs/input.h"

#include <archive.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "sql/errors.h"

namespace tarn::host {
namespace {

constexpr std::size_t kBlockSize = std::size_t{256} * 1024;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// The first bytes of files of gzip, bzip2, xz, zstd and lz4.
constexpr std::array<std::string_view, 5> kMagics{"\x1F\x8B", "BZh", "\xFD\x37zXZ",
                                                  "\x28\xB5\x2F\xFD", "\x04\x22\x4D\x18"};

}  // namespace

Input::Input(const std::string& file, InputWaiter* waiter)
    : name_(file == kStandardInput ? "standard input" : file),
      waiter_(waiter),
      fd_(file == kStandardInput
              ? STDIN_FILENO
              // Without O_NONBLOCK, open would wait for a FIFO's writer, and not the waiter.
              : open(file.c_str(), O_RDONLY | O_CLOEXEC | (waiter != nullptr ? O_NONBLOCK : 0))) {
  if (fd_ < 0) throw InputError(SystemReason(name_, errno));
  if (waiter != nullptr && fd_ != STDIN_FILENO) fcntl(fd_, F_SETFL, O_RDONLY);
}

Input::~Input() {
  if (fd_ != STDIN_FILENO) close(fd_);
}

std::size_t Input::Read(char* to, std::size_t size) {
  for (;;) {
    stopped_ = stopped_ || (waiter_ != nullptr && !waiter_->Wait(fd_));
    if (stopped_) return 0;
    const ssize_t got = read(fd_, to, size);
    if (got >= 0) {
      bytes_read_ += static_cast<std::size_t>(got);
      return static_cast<std::size_t>(got);
    }
    if (errno != EINTR) throw InputError(SystemReason(name_, errno));
  }
}

// Unpacks an input with libarchive: one packed stream, or several after one another.
class TextInput::Unpacker {
 public:
  // `head` has the first bytes of the file, which were already read from `input`.
  Unpacker(Input& input, std::string_view head)
      : input_(input), packed_(head.begin(), head.end()), archive_(archive_read_new()) {
    if (!archive_) throw std::bad_alloc();
    archive* const reader = archive_.get();
    archive_read_support_filter_gzip(reader);
    archive_read_support_filter_bzip2(reader);
    archive_read_support_filter_xz(reader);
    archive_read_support_filter_zstd(reader);
    archive_read_support_filter_lz4(reader);
    archive_read_support_format_raw(reader);
    archive_read_support_format_empty(reader);
    archive_entry* entry = nullptr;
    int result = archive_read_open(reader, this, nullptr, ReadPacked, nullptr);
    if (result == ARCHIVE_OK) result = archive_read_next_header(reader, &entry);
    if (result == ARCHIVE_EOF || input_.Stopped()) {
      at_end_ = true;
    } else if (result != ARCHIVE_OK) {
      Fail();
    }
  }
  Unpacker(const Unpacker&) = delete;
  Unpacker& operator=(const Unpacker&) = delete;
  ~Unpacker() = default;

  std::size_t Read(char* to, std::size_t size) {
    if (at_end_) return 0;
    const la_ssize_t got = archive_read_data(archive_.get(), to, size);
    if (input_.Stopped()) return 0;
    if (got < 0) Fail();
    return static_cast<std::size_t>(got);
  }

 private:
  struct Free {
    void operator()(archive* reader) const noexcept { archive_read_free(reader); }
  };

  static la_ssize_t ReadPacked(archive* reader, void* self, const void** bytes) {
    auto& unpacker = *static_cast<Unpacker*>(self);
    try {
      if (unpacker.head_read_) {
        unpacker.packed_.resize(kBlockSize);
        unpacker.packed_.resize(
            unpacker.input_.Read(unpacker.packed_.data(), unpacker.packed_.size()));
      }
      unpacker.head_read_ = true;
    } catch (...) {
      // The exception must not pass through the library, which is in C.
      unpacker.error_ = std::current_exception();
      archive_set_error(reader, EIO, "can't be read");
      return ARCHIVE_FATAL;
    }
    *bytes = unpacker.packed_.data();
    return static_cast<la_ssize_t>(unpacker.packed_.size());
  }

  [[noreturn]] void Fail() const {
    if (error_) std::rethrow_exception(error_);
    const char* const reason = archive_error_string(archive_.get());
    throw InputError(input_.Name() + ": packed data: " + (reason != nullptr ? reason : "damaged"));
  }

  Input& input_;
  std::vector<char> packed_;
  bool head_read_ = false;
  bool at_end_ = false;
  // The error of reading the input, if there was one.
  std::exception_ptr error_;
  std::unique_ptr<archive, Free> archive_;
};

TextInput::TextInput(const std::string& file, InputWaiter* waiter) : input_(file, waiter) {}

TextInput::~TextInput() = default;

std::size_t TextInput::Read(char* to, std::size_t size) {
  if (!begun_) Begin();
  if (head_begin_ == head_end_) return ReadDecoded(to, size);
  const std::size_t count = std::min(size, head_end_ - head_begin_);
  std::memcpy(to, head_.data() + head_begin_, count);
  head_begin_ += count;
  return count;
}

std::size_t TextInput::ReadDecoded(char* to, std::size_t size) {
  return unpacker_ ? unpacker_->Read(to, size) : input_.Read(to, size);
}

void TextInput::Begin() {
  begun_ = true;
  // Whether the text begins with `magic`. Reads more bytes into the head if they decide.
  const auto begins_with = [this](std::string_view magic) {
    while (head_end_ < magic.size() && magic.starts_with({head_.data(), head_end_})) {
      const std::size_t got = ReadDecoded(head_.data() + head_end_, head_.size() - head_end_);
      if (got == 0) return false;
      head_end_ += got;
    }
    return std::string_view(head_.data(), head_end_).starts_with(magic);
  };
  if (std::any_of(kMagics.begin(), kMagics.end(), begins_with)) {
    unpacker_ = std::make_unique<Unpacker>(input_, std::string_view(head_.data(), head_end_));
    head_end_ = 0;
  }
  if (begins_with(kByteOrderMark)) head_begin_ = kByteOrderMark.size();
}

}  // namespace tarn::host
