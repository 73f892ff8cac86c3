#include "logs/input.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
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
constexpr std::string_view kGzipMagic = "\x1F\x8B";

}  // namespace

Input::Input(const std::string& file, InputWaiter* waiter)
    : name_(file == kStandardInput ? "standard input" : file),
      waiter_(waiter),
      fd_(file == kStandardInput
              ? STDIN_FILENO
              // Without O_NONBLOCK the call itself would wait for a FIFO's writer.
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

// Unpacks gzip: one member or several behind one another.
class TextInput::Unpacker {
 public:
  // `head` are the first bytes of the file, already read from `input`.
  Unpacker(Input& input, std::string_view head) : input_(input), packed_(kBlockSize) {
    // The largest window, and a gzip header before the data.
    constexpr int kGzipWindow = 15 + 16;
    if (inflateInit2(&stream_, kGzipWindow) != Z_OK) throw std::bad_alloc();
    std::copy(head.begin(), head.end(), packed_.begin());
    Refill(head.size());
  }
  Unpacker(const Unpacker&) = delete;
  Unpacker& operator=(const Unpacker&) = delete;
  ~Unpacker() { inflateEnd(&stream_); }

  std::size_t Read(char* to, std::size_t size) {
    stream_.next_out = reinterpret_cast<Bytef*>(to);
    stream_.avail_out = static_cast<uInt>(size);
    while (stream_.avail_out == size) {
      if (stream_.avail_in == 0) {
        Refill(input_.Read(packed_.data(), packed_.size()));
        if (stream_.avail_in == 0) {
          if (within_member_ && !input_.Stopped()) Fail("ends within packed data");
          return 0;
        }
      }
      within_member_ = true;
      const int result = inflate(&stream_, Z_NO_FLUSH);
      if (result == Z_STREAM_END) {
        within_member_ = false;
        inflateReset(&stream_);
      } else if (result == Z_MEM_ERROR) {
        throw std::bad_alloc();
      } else if (result != Z_OK) {
        Fail(stream_.msg != nullptr ? stream_.msg : "damaged");
      }
    }
    return size - stream_.avail_out;
  }

 private:
  void Refill(std::size_t size) noexcept {
    stream_.next_in = reinterpret_cast<Bytef*>(packed_.data());
    stream_.avail_in = static_cast<uInt>(size);
  }

  [[noreturn]] void Fail(const char* reason) const {
    throw InputError(input_.Name() + ": gzip: " + reason);
  }

  Input& input_;
  std::vector<char> packed_;
  z_stream stream_{};
  bool within_member_ = false;
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
  // Fills the head as long as it may be the start of `magic`, and says whether it is.
  const auto begins_with = [this](std::string_view magic) {
    while (head_end_ < magic.size() && magic.starts_with({head_.data(), head_end_})) {
      const std::size_t got = ReadDecoded(head_.data() + head_end_, head_.size() - head_end_);
      if (got == 0) return false;
      head_end_ += got;
    }
    return std::string_view(head_.data(), head_end_).starts_with(magic);
  };
  if (begins_with(kGzipMagic)) {
    unpacker_ = std::make_unique<Unpacker>(input_, std::string_view(head_.data(), head_end_));
    head_end_ = 0;
  }
  if (begins_with(kByteOrderMark)) head_begin_ = kByteOrderMark.size();
}

}  // namespace tarn::host
