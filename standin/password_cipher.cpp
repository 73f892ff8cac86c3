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
#include <cstdint>
#include <cstdlib>
#include <span>
#include <system_error>
#include <utility>

#include "regular_file.h"

namespace tarn::standin {
namespace {

using Bytes = std::vector<unsigned char>;
using BytesView = std::span<const unsigned char>;

constexpr unsigned char kFormat = 1;
constexpr std::size_t kFingerprintBytes = 8;
constexpr std::size_t kHeaderBytes = 2 + kFingerprintBytes;
constexpr std::size_t kDigestBytes = 8;
constexpr std::size_t kNonceBytes = 12;
constexpr std::size_t kTagBytes = 16;

// Enough for the longest password, and small enough that every length fits OpenSSL's int.
constexpr std::size_t kMaxTextBytes = 4 * kMaxPasswordBytes;

constexpr std::size_t kKeyDigits = 2 * CipherKey::kBytes;
constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;
constexpr mode_t kOthers = S_IRWXG | S_IRWXO;

// What fails in here leaves nothing in the thread's OpenSSL error queue, where the process's own
// TLS code would take it for its own failure.
class ErrorQueueMark {
 public:
  ErrorQueueMark() noexcept { ERR_set_mark(); }
  ErrorQueueMark(const ErrorQueueMark&) = delete;
  ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
  ~ErrorQueueMark() { ERR_pop_to_mark(); }
};

struct FreeContext {
  void operator()(EVP_CIPHER_CTX* context) const noexcept { EVP_CIPHER_CTX_free(context); }
};

// For OpenSSL calls that fail only when OpenSSL itself is short of memory, entropy or a provider.
void Require(bool success) {
  if (!success) throw CipherError(CipherCode::kLibraryFailure, "the cipher library failed");
}

[[noreturn]] void FailDamaged() {
  throw CipherError(CipherCode::kDamagedText, "the enciphered password is damaged");
}

// 32 bytes that depend on the stored key and the purpose, and tell nothing about either the key or
// what is derived from it for another purpose.
SecretBytes Derive(const CipherKey& key, std::string_view purpose) {
  SecretBytes derived(SHA256_DIGEST_LENGTH);
  Require(HMAC(EVP_sha256(), key.Data(), static_cast<int>(CipherKey::kBytes),
               reinterpret_cast<const unsigned char*>(purpose.data()), purpose.size(),
               derived.data(), nullptr) != nullptr);
  return derived;
}

std::array<unsigned char, SHA256_DIGEST_LENGTH> Digest(BytesView bytes) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  Require(EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr) ==
          1);
  return digest;
}

std::string EncodeBase64(BytesView bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  text.resize(
      static_cast<std::size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                               bytes.data(), static_cast<int>(bytes.size()))));
  return text;
}

Bytes DecodeBase64(std::string_view text) {
  if (text.empty() || text.size() > kMaxTextBytes) FailDamaged();
  Bytes bytes(3 * (text.size() / 4 + 1));
  const int size =
      EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                      static_cast<int>(text.size()));
  if (size < 0) FailDamaged();
  // EVP_DecodeBlock counts the bytes that padding stands for.
  const auto padding = static_cast<std::size_t>(std::count(text.begin(), text.end(), '='));
  if (padding > static_cast<std::size_t>(size)) FailDamaged();
  bytes.resize(static_cast<std::size_t>(size) - padding);
  // It also passes over blanks around the text and stray bits before the padding.
  if (EncodeBase64(bytes) != text) FailDamaged();
  return bytes;
}

// What stands around the enciphered password: nothing under AES-128-ECB.
struct Frame {
  explicit Frame(CipherAlgorithm algorithm)
      : nonce(algorithm == CipherAlgorithm::kAes256Gcm ? kNonceBytes : 0),
        tag(algorithm == CipherAlgorithm::kAes256Gcm ? kTagBytes : 0) {}

  Bytes nonce;
  Bytes tag;
};

