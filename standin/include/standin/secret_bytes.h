#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace tarn::standin {

// Overwrites memory before it is released, also when a container moves to a larger block.
template <typename T>
struct WipingAllocator : std::allocator<T> {
  void deallocate(T* memory, std::size_t count) noexcept {
    OPENSSL_cleanse(memory, count * sizeof(T));
    std::allocator<T>::deallocate(memory, count);
  }
};

using SecretBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

}  // namespace tarn::standin
