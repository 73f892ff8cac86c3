#include "shapes/fingerprint.h"

#include <openssl/evp.h>

#include <array>
#include <climits>
#include <cstdio>
#include <stdexcept>

namespace tarn::host {

std::uint64_t Fingerprint(std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  if (EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("cannot hash: the cryptographic library fails");
  }
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < sizeof number; ++i) number = number << CHAR_BIT | digest.at(i);
  return number;
}

std::string Hexadecimal(std::uint64_t number) {
  char digits[2 * sizeof number + 1];
  std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(number));
  return digits;
}

}  // namespace tarn::host
