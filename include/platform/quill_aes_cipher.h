// The product platform's cipher library, as far as the plug-in uses it.
#pragma once

#include <string>

// The only algorithm identifier that the library names.
inline constexpr unsigned int ALGID_AES128_ECB = 18;

class QuillAESCipher {
 public:
  // Deciphers `cipherText` into `plainText` with the algorithm that `algorithm` identifies. Returns
  // 0 on success, otherwise the library's error code. The key and the encoding of the text are the
  // library's own.
  //
  // The library may or may not clear `plainText` before it writes it, and may or may not change it
  // on failure. The caller owns both texts, and wipes `plainText` after use. The plug-in does not
  // catch exceptions of this function.
  static unsigned int decryptEx(const std::string& cipherText, std::string& plainText,
                                unsigned int algorithm);
};
