#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::host {

// The first eight bytes of the SHA-256 of `text`, the first one the most significant. A collision
// costs whoever wants one 2^32 attempts. Throws std::runtime_error when the cryptographic library
// fails. Thread-safe.
std::uint64_t Fingerprint(std::string_view text);

// 16 lower-case digits.
std::string Hexadecimal(std::uint64_t number);

}  // namespace tarn::host
