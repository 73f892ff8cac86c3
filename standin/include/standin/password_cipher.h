// Passwords as the system configuration stores them: enciphered, as one Base64 text.
//
// The Base64 text encodes these bytes, in this order:
//   1   format, 1
//   1   algorithm identifier
//   8   fingerprint of the key
//   n   AES-256-GCM: nonce (12), enciphered password, tag (16), which also authenticates the ten
//       bytes before the nonce. AES-128-ECB: enciphered password, padded after PKCS #7
//   8   the first bytes of the SHA-256 digest of all bytes before
//
// A wrong padding or tag does not show whether the key is wrong or the text is damaged, and one
// wrong key in 256 passes the check of the padding. So the digest is checked first (kDamagedText)
// and the fingerprint next (kWrongKey). AES-128-ECB authenticates nothing: anyone who can write the
// configuration can forge a text.
//
// The keys of both algorithms and the fingerprint are derived from one stored key and reveal
// nothing of it. Every failure but std::bad_alloc is an Error. All functions may be called from any
// thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "standin/error.h"
#include "standin/key_file.h"
#include "standin/secret_bytes.h"

namespace tarn::standin {

// Algorithm identifiers. The functions below throw kUnknownAlgorithm for any other.
inline constexpr unsigned int kAes128Ecb = 18;
inline constexpr unsigned int kAes256Gcm = 19;

// Longest password, in bytes.
inline constexpr std::size_t kMaxPasswordBytes = 1024;

// The Base64 text of `password`, which may hold any bytes and be empty. Two texts of one password
// differ under AES-256-GCM and are equal under AES-128-ECB. Throws kPasswordTooLong,
// kLibraryFailure.
std::string EncryptPassword(const SecretBytes& password, unsigned int algorithm,
                            const CipherKey& key);

// The password in `text`, which must be exactly as EncryptPassword made it, without blanks or
// newlines. Throws kOtherAlgorithm, kWrongKey, kDamagedText, kLibraryFailure.
SecretBytes DecryptPassword(std::string_view text, unsigned int algorithm, const CipherKey& key);

}  // namespace tarn::standin