// Enciphers or deciphers `input` with the algorithm's own derived key. Under AES-256-GCM `header`
// is authenticated too, and the frame's tag is written or compared. False if the tag or the padding
// does not fit, with nothing worth keeping in `output`.
bool Run(bool encipher, CipherAlgorithm algorithm, const CipherKey& key, BytesView header,
         Frame& frame, BytesView input, SecretBytes& output) {
  const bool gcm = algorithm == CipherAlgorithm::kAes256Gcm;
  const SecretBytes derived = Derive(key, gcm ? "password AES-256-GCM" : "password AES-128-ECB");
  const std::unique_ptr<EVP_CIPHER_CTX, FreeContext> context(EVP_CIPHER_CTX_new());
  const auto tag_bytes = static_cast<int>(frame.tag.size());
  output.resize(input.size() + EVP_MAX_BLOCK_LENGTH);
  int head = 0;
  int tail = 0;
  Require(context && EVP_CipherInit_ex(context.get(), gcm ? EVP_aes_256_gcm() : EVP_aes_128_ecb(),
                                       nullptr, derived.data(), gcm ? frame.nonce.data() : nullptr,
                                       encipher ? 1 : 0) == 1);
  if (gcm) {
    Require(EVP_CipherUpdate(context.get(), nullptr, &head, header.data(),
                             static_cast<int>(header.size())) == 1);
  }
  if (gcm && !encipher) {
    Require(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, tag_bytes,
                                frame.tag.data()) == 1);
  }
  Require(EVP_CipherUpdate(context.get(), output.data(), &head, input.data(),
                           static_cast<int>(input.size())) == 1);
  if (EVP_CipherFinal_ex(context.get(), output.data() + head, &tail) != 1) return false;
  if (gcm && encipher) {
    Require(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, tag_bytes,
                                frame.tag.data()) == 1);
  }
  output.resize(static_cast<std::size_t>(head) + static_cast<std::size_t>(tail));
  return true;
}

void Append(Bytes& bytes, BytesView more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

CipherError KeyFileError(CipherCode code, const std::string& path, const std::string& reason) {
  return CipherError(code, "key file " + path + ": " + reason);
}

}  // namespace

CipherAlgorithm AlgorithmFromIdentifier(unsigned int identifier) {
  for (const auto algorithm : {CipherAlgorithm::kAes128Ecb, CipherAlgorithm::kAes256Gcm}) {
    if (identifier == static_cast<unsigned int>(algorithm)) return algorithm;
  }
  throw CipherError(CipherCode::kUnknownAlgorithm,
                    "unknown cipher algorithm " + std::to_string(identifier));
}

CipherKey CipherKey::FromFile(const std::string& path) {
  // The digits, a newline and one byte more, which a longer file would fill.
  SecretBytes digits(kKeyDigits + 2);
  struct stat status {};
  try {
    digits.resize(ReadRegularFile(path, digits, status));
  } catch (const std::runtime_error& error) {
    throw CipherError(CipherCode::kKeyFileUnreadable, std::string("key file ") + error.what());
  }
  if (status.st_uid != geteuid() || (status.st_mode & kOthers) != 0) {
    throw KeyFileError(CipherCode::kKeyFileExposed, path,
                       "others have access to it; it must be this user's own, with mode 0600");
  }
  if (digits.size() == kKeyDigits + 1 && digits.back() == '\n') digits.pop_back();
  const auto is_digit = [](unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
  };
  if (digits.size() != kKeyDigits || !std::all_of(digits.begin(), digits.end(), is_digit)) {
    throw KeyFileError(CipherCode::kKeyFileMalformed, path,
                       "not " + std::to_string(kKeyDigits) + " hexadecimal digits");
  }
  digits.push_back('\0');
  SecretBytes bytes(kBytes);
  const ErrorQueueMark mark;
  Require(OPENSSL_hexstr2buf_ex(bytes.data(), bytes.size(), nullptr,
                                reinterpret_cast<const char*>(digits.data()), '\0') == 1);
  return CipherKey(std::move(bytes));
}

CipherKey CipherKey::FromEnvironment() {
  const char* path = std::getenv(kKeyFileVariable);
  if (path == nullptr || *path == '\0') {
    throw CipherError(CipherCode::kKeyFileNotNamed,
                      std::string(kKeyFileVariable) + " names no key file");
  }
  return FromFile(path);
}

