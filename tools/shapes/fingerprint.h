#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::host {

// The first eight bytes of the SHA-256 of `text` as a big-endian number. Finding two texts with the
// same fingerprint takes some 2^32 attempts. Throws std::runtime_error if the cryptographic library
// fails. Thread-safe.
std::uint64_t Fingerprint(std::string_view text);

// `number` in 16 lower-case hexadecimal digits, as in "00000000000000ff".
std::string Hexadecimal(std::uint64_t number);

}  // namespace tarn::host
