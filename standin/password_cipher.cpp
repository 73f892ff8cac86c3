#include "standin/password_cipher.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <span>
#include <system_error>
#include <utility>

#include "regular_file.h"

namespace tarn::standin {

namespace {

using Bytes = std::vector<unsigned char>;
using BytesView = std::span<const unsigned char>;

struct Algorithm {
  unsigned int identifier;
  const EVP_CIPHER* (*cipher)();
  std::string_view key_purpose;
  // 0 where nothing is authenticated.
  std::size_t nonce_bytes;
  std::size_t tag_bytes;
};

constexpr std::array kAlgorithms{
    Algorithm{kAes128Ecb, EVP_aes_128_ecb, "password AES-128-ECB", 0, 0},
    Algorithm{kAes256Gcm, EVP_aes_256_gcm, "password AES-256-GCM", 12, 16}};

const Algorithm& Find(unsigned int identifier) {
  const auto* const found =
      std::find_if(kAlgorithms.begin(), kAlgorithms.end(),
                   [&](const Algorithm& algorithm) { return algorithm.identifier == identifier; });
  Require(found != kAlgorithms.end(), Code::kUnknownAlgorithm,
          "unknown cipher algorithm " + std::to_string(identifier));
  return *found;
}

constexpr unsigned char kFormat = 1;
constexpr std::size_t kHeaderBytes = 10;
constexpr std::size_t kDigestBytes = 8;

// Enough for the longest password, and small enough that every length fits OpenSSL's int.
constexpr std::size_t kMaxTextBytes = 4 * kMaxPasswordBytes;

constexpr std::size_t kKeyDigits = 2 * CipherKey::kBytes;

// What fails in here leaves nothing in the thread's OpenSSL error queue, where the process's own
// TLS code would take it for its own failure.
class ErrorQueueMark {
 public:
  ErrorQueueMark() noexcept { ERR_set_mark(); }
  ErrorQueueMark(const ErrorQueueMark&) = delete;
  ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
  ~ErrorQueueMark() { ERR_pop_to_mark(); }
};

// For OpenSSL calls that fail only when OpenSSL itself is short of memory, entropy or a provider.
void RequireLibrary(bool success) {
  Require(success, Code::kLibraryFailure, "the cipher library failed");
}

void RequireSound(bool sound) {
  Require(sound, Code::kDamagedText, "the enciphered password is damaged");
}

const unsigned char* Data(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// 32 bytes that depend on the stored key and the purpose, and tell nothing about either the key or
// what is derived from it for another purpose.
SecretBytes Derive(const CipherKey& key, std::string_view purpose) {
  SecretBytes derived(SHA256_DIGEST_LENGTH);
  RequireLibrary(HMAC(EVP_sha256(), key.bytes.data(), static_cast<int>(key.bytes.size()),
                      Data(purpose), purpose.size(), derived.data(), nullptr) != nullptr);
  return derived;
}

Bytes Header(const Algorithm& algorithm, const CipherKey& key) {
  const SecretBytes fingerprint = Derive(key, "key fingerprint");
  Bytes header(kHeaderBytes, kFormat);
  header[1] = static_cast<unsigned char>(algorithm.identifier);
  std::copy_n(fingerprint.begin(), kHeaderBytes - 2, header.begin() + 2);
  return header;
}

// Digest and Base64.
std::string Pack(Bytes bytes) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  RequireLibrary(SHA256(bytes.data(), bytes.size(), digest.data()) != nullptr);
  bytes.insert(bytes.end(), digest.begin(), digest.begin() + kDigestBytes);
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  text.resize(
      static_cast<std::size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                               bytes.data(), static_cast<int>(bytes.size()))));
  return text;
}

// The bytes that Pack made `text` of, a header at least.
Bytes Unpack(std::string_view text) {
  RequireSound(text.size() <= kMaxTextBytes);
  Bytes bytes(kMaxTextBytes);
  // Counts the bytes that padding stands for.
  const int size = EVP_DecodeBlock(bytes.data(), Data(text), static_cast<int>(text.size()));
  const int behind = static_cast<int>(kDigestBytes) + (text.ends_with('=') ? 1 : 0) +
                     (text.ends_with("==") ? 1 : 0);
  RequireSound(size >= static_cast<int>(kHeaderBytes) + behind);
  bytes.resize(static_cast<std::size_t>(size - behind));
  // Also tells blanks around the text and stray bits before the padding, which pass the decoder.
  RequireSound(Pack(bytes) == text);
  return bytes;
}

// Enciphers or deciphers `input` with the algorithm's own derived key to `output`, which has room
// for a block and a tag more. The nonce stands behind the header, which is authenticated too, and
// the tag behind the enciphered bytes, be they input or output. The size of the output without tag;
// none if the tag or the padding does not fit.
std::optional<std::size_t> Run(bool encipher, const Algorithm& algorithm, const CipherKey& key,
                               const unsigned char* header, BytesView input,
                               unsigned char* output) {
  const SecretBytes derived = Derive(key, algorithm.key_purpose);
  const auto tag_bytes = static_cast<int>(algorithm.tag_bytes);
  const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> owner(EVP_CIPHER_CTX_new(),
                                                                              &EVP_CIPHER_CTX_free);
  EVP_CIPHER_CTX* const context = owner.get();
  int head = 0;
  int tail = 0;
  RequireLibrary(context != nullptr &&
                 EVP_CipherInit_ex(context, algorithm.cipher(), nullptr, derived.data(),
                                   header + kHeaderBytes, encipher ? 1 : 0) == 1);
  RequireLibrary(tag_bytes == 0 ||
                 EVP_CipherUpdate(context, nullptr, &head, header, kHeaderBytes) == 1);
  // OpenSSL's call for many purposes takes no constant, but only reads the tag.
  RequireLibrary(tag_bytes == 0 || encipher ||
                 EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_TAG, tag_bytes,
                                     const_cast<unsigned char*>(input.data() + input.size())) == 1);
  RequireLibrary(
      EVP_CipherUpdate(context, output, &head, input.data(), static_cast<int>(input.size())) == 1);
  if (EVP_CipherFinal_ex(context, output + head, &tail) != 1) return std::nullopt;
  RequireLibrary(
      tag_bytes == 0 || !encipher ||
      EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, tag_bytes, output + head + tail) == 1);
  return static_cast<std::size_t>(head + tail);
}

}  // namespace

