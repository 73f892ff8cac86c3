#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace tarn::host {

// Hashes texts for a table whose cost no text can steer: SipHash with a random key, that of the
// object and its copies. They share a state, too, so they belong to one thread at a time.
//
// Not noexcept on purpose: the standard library then keeps the hash codes.
class KeyedHash {
 public:
  // Throws ToolError, as hashing does, when the cryptographic library fails.
  KeyedHash();

  std::size_t operator()(const std::string& text) const;

 private:
  class Mac;
  std::shared_ptr<Mac> mac_;
};

}  // namespace tarn::host
