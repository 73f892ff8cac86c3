// The key of the stored passwords and its file. Every failure but std::bad_alloc is an Error. All
// functions may be called from any thread.
#pragma once

#include <cstddef>
#include <string>

#include "standin/secret_bytes.h"

namespace tarn::standin {

// A stored key. Its file holds 64 hexadecimal digits and a newline.
struct CipherKey {
  static constexpr std::size_t kBytes = 32;

  // Reads the key file at `path`. The process's effective user must own the file, and nobody else
  // may have any access to it. Throws kKeyFileUnreadable, kKeyFileExposed, kKeyFileMalformed.
  static CipherKey FromFile(const std::string& path);

  // As FromFile, with the path in the environment variable TARN_KEY_FILE; an empty one counts as
  // unset. Throws also kKeyFileNotNamed.
  static CipherKey FromEnvironment();

  // Writes a new random key to a new file at `path`, readable and writable by its owner alone.
  // Never replaces a file, and removes the new one if writing fails. Throws kKeyFileNotWritten,
  // kLibraryFailure.
  static void CreateFile(const std::string& path);

  // kBytes bytes.
  SecretBytes bytes;
};

}  // namespace tarn::standin
