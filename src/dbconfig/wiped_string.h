#pragma once

#include <cstring>
#include <string>

namespace tarn::dbconfig {

// A string that is overwritten before its storage is released, however that comes about: the whole
// of its buffer, whatever a longer text left behind its end, and the room within the object that a
// text which had grown out of it left.
//
// Buffers that the string gave back while it grew are beyond its reach. Not copyable and not
// movable: either would leave a second trace. Not synchronised.
class WipedString {
 public:
  // Value of each byte after wiping.
  static constexpr unsigned char kFiller = 0xCC;

  WipedString() = default;
  WipedString(const WipedString&) = delete;
  WipedString& operator=(const WipedString&) = delete;

  ~WipedString() {
    Wipe();
    // An assignment or clear() would keep the buffer; without one, the object's own room shows.
    std::string().swap(text_);
    Wipe();
  }

  // The string itself, to be written or read in place.
  std::string& Text() noexcept { return text_; }

 private:
  void Wipe() noexcept {
    // Within its capacity a string grows without allocating.
    text_.resize(text_.capacity());
    std::memset(text_.data(), kFiller, text_.size());
    // To the optimiser the bytes are about to die; this reads them.
    asm volatile("" : : "r"(text_.data()) : "memory");
  }

  std::string text_;
};

}  // namespace tarn::dbconfig
