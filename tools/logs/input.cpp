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
#include <utility>

#include "logs/scan.h"
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

std::size_t Input::ReadBytes(char* to, std::size_t size) {
  for (;;) {
    stopped_ = waiter_ != nullptr && !waiter_->Wait(fd_);
    if (stopped_) return 0;
    const ssize_t got = read(fd_, to, size);
    if (got >= 0) {
      bytes_read_ += static_cast<std::size_t>(got);
      return static_cast<std::size_t>(got);
    }
    if (errno != EINTR) throw InputError(SystemReason(name_, errno));
  }
}

std::size_t Input::ReadText(char* to, std::size_t size) {
  if (!std::exchange(text_begun_, true)) {
    if (std::any_of(kMagics.begin(), kMagics.end(),
                    [this](std::string_view magic) { return HeadBeginsWith(magic); })) {
      BeginUnpacking();
    }
    if (HeadBeginsWith(kByteOrderMark)) head_.erase(0, kByteOrderMark.size());
  }
  if (head_.empty()) return ReadUnpacked(to, size);
  const std::size_t count = head_.copy(to, size);
  head_.erase(0, count);
  return count;
}

// Whether the text begins with `magic`. Reads more bytes into the head if they decide.
bool Input::HeadBeginsWith(std::string_view magic) {
  std::array<char, 4096> block;
  while (head_.size() < magic.size() && magic.starts_with(head_)) {
    const std::size_t got = ReadUnpacked(block.data(), block.size());
    if (got == 0) return false;
    head_.append(block.data(), got);
  }
  return head_.starts_with(magic);
}

// Begins to read the input with libarchive, which unpacks one packed stream or several after one
// another. The head has the first packed bytes.
void Input::BeginUnpacking() {
  archive* const reader = archive_read_new();
  if (reader == nullptr) throw std::bad_alloc();
  unpacker_.reset(reader, archive_read_free);
  for (const auto support : {archive_read_support_filter_gzip, archive_read_support_filter_bzip2,
                             archive_read_support_filter_xz, archive_read_support_filter_zstd,
                             archive_read_support_filter_lz4, archive_read_support_format_raw,
                             archive_read_support_format_empty}) {
    support(reader);
  }
  const auto read_packed = [](archive* failed, void* self, const void** bytes) -> la_ssize_t {
    auto& input = *static_cast<Input*>(self);
    try {
      if (std::exchange(input.packed_is_read_, true)) {
        input.packed_.resize(kBlockSize);
        input.packed_.resize(input.ReadBytes(input.packed_.data(), kBlockSize));
      }
    } catch (...) {
      // The exception must not pass through the library, which is in C.
      input.error_ = std::current_exception();
      archive_set_error(failed, EIO, "can't be read");
      return ARCHIVE_FATAL;
    }
    *bytes = input.packed_.data();
    return static_cast<la_ssize_t>(input.packed_.size());
  };
  packed_.swap(head_);
  archive_entry* entry = nullptr;
  int result = archive_read_open(reader, this, nullptr, read_packed, nullptr);
  if (result == ARCHIVE_OK) result = archive_read_next_header(reader, &entry);
  CheckUnpacking(result);
}

std::size_t Input::ReadUnpacked(char* to, std::size_t size) {
  if (!unpacker_) return ReadBytes(to, size);
  // Block by block, since archive_read_data would lose the bytes before an error.
  while (unpacked_.empty() && !at_end_) {
    const void* block = nullptr;
    std::size_t block_size = 0;
    la_int64_t offset = 0;
    const int result = archive_read_data_block(unpacker_.get(), &block, &block_size, &offset);
    CheckUnpacking(result);
    unpacked_ = {static_cast<const char*>(block), block_size};
  }
  return TakeBytes(unpacked_, size).copy(to, size);
}

// Ends the input, or throws, if the library's `result` asks for it.
void Input::CheckUnpacking(int result) {
  at_end_ = result == ARCHIVE_EOF || stopped_;
  if (result == ARCHIVE_OK || at_end_) return;
  if (error_) std::rethrow_exception(error_);
  const char* const reason = archive_error_string(unpacker_.get());
  throw InputError(name_ + ": packed data: " + (reason != nullptr ? reason : "damaged"));
}

}  // namespace tarn::host
