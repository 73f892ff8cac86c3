#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

namespace tarn::sqlnorm {

// The bytes of a text while it is written: on the stack if they fit there, else in one heap block.
// Bytes that have not been written are uninitialised.
template <std::size_t kInlineCapacity>
class TextBuffer {
 public:
  TextBuffer() noexcept = default;
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;
  ~TextBuffer() = default;

  char* Data() noexcept { return data_; }
  std::size_t Capacity() const noexcept { return capacity_; }

  // Provides space for `capacity` bytes in all and keeps the first `used`. May move the data.
  // Throws std::bad_alloc, the buffer unchanged.
  void Reserve(std::size_t capacity, std::size_t used) {
    if (capacity <= capacity_) return;
    std::unique_ptr<char[]> block(new char[capacity]);
    std::memcpy(block.get(), data_, used);
    heap_ = std::move(block);
    data_ = heap_.get();
    capacity_ = capacity;
  }

  // As Reserve, but without two long blocks at a time: only the bytes used are held twice. The
  // buffer is empty if this throws.
  void Reallocate(std::size_t capacity, std::size_t used) {
    const std::unique_ptr<char[]> kept(new char[used]);
    std::memcpy(kept.get(), data_, used);
    heap_.reset();
    data_ = inline_;
    capacity_ = kInlineCapacity;
    Reserve(capacity, 0);
    std::memcpy(data_, kept.get(), used);
  }

 private:
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): zeroing it would cost more than its use
  char inline_[kInlineCapacity];
  std::unique_ptr<char[]> heap_;
  char* data_ = inline_;
  std::size_t capacity_ = kInlineCapacity;
};

// A text that is being rewritten, padded (see kPadding). A buffer owns the bytes.
struct Text {
  char* data;
  std::size_t length;
};

// A statement of up to about a kilobyte needs no heap block.
#ifdef TARN_INLINE_CAPACITY
// For fuzzers and sanitizers: almost no text fits on the stack, so that they see each overrun.
using WorkingBuffer = TextBuffer<TARN_INLINE_CAPACITY>;
using OutputBuffer = TextBuffer<TARN_INLINE_CAPACITY>;
#else
using WorkingBuffer = TextBuffer<1024>;
using OutputBuffer = TextBuffer<2048>;
#endif

}  // namespace tarn::sqlnorm
