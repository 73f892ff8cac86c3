#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

namespace tarn::sqlnorm {

// Bytes of a text in the making: on the stack while there are few, in one heap block beyond. The
// content is uninitialised where nothing has been written.
template <std::size_t kInlineCapacity>
class TextBuffer {
 public:
  TextBuffer() noexcept = default;
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;
  ~TextBuffer() = default;

  char* Data() noexcept { return data_; }
  std::size_t Capacity() const noexcept { return capacity_; }

  // Makes room for `capacity` bytes in all, keeping the first `used`. May move the data. Throws
  // std::bad_alloc.
  void Reserve(std::size_t capacity, std::size_t used) {
    if (capacity <= capacity_) return;
    std::unique_ptr<char[]> block(new char[capacity]);
    std::memcpy(block.get(), data_, used);
    heap_ = std::move(block);
    data_ = heap_.get();
    capacity_ = capacity;
  }

 private:
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): zeroing it would cost more than its use
  char inline_[kInlineCapacity];
  std::unique_ptr<char[]> heap_;
  char* data_ = inline_;
  std::size_t capacity_ = kInlineCapacity;
};

// A text being rewritten, padded (see kPadding). The bytes belong to a buffer.
struct Text {
  char* data;
  std::size_t length;
};

// One text of up to about a kilobyte, and one of up to two, need no heap block.
#ifdef TARN_INLINE_CAPACITY
// Fuzzers and a sanitizer's test: next to nothing is on the stack, so that whatever runs over the
// end of a buffer is seen.
using WorkingBuffer = TextBuffer<TARN_INLINE_CAPACITY>;
using OutputBuffer = TextBuffer<TARN_INLINE_CAPACITY>;
#else
using WorkingBuffer = TextBuffer<1024>;
using OutputBuffer = TextBuffer<2048>;
#endif

}  // namespace tarn::sqlnorm
