#pragma once

#include <stdexcept>
#include <string>

namespace tarn::standin {

// What went wrong; those of the cipher as QuillAESCipher::decryptEx returns them.
enum class Code : unsigned int {
  kSuccess = 0,
  // The system configuration, the setting asked for or a number of the process is missing or unfit.
  // No code of the cipher.
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

}  // namespace tarn::standin
