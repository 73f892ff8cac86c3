#include "platform/quill_aes_cipher.h"

#include "standin/password_cipher.h"
#include "standin/warning.h"

// The file that TARN_KEY_FILE names holds the key, and is read for each call. The result is a Code.
// On failure `plainText` is unchanged and a warning states the reason. Any thread may call.
unsigned int QuillAESCipher::decryptEx(const std::string& cipherText, std::string& plainText,
                                       unsigned int algorithm) {
  using namespace tarn::standin;
  try {
    const SecretBytes password =
        DecryptPassword(cipherText, algorithm, CipherKey::FromEnvironment());
    // With iterators of another type, assign would make a temporary copy and not wipe it.
    plainText.assign(reinterpret_cast<const char*>(password.data()), password.size());
    return static_cast<unsigned int>(Code::kSuccess);
  } catch (const Error& error) {
    Warn(error, LocationInfo("quill_aes_cipher.cpp", __func__, __LINE__));
    return static_cast<unsigned int>(error.code);
  }
}
