#pragma once

#include <cstring>
#include <string>

namespace tarn::dbconfig {

// A string whose bytes are overwritten before its storage is released, however that comes about.
//
// Bytes that the string left behind while it grew or shrank are beyond its reach. Not copyable and
// not movable: either would leave a second trace. Not synchronised.
class WipedString {
 public:
  // Value of each byte after wiping.
  static constexpr unsigned char kFiller = 0xCC;

  WipedString() = default;
  WipedString(const WipedString&) = delete;
  WipedString& operator=(const WipedString&) = delete;

  ~WipedString() {
    std::memset(text_.data(), kFiller, text_.size());
    // To the optimiser the bytes are about to die; this reads them.
    asm volatile("" : : "r"(text_.data()) : "memory");
  }

  // The string itself, to be written or read in place.
  std::string& Text() noexcept { return text_; }

 private:
  std::string text_;
};

}  // namespace tarn::dbconfig
