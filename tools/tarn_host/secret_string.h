#pragma once

#include <string.h>

#include <cstddef>
#include <string>

namespace tarn::host {

// A text that is overwritten before its memory is given back: the whole of its buffer, so that
// what a longer text left behind goes too. Only a text that outgrows its buffer escapes. Not
// copyable and not movable: either would leave a second trace. Not synchronised.
class SecretString {
 public:
  SecretString() = default;
  // `size` bytes NUL, to be filled in place.
  explicit SecretString(std::size_t size) : text_(size, '\0') {}
  SecretString(const SecretString&) = delete;
  SecretString& operator=(const SecretString&) = delete;
  ~SecretString() {
    text_.resize(text_.capacity());
    explicit_bzero(text_.data(), text_.size());
  }

  // The string itself, to be written or read in place.
  std::string& Text() noexcept { return text_; }
  const std::string& Text() const noexcept { return text_; }

 private:
  std::string text_;
};

}  // namespace tarn::host
