#include "platform/quill_aes_cipher.h"

#include "standin/password_cipher.h"
#include "standin/warning.h"

// The key is that of the file named by TARN_KEY_FILE, read for each call; codes are those of
// Code. On failure `plainText` is as it was and a warning tells the reason. Any thread may call.
unsigned int QuillAESCipher::decryptEx(const std::string& cipherText, std::string& plainText,
                                       unsigned int algorithm) {
  using namespace tarn::standin;
  try {
    const SecretBytes password =
        DecryptPassword(cipherText, algorithm, CipherKey::FromEnvironment());
    // Given iterators of another type, assign would make a copy on the way and not wipe it.
    plainText.assign(reinterpret_cast<const char*>(password.data()), password.size());
    return static_cast<unsigned int>(Code::kSuccess);
  } catch (const Error& error) {
    Warn(error, LocationInfo("quill_aes_cipher.cpp", __func__, __LINE__));
    return static_cast<unsigned int>(error.code);
  }
}
