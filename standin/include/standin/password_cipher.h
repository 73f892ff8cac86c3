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

#include <openssl/crypto.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::standin {

// What went wrong; those of the cipher as QuillAESCipher::decryptEx returns them.
enum class Code : unsigned int {
  kSuccess = 0,
  // The system configuration, or the setting asked for, is missing or unfit. No code of the cipher.
  kConfiguration = 1,
  kUnknownAlgorithm = 701,
  kKeyFileNotNamed = 702,
  kKeyFileUnreadable = 703,
  // Another user owns the key file, or others than its owner may read, write or run it.
  kKeyFileExposed = 704,
  kKeyFileMalformed = 705,
  kKeyFileNotWritten = 706,
  // A sound text, but of the other algorithm.
  kOtherAlgorithm = 707,
  kWrongKey = 708,
  kDamagedText = 709,
  kPasswordTooLong = 710,
  kLibraryFailure = 711,
};

// what() is one line that names the thing and the reason, and never holds a secret.
struct Error : std::runtime_error {
  Error(Code what_failed, const std::string& message)
      : std::runtime_error(message), code(what_failed) {}

  Code code;
};

// Throws an Error unless `holds`. The message is made either way: not for a hot path.
inline void Require(bool holds, Code code, const std::string& message) {
  if (!holds) throw Error(code, message);
}

// Memory that is overwritten before it is given back, also when a container grows out of it.
template <typename T>
struct WipingAllocator : std::allocator<T> {
  void deallocate(T* memory, std::size_t count) noexcept {
    OPENSSL_cleanse(memory, count * sizeof(T));
    std::allocator<T>::deallocate(memory, count);
  }
};

using SecretBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

// Algorithm identifiers. Every other throws kUnknownAlgorithm where one is asked for.
inline constexpr unsigned int kAes128Ecb = 18;
inline constexpr unsigned int kAes256Gcm = 19;

// Longest password, in bytes.
inline constexpr std::size_t kMaxPasswordBytes = 1024;

// A stored key, kept in a file of its own as 64 hexadecimal digits and a newline.
struct CipherKey {
  static constexpr std::size_t kBytes = 32;

  // Reads the key file at `path`, which must be the process's effective user's own, and nobody
  // else may have any access to. Throws kKeyFileUnreadable, kKeyFileExposed, kKeyFileMalformed.
  static CipherKey FromFile(const std::string& path);

  // As FromFile, with the path in the environment variable TARN_KEY_FILE; an empty one counts as
  // unset. Throws also kKeyFileNotNamed.
  static CipherKey FromEnvironment();

  // Writes a new random key to a new file at `path`, readable and writable by its owner alone.
  // Never replaces a file, and leaves none behind when writing fails. Throws kKeyFileNotWritten,
  // kLibraryFailure.
  static void CreateFile(const std::string& path);

  // kBytes bytes.
  SecretBytes bytes;
};

// The Base64 text of `password`, which may hold any bytes and be empty. Two texts of one password
// differ under AES-256-GCM and agree under AES-128-ECB. Throws kPasswordTooLong, kLibraryFailure.
std::string EncryptPassword(const SecretBytes& password, unsigned int algorithm,
                            const CipherKey& key);

// The password behind `text`, which must be exactly as EncryptPassword made it, without blanks or
// newlines. Throws kOtherAlgorithm, kWrongKey, kDamagedText, kLibraryFailure.
SecretBytes DecryptPassword(std::string_view text, unsigned int algorithm, const CipherKey& key);

}  // namespace tarn::standin
