// Passwords as the system configuration stores them: enciphered, as one Base64 text.
//
// The bytes behind the Base64 text, in this order:
//   1   format, 1
//   1   algorithm identifier
//   8   fingerprint of the key
//   n   AES-256-GCM: nonce (12), enciphered password, tag (16); the bytes before are authenticated
//       too. AES-128-ECB: enciphered password, padded after PKCS #7
//   8   start of the SHA-256 digest of all bytes before
//
// Neither padding nor tag tells a wrong key from a damaged text, and one wrong key in 256 passes
// the padding. The digest is checked first and the fingerprint next, so that each trouble has a
// name of its own. AES-128-ECB stays unauthenticated: whoever can write the configuration can forge
// a text.
//
// Keys of both algorithms and the fingerprint are derived from one stored key and reveal nothing of
// it. Every failure but std::bad_alloc is an Error. All functions may be called from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "standin/error.h"
#include "standin/key_file.h"
#include "standin/secret_bytes.h"

namespace tarn::standin {

// Algorithm identifiers. Every other throws kUnknownAlgorithm where one is asked for.
inline constexpr unsigned int kAes128Ecb = 18;
inline constexpr unsigned int kAes256Gcm = 19;

// Longest password, in bytes.
inline constexpr std::size_t kMaxPasswordBytes = 1024;

// The Base64 text of `password`, which may hold any bytes and be empty. Two texts of one password
// differ under AES-256-GCM and agree under AES-128-ECB. Throws kPasswordTooLong, kLibraryFailure.
std::string EncryptPassword(const SecretBytes& password, unsigned int algorithm,
                            const CipherKey& key);

// The password behind `text`, which must be exactly as EncryptPassword made it, without blanks or
// newlines. Throws kOtherAlgorithm, kWrongKey, kDamagedText, kLibraryFailure.
SecretBytes DecryptPassword(std::string_view text, unsigned int algorithm, const CipherKey& key);

}  // namespace tarn::standin
