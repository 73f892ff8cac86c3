#include "standin/key_file.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <system_error>

#include "openssl_calls.h"
#include "regular_file.h"
#include "standin/error.h"

namespace tarn::standin {
namespace {

constexpr std::size_t kKeyDigits = 2 * CipherKey::kBytes;

}  // namespace

CipherKey CipherKey::FromFile(const std::string& path) {
  const std::string name = "key file " + path;
  struct stat status {};
  SecretBytes digits = ReadRegularFile(path, status, Code::kKeyFileUnreadable, name);
  Require(status.st_uid == geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0,
          Code::kKeyFileExposed,
          name + ": others have access to it; it must be this user's own, with mode 0600");
  if (!digits.empty() && digits.back() == '\n') digits.pop_back();
  // OpenSSL takes a NUL-terminated text.
  digits.push_back('\0');
  CipherKey key{SecretBytes(kBytes)};
  std::size_t key_size = 0;
  const ErrorQueueMark mark;
  Require(digits.size() == kKeyDigits + 1 &&
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
    // A write of only a part of the bytes does not set errno.
    errno = ENOSPC;
    if (write(descriptor, line.data(), line.size()) != static_cast<ssize_t>(line.size()) ||
        fsync(descriptor) != 0) {
      error = errno;
    }
    if (close(descriptor) != 0 && error == 0) error = errno;
    if (error != 0) unlink(path.c_str());
  }
  Require(error == 0, Code::kKeyFileNotWritten,
          "key file " + path + ": " +
              (error == EEXIST ? "exists and is left as it is"
                               : std::generic_category().message(error)));
}

}  // namespace tarn::standin