void CipherKey::CreateFile(const std::string& path) {
  SecretBytes line(kKeyDigits + 1);
  {
    const ErrorQueueMark mark;
    SecretBytes bytes(kBytes);
    Require(RAND_priv_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1);
    Require(OPENSSL_buf2hexstr_ex(reinterpret_cast<char*>(line.data()), line.size(), nullptr,
                                  bytes.data(), bytes.size(), '\0') == 1);
  }
  line.back() = '\n';

  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly);
  if (descriptor < 0) {
    throw KeyFileError(
        CipherCode::kKeyFileNotWritten, path,
        errno == EEXIST ? "exists and is left as it is" : std::generic_category().message(errno));
  }
  const ssize_t written = write(descriptor, line.data(), line.size());
  int error = 0;
  if (written < 0 || fsync(descriptor) != 0) {
    error = errno;
  } else if (static_cast<std::size_t>(written) != line.size()) {
    error = ENOSPC;
  }
  if (close(descriptor) != 0 && error == 0) error = errno;
  if (error == 0) return;
  unlink(path.c_str());
  throw KeyFileError(CipherCode::kKeyFileNotWritten, path, std::generic_category().message(error));
}

std::string EncryptPassword(const SecretBytes& password, CipherAlgorithm algorithm,
                            const CipherKey& key) {
  if (password.size() > kMaxPasswordBytes) {
    throw CipherError(
        CipherCode::kPasswordTooLong,
        "the password is longer than " + std::to_string(kMaxPasswordBytes) + " bytes");
  }
  const ErrorQueueMark mark;
  Bytes bytes{kFormat, static_cast<unsigned char>(algorithm)};
  Append(bytes, BytesView(Derive(key, "key fingerprint")).first(kFingerprintBytes));

  Frame frame(algorithm);
  Require(frame.nonce.empty() ||
          RAND_bytes(frame.nonce.data(), static_cast<int>(frame.nonce.size())) == 1);
  SecretBytes enciphered;
  Require(Run(true, algorithm, key, bytes, frame, password, enciphered));
  Append(bytes, frame.nonce);
  Append(bytes, enciphered);
  Append(bytes, frame.tag);
  Append(bytes, BytesView(Digest(bytes)).first(kDigestBytes));
  return EncodeBase64(bytes);
}

SecretBytes DecryptPassword(std::string_view text, CipherAlgorithm algorithm,
                            const CipherKey& key) {
  const ErrorQueueMark mark;
  const Bytes bytes = DecodeBase64(text);
  if (bytes.size() < kHeaderBytes + kDigestBytes) FailDamaged();
  const BytesView sound = BytesView(bytes).first(bytes.size() - kDigestBytes);
  const auto digest = Digest(sound);
  if (!std::equal(bytes.end() - kDigestBytes, bytes.end(), digest.begin())) FailDamaged();
  if (sound[0] != kFormat) FailDamaged();
  if (sound[1] != static_cast<unsigned char>(algorithm)) {
    throw CipherError(CipherCode::kOtherAlgorithm,
                      "the password is enciphered with algorithm " + std::to_string(sound[1]) +
                          ", not " + std::to_string(static_cast<unsigned int>(algorithm)));
  }
  const SecretBytes fingerprint = Derive(key, "key fingerprint");
  if (!std::equal(sound.begin() + 2, sound.begin() + kHeaderBytes, fingerprint.begin())) {
    throw CipherError(CipherCode::kWrongKey, "the password is enciphered with another key");
  }

  Frame frame(algorithm);
  const BytesView body = sound.subspan(kHeaderBytes);
  if (body.size() < frame.nonce.size() + frame.tag.size()) FailDamaged();
  const BytesView enciphered =
      body.subspan(frame.nonce.size(), body.size() - frame.nonce.size() - frame.tag.size());
  frame.nonce.assign(body.begin(), enciphered.begin());
  frame.tag.assign(enciphered.end(), body.end());
  SecretBytes password;
  if (!Run(false, algorithm, key, sound.first(kHeaderBytes), frame, enciphered, password)) {
    FailDamaged();
  }
  return password;
}

}  // namespace tarn::standin
