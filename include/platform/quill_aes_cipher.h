// The product platform's cipher library, as far as the plug-in uses it.
#pragma once

#include <string>

// Identifier of an algorithm, and the only one that has a name.
inline constexpr unsigned int ALGID_AES128_ECB = 18;

class QuillAESCipher {
 public:
  // Deciphers `cipherText` into `plainText` with the algorithm of that identifier. 0 on success,
  // otherwise the library's error code. Key and text encoding are the library's own.
  //
  // Whether `plainText` is cleared before it is written, or touched on failure, is not promised.
  // The caller owns both texts, and wipes `plainText` when done. The plug-in lets anything thrown
  // pass.
  static unsigned int decryptEx(const std::string& cipherText, std::string& plainText,
                                unsigned int algorithm);
};
