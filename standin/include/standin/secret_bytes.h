#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace tarn::standin {

// Memory that is overwritten before it is given back, also when a container grows out of it.
template <typename T>
struct WipingAllocator : std::allocator<T> {
  void deallocate(T* memory, std::size_t count) noexcept {
    OPENSSL_cleanse(memory, count * sizeof(T));
    std::allocator<T>::deallocate(memory, count);
  }
};

using SecretBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

}  // namespace tarn::standin
