#pragma once

#include <cstring>
#include <string>

namespace tarn::dbconfig {

// A string that is overwritten before its storage is released, on every path. The whole buffer is
// overwritten, since an earlier, longer text may have left bytes after the current end. The bytes
// within the object are overwritten too, since a short text used them before it grew into a buffer.
//
// Buffers that the string released while it grew are not overwritten. Not copyable and not movable:
// either would leave a second copy. Not synchronised.
class WipedString {
 public:
  // Value of each byte after wiping.
  static constexpr unsigned char kFiller = 0xCC;

  WipedString() = default;
  WipedString(const WipedString&) = delete;
  WipedString& operator=(const WipedString&) = delete;

  ~WipedString() {
    Wipe();
    // Releases the buffer, which assignment and clear() would keep, so that the second Wipe reaches
    // the bytes within the object.
    std::string().swap(text_);
    Wipe();
  }

  // The string itself, for reading and writing.
  std::string& Text() noexcept { return text_; }

 private:
  void Wipe() noexcept {
    // Within its capacity a string grows without allocating.
    text_.resize(text_.capacity());
    std::memset(text_.data(), kFiller, text_.size());
    // Keeps the optimiser from removing the memset as a store that nobody reads.
    asm volatile("" : : "r"(text_.data()) : "memory");
  }

  std::string text_;
};

}  // namespace tarn::dbconfig
