#pragma once

#include <stdexcept>
#include <string>

namespace tarn::standin {

// The kinds of failure. QuillAESCipher::decryptEx returns those of the cipher.
enum class Code : unsigned int {
  kSuccess = 0,
  // The system configuration or a setting in it is missing or invalid, or TARN_PROC_ID or
  // TARN_PROC_HANDLE is invalid. Not a code of the cipher.
  kConfiguration = 1,
  kUnknownAlgorithm = 701,
  kKeyFileNotNamed = 702,
  kKeyFileUnreadable = 703,
  // Another user owns the key file, or others than its owner may read, write or run it.
  kKeyFileExposed = 704,
  kKeyFileMalformed = 705,
  kKeyFileNotWritten = 706,
  // The text is sound, but of the other algorithm.
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

// Throws an Error unless `holds`. The message is built in either case, so this is not for a hot
// path.
inline void Require(bool holds, Code code, const std::string& message) {
  if (!holds) throw Error(code, message);
}

}  // namespace tarn::standin
