#include "standin/password_cipher.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "openssl_calls.h"

namespace tarn::standin {
namespace {

constexpr unsigned char kFormat = 1;
constexpr std::size_t kHeaderBytes = 10;
constexpr std::size_t kDigestBytes = 8;

// Enough for the longest password, and small enough that every length fits OpenSSL's int.
constexpr std::size_t kMaxTextBytes = 4 * kMaxPasswordBytes;

void RequireSound(bool sound) {
  Require(sound, Code::kDamagedText, "the enciphered password is damaged");
}

// 32 bytes derived from the stored key for one purpose. They reveal neither the key nor the bytes
// derived for any other purpose.
SecretBytes Derive(const CipherKey& key, std::string_view purpose) {
  SecretBytes derived(SHA256_DIGEST_LENGTH);
  RequireLibrary(HMAC(EVP_sha256(), key.bytes.data(), static_cast<int>(key.bytes.size()),
                      reinterpret_cast<const unsigned char*>(purpose.data()), purpose.size(),
                      derived.data(), nullptr) != nullptr);
  return derived;
}

// Appends the digest to `bytes` and encodes them all in Base64.
std::string Pack(SecretBytes bytes) {
  SecretBytes digest(SHA256_DIGEST_LENGTH);
  RequireLibrary(SHA256(bytes.data(), bytes.size(), digest.data()) != nullptr);
  bytes.insert(bytes.end(), digest.begin(), digest.begin() + kDigestBytes);
  std::string text(4 * ((bytes.size() + 2) / 3), '\0');
  // Also writes a NUL after the text, where the string's own NUL is.
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                  static_cast<int>(bytes.size()));
  return text;
}

// The bytes that Pack was given to make `text`: a header at least.
SecretBytes Unpack(std::string_view text) {
  RequireSound(text.size() <= kMaxTextBytes);
  SecretBytes bytes(kMaxTextBytes);
  // The size counts a byte for each "=" of the padding, too.
  const int size =
      EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                      static_cast<int>(text.size()));
  const std::size_t padding = text.size() - (text.find_last_not_of('=') + 1);
  const int suffix = static_cast<int>(kDigestBytes + padding);
  RequireSound(size >= static_cast<int>(kHeaderBytes) + suffix);
  bytes.resize(static_cast<std::size_t>(size - suffix));
  // Also refuses blanks around the text and stray bits before the padding, which the decoder
  // accepts.
  RequireSound(Pack(bytes) == text);
  return bytes;
}

struct Algorithm {
  unsigned int identifier;
  const EVP_CIPHER* cipher;
  std::string_view key_purpose;
  // 0 if the algorithm authenticates nothing.
  std::size_t nonce_bytes;
  std::size_t tag_bytes;
};

Algorithm Find(unsigned int identifier) {
  switch (identifier) {
    case kAes128Ecb:
      return {identifier, EVP_aes_128_ecb(), "password AES-128-ECB", 0, 0};
    case kAes256Gcm:
      return {identifier, EVP_aes_256_gcm(), "password AES-256-GCM", 12, 16};
    default:
      throw Error(Code::kUnknownAlgorithm,
                  "unknown cipher algorithm " + std::to_string(identifier));
  }
}

SecretBytes Header(const Algorithm& algorithm, const CipherKey& key) {
  SecretBytes header{kFormat, static_cast<unsigned char>(algorithm.identifier)};
  const SecretBytes fingerprint = Derive(key, "key fingerprint");
  header.insert(header.end(), fingerprint.begin(), fingerprint.begin() + kHeaderBytes - 2);
  return header;
}

// Enciphers or deciphers `input` with the key that is derived for the algorithm. `header` consists
// of kHeaderBytes, which are authenticated too, and the nonce. The tag follows the enciphered
// bytes.
SecretBytes Run(bool encipher, const Algorithm& algorithm, const CipherKey& key,
                const SecretBytes& header, std::span<const unsigned char> input) {
  const SecretBytes derived = Derive(key, algorithm.key_purpose);
  const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> owner(EVP_CIPHER_CTX_new(),
                                                                              &EVP_CIPHER_CTX_free);
  EVP_CIPHER_CTX* const context = owner.get();
  const bool authenticates = algorithm.tag_bytes > 0;
  const auto tag_bytes = static_cast<int>(algorithm.tag_bytes);
  SecretBytes output(input.size() + EVP_MAX_BLOCK_LENGTH + algorithm.tag_bytes);
  if (!encipher) input = input.first(input.size() - algorithm.tag_bytes);
  int head = 0;
  int tail = 0;
  // EVP_CIPHER_CTX_ctrl takes a pointer to non-const, but only reads the tag.
  RequireLibrary(
      context != nullptr &&
      EVP_CipherInit_ex(context, algorithm.cipher, nullptr, derived.data(),
                        header.data() + kHeaderBytes, encipher ? 1 : 0) == 1 &&
      (!authenticates ||
       EVP_CipherUpdate(context, nullptr, &head, header.data(), kHeaderBytes) == 1) &&
      (!authenticates || encipher ||
       EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_TAG, tag_bytes,
                           const_cast<unsigned char*>(input.data() + input.size())) == 1) &&
      EVP_CipherUpdate(context, output.data(), &head, input.data(),
                       static_cast<int>(input.size())) == 1);
  // Fails if the tag or the padding is wrong.
  RequireSound(EVP_CipherFinal_ex(context, output.data() + head, &tail) == 1);
  auto size = static_cast<std::size_t>(head) + static_cast<std::size_t>(tail);
  if (encipher && authenticates) {
    RequireLibrary(
        EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, tag_bytes, output.data() + size) == 1);
    size += algorithm.tag_bytes;
  }
  output.resize(size);
  return output;
}

}  // namespace

std::string EncryptPassword(const SecretBytes& password, unsigned int algorithm,
                            const CipherKey& key) {
  const Algorithm found = Find(algorithm);
  Require(password.size() <= kMaxPasswordBytes, Code::kPasswordTooLong,
          "the password is longer than " + std::to_string(kMaxPasswordBytes) + " bytes");
  const ErrorQueueMark mark;
  SecretBytes bytes = Header(found, key);
  bytes.resize(kHeaderBytes + found.nonce_bytes);
  RequireLibrary(RAND_bytes(bytes.data() + kHeaderBytes, static_cast<int>(found.nonce_bytes)) == 1);
  const SecretBytes enciphered = Run(true, found, key, bytes, password);
  bytes.insert(bytes.end(), enciphered.begin(), enciphered.end());
  return Pack(std::move(bytes));
}

SecretBytes DecryptPassword(std::string_view text, unsigned int algorithm, const CipherKey& key) {
  const Algorithm found = Find(algorithm);
  const ErrorQueueMark mark;
  const SecretBytes bytes = Unpack(text);
  const SecretBytes header = Header(found, key);
  RequireSound(bytes[0] == kFormat);
  Require(bytes[1] == header[1], Code::kOtherAlgorithm,
          "the password is enciphered with algorithm " + std::to_string(bytes[1]) + ", not " +
              std::to_string(algorithm));
  Require(std::equal(header.begin(), header.end(), bytes.begin()), Code::kWrongKey,
          "the password is enciphered with another key");
  const std::size_t start = kHeaderBytes + found.nonce_bytes;
  RequireSound(bytes.size() >= start + found.tag_bytes);
  return Run(false, found, key, bytes,
             {bytes.begin() + static_cast<std::ptrdiff_t>(start), bytes.end()});
}

}  // namespace tarn::standin