CipherKey CipherKey::FromFile(const std::string& path) {
  const std::string name = "key file " + path;
  // The digits, a newline and one byte more, which a longer file would fill.
  SecretBytes digits(kKeyDigits + 2);
  struct stat status {};
  std::size_t size = ReadRegularFile(path, digits, status, Code::kKeyFileUnreadable, name);
  Require(status.st_uid == geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0,
          Code::kKeyFileExposed,
          name + ": others have access to it; it must be this user's own, with mode 0600");
  // A text of C without the newline.
  if (size == kKeyDigits + 1 && digits[kKeyDigits] == '\n') digits[--size] = '\0';
  CipherKey key{SecretBytes(kBytes)};
  std::size_t key_size = 0;
  const ErrorQueueMark mark;
  Require(size == kKeyDigits &&
              OPENSSL_hexstr2buf_ex(key.bytes.data(), kBytes, &key_size,
                                    reinterpret_cast<const char*>(digits.data()), '\0') == 1 &&
              key_size == kBytes,
          Code::kKeyFileMalformed, name + ": not 64 hexadecimal digits");
  return key;
}

CipherKey CipherKey::FromEnvironment() {
  const char* path = std::getenv("TARN_KEY_FILE");
  Require(path != nullptr && *path != '\0', Code::kKeyFileNotNamed,
          "TARN_KEY_FILE names no key file");
  return FromFile(path);
}

void CipherKey::CreateFile(const std::string& path) {
  const ErrorQueueMark mark;
  SecretBytes bytes(kBytes);
  SecretBytes line(kKeyDigits + 1);
  RequireLibrary(RAND_priv_bytes(bytes.data(), kBytes) == 1 &&
                 OPENSSL_buf2hexstr_ex(reinterpret_cast<char*>(line.data()), line.size(), nullptr,
                                       bytes.data(), kBytes, '\0') == 1);
  line.back() = '\n';

  const int descriptor =
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
  int error = descriptor < 0 ? errno : 0;
  if (descriptor >= 0) {
    const ssize_t written = write(descriptor, line.data(), line.size());
    if (written < 0 || fsync(descriptor) != 0) {
      error = errno;
    } else if (static_cast<std::size_t>(written) != line.size()) {
      error = ENOSPC;
    }
    if (close(descriptor) != 0 && error == 0) error = errno;
    if (error != 0) unlink(path.c_str());
  }
  Require(error == 0, Code::kKeyFileNotWritten,
          "key file " + path + ": " +
              (error == EEXIST ? "exists and is left as it is"
                               : std::generic_category().message(error)));
}

std::string EncryptPassword(const SecretBytes& password, unsigned int algorithm,
                            const CipherKey& key) {
  const Algorithm& found = Find(algorithm);
  Require(password.size() <= kMaxPasswordBytes, Code::kPasswordTooLong,
          "the password is longer than " + std::to_string(kMaxPasswordBytes) + " bytes");
  const ErrorQueueMark mark;
  Bytes bytes = Header(found, key);
  const std::size_t start = kHeaderBytes + found.nonce_bytes;
  bytes.resize(start + password.size() + EVP_MAX_BLOCK_LENGTH + found.tag_bytes);
  RequireLibrary(RAND_bytes(bytes.data() + kHeaderBytes, static_cast<int>(found.nonce_bytes)) == 1);
  const auto size = Run(true, found, key, bytes.data(), password, bytes.data() + start);
  RequireLibrary(size.has_value());
  bytes.resize(start + *size + found.tag_bytes);
  return Pack(std::move(bytes));
}

SecretBytes DecryptPassword(std::string_view text, unsigned int algorithm, const CipherKey& key) {
  const Algorithm& found = Find(algorithm);
  const ErrorQueueMark mark;
  const Bytes bytes = Unpack(text);
  const Bytes header = Header(found, key);
  RequireSound(bytes[0] == kFormat);
  Require(bytes[1] == header[1], Code::kOtherAlgorithm,
          "the password is enciphered with algorithm " + std::to_string(bytes[1]) + ", not " +
              std::to_string(algorithm));
  Require(std::equal(header.begin(), header.end(), bytes.begin()), Code::kWrongKey,
          "the password is enciphered with another key");
  const std::size_t start = kHeaderBytes + found.nonce_bytes;
  RequireSound(bytes.size() >= start + found.tag_bytes);
  const BytesView enciphered(bytes.data() + start, bytes.size() - start - found.tag_bytes);
  SecretBytes password(enciphered.size() + EVP_MAX_BLOCK_LENGTH);
  const auto size = Run(false, found, key, bytes.data(), enciphered, password.data());
  RequireSound(size.has_value());
  password.resize(*size);
  return password;
}

}  // namespace tarn::standin
