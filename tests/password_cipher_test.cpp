// The cipher's texts and key files, and QuillAESCipher above them.
#include "standin/password_cipher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "platform/quill_aes_cipher.h"
#include "support/allocations.h"
#include "support/surroundings.h"

namespace tarn::test {
namespace {

using namespace tarn::standin;
using enum tarn::standin::CipherCode;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::array kAlgorithms{CipherAlgorithm::kAes256Gcm, CipherAlgorithm::kAes128Ecb};
const std::string kDigits(64, 'a');

SecretBytes Secret(std::string_view text) { return {text.begin(), text.end()}; }

CipherKey Key(const TemporaryFolder& folder, const std::string& digits = kDigits) {
  return CipherKey::FromFile(folder.Write("some.key", digits + '\n'));
}

// The code of the CipherError that `run` throws; kSuccess if none.
template <typename Run>
CipherCode CodeOf(Run run) {
  try {
    run();
    return kSuccess;
  } catch (const CipherError& error) {
    return error.Code();
  }
}

std::vector<unsigned char> Decoded(const std::string& text) {
  std::vector<unsigned char> bytes(text.size());
  const int size =
      EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                      static_cast<int>(text.size()));
  const auto padding = std::count(text.begin(), text.end(), '=');
  bytes.resize(static_cast<std::size_t>(size - padding));
  return bytes;
}

// The text of these bytes with their digest made right, as one who means to deceive would.
std::string Resealed(std::vector<unsigned char> bytes) {
  constexpr std::size_t kDigestBytes = 8;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(bytes.data(), bytes.size() - kDigestBytes, digest.data(), nullptr, EVP_sha256(),
             nullptr);
  std::copy_n(digest.begin(), kDigestBytes, bytes.end() - kDigestBytes);
  std::string text(bytes.size() * 2, '\0');
  text.resize(
      static_cast<std::size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                               bytes.data(), static_cast<int>(bytes.size()))));
  return text;
}

TEST(PasswordCipher, GivesBackEveryPassword) {
  const TemporaryFolder folder;
  const CipherKey key = Key(folder);
  // Lengths around the block of the cipher and the group of Base64, and the longest.
  for (const std::size_t size :
       std::initializer_list<std::size_t>{0, 1, 2, 3, 14, 15, 16, 17, 31, 32, 33, 1024}) {
    std::string password(size, '\0');
    for (std::size_t i = 0; i < size; ++i) password[i] = static_cast<char>(i * 37);
    for (const CipherAlgorithm algorithm : kAlgorithms) {
      const std::string text = EncryptPassword(Secret(password), algorithm, key);
      EXPECT_EQ(DecryptPassword(text, algorithm, key), Secret(password)) << size;
      EXPECT_EQ(text.find_first_of("\n "), std::string::npos);
      // A repeated text would mean a repeated nonce.
      EXPECT_EQ(EncryptPassword(Secret(password), algorithm, key) == text,
                algorithm == CipherAlgorithm::kAes128Ecb);
    }
  }
  EXPECT_EQ(CodeOf([&] { EncryptPassword(SecretBytes(1025), kAlgorithms[0], key); }),
            kPasswordTooLong);
}

// Any one character changed, any cut and any addition is damage, and is not taken for a wrong key.
TEST(PasswordCipher, TellsEveryDamage) {
  const TemporaryFolder folder;
  const CipherKey key = Key(folder);
  for (const CipherAlgorithm algorithm : kAlgorithms) {
    const std::string text = EncryptPassword(Secret("a secret"), algorithm, key);
    std::vector<std::string> damaged{text + "=",  text + "AAAA",          text + "\n",  " " + text,
                                     text + text, std::string(5000, 'A'), "plain text", "===="};
    for (std::size_t i = 0; i < text.size(); ++i) {
      damaged.push_back(text.substr(0, i));
      for (const char other : {'A', '/', '=', '-', '\0', '\x80'}) {
        if (text[i] == other) continue;
        damaged.push_back(text);
        damaged.back()[i] = other;
      }
    }
    for (const std::string& bad : damaged) {
      EXPECT_EQ(CodeOf([&] { DecryptPassword(bad, algorithm, key); }), kDamagedText) << bad;
    }
  }
  EXPECT_EQ(ERR_peek_error(), 0U);
}

// Padding alone would take one wrong key in 256 for the right one.
TEST(PasswordCipher, TellsEveryWrongKey) {
  const TemporaryFolder folder;
  for (const CipherAlgorithm algorithm : kAlgorithms) {
    const std::string text = EncryptPassword(Secret("secret"), algorithm, Key(folder));
    for (int i = 0; i < 300; ++i) {
      std::string digits = kDigits;
      digits.replace(0, 3, std::to_string(100 + i));
      const CipherKey other = Key(folder, digits);
      EXPECT_EQ(CodeOf([&] { DecryptPassword(text, algorithm, other); }), kWrongKey);
    }
  }
}

TEST(PasswordCipher, RefusesForgedGcmTexts) {
  const TemporaryFolder folder;
  const CipherKey key = Key(folder);
  const auto algorithm = CipherAlgorithm::kAes256Gcm;
  const auto bytes = Decoded(EncryptPassword(Secret("secret"), algorithm, key));
  ASSERT_EQ(CodeOf([&] { DecryptPassword(Resealed(bytes), algorithm, key); }), kSuccess);
  constexpr std::size_t kHeader = 10;
  for (std::size_t i = kHeader; i + 8 < bytes.size(); ++i) {
    auto forged = bytes;
    forged[i] ^= 1;
    EXPECT_EQ(CodeOf([&] { DecryptPassword(Resealed(forged), algorithm, key); }), kDamagedText)
        << i;
  }
  // Bodies too short for what the algorithm needs.
  for (const CipherAlgorithm either : kAlgorithms) {
    for (std::size_t body = 0; body < 12 + 16; ++body) {
      auto cut = bytes;
      cut[1] = static_cast<unsigned char>(either);
      cut.resize(kHeader + body + 8);
      EXPECT_EQ(CodeOf([&] { DecryptPassword(Resealed(cut), either, key); }), kDamagedText) << body;
    }
  }
}

TEST(PasswordCipher, LeavesNoPasswordInFreedMemory) {
  const TemporaryFolder folder;
  const CipherKey key = Key(folder);
  const ScopedVariable key_file("TARN_KEY_FILE", folder.Path("some.key"));
  // Longer than what a text keeps inside its object.
  const std::string password = "a password that is long enough to live on the heap";
  std::string plain;
  plain.reserve(password.size());
  for (const CipherAlgorithm algorithm : kAlgorithms) {
    const WatchFreedBlocks watch(password);
    const std::string text = EncryptPassword(Secret(password), algorithm, key);
    EXPECT_EQ(QuillAESCipher::decryptEx(text, plain, static_cast<unsigned int>(algorithm)), 0U);
    EXPECT_EQ(plain, password);
    EXPECT_EQ(WatchFreedBlocks::WithSecret(), 0);
  }
}

TEST(KeyFile, IsTakenOrRefused) {
  const TemporaryFolder folder;
  struct Row {
    std::string content;
    mode_t mode;
    CipherCode code;
  };
  for (const Row& row : {Row{kDigits + "\n", 0600, kSuccess},
                         {std::string(64, 'F'), 0400, kSuccess},
                         {kDigits, 0640, kKeyFileExposed},
                         {kDigits, 0620, kKeyFileExposed},
                         {kDigits, 0601, kKeyFileExposed},
                         {"", 0600, kKeyFileMalformed},
                         {kDigits.substr(1) + "\n", 0600, kKeyFileMalformed},
                         {kDigits + "a\n", 0600, kKeyFileMalformed},
                         {kDigits + "\n\n", 0600, kKeyFileMalformed},
                         {kDigits.substr(1) + "g\n", 0600, kKeyFileMalformed},
                         {kDigits.substr(1) + '\0', 0600, kKeyFileMalformed}}) {
    folder.Write("some.key", row.content, row.mode);
    EXPECT_EQ(CodeOf([&] { CipherKey::FromFile(folder.Path("some.key")); }), row.code)
        << row.content << row.mode;
    std::filesystem::remove(folder.Path("some.key"));
  }
  const std::string fifo = folder.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {folder.Path("none"), folder.Path(""), fifo}) {
    EXPECT_EQ(CodeOf([&] { CipherKey::FromFile(path); }), kKeyFileUnreadable) << path;
  }
}

TEST(KeyFileCreation, MakesAPrivateFileAndReplacesNone) {
  const TemporaryFolder folder;
  const mode_t old_mask = umask(0);
  CipherKey::CreateFile(folder.Path("new.key"));
  umask(old_mask);
  struct stat status {};
  ASSERT_EQ(stat(folder.Path("new.key").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);

  // Two keys are two keys.
  CipherKey::CreateFile(folder.Path("other.key"));
  const std::string text = EncryptPassword(Secret("secret"), kAlgorithms[0],
                                           CipherKey::FromFile(folder.Path("new.key")));
  const CipherKey other = CipherKey::FromFile(folder.Path("other.key"));
  EXPECT_EQ(CodeOf([&] { DecryptPassword(text, kAlgorithms[0], other); }), kWrongKey);

  const std::string kept = folder.Write("kept.key", "precious");
  std::filesystem::create_symlink("nowhere", folder.Path("dangling"));
  for (const std::string& path :
       {kept, folder.Path("dangling"), folder.Path("none/new.key"), folder.Path("")}) {
    EXPECT_EQ(CodeOf([&] { CipherKey::CreateFile(path); }), kKeyFileNotWritten);
  }
  std::ifstream stream(kept);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "precious");
  EXPECT_FALSE(std::filesystem::exists(folder.Path("nowhere")));
}

TEST(Deciphering, FailsWithACodeAndOneWarningAndLeavesTheOutput) {
  const TemporaryFolder folder;
  const std::string text =
      EncryptPassword(Secret("secret"), CipherAlgorithm::kAes256Gcm, Key(folder));
  const std::string key = folder.Path("some.key");
  const std::string other = folder.Write("other.key", std::string(64, 'b'));
  const std::string malformed = folder.Write("malformed.key", "x");
  struct Row {
    unsigned int algorithm;
    const char* key_file;
    std::string text;
    CipherCode code;
    const char* warning;
  };
  for (const Row& row : {Row{20, key.c_str(), text, kUnknownAlgorithm, "algorithm 20"},
                         // Not to be taken for the algorithm of its lowest byte.
                         {256 + 19, key.c_str(), text, kUnknownAlgorithm, "algorithm 275"},
                         {18, key.c_str(), text, kOtherAlgorithm, "algorithm 19, not 18"},
                         {19, nullptr, text, kKeyFileNotNamed, "TARN_KEY_FILE"},
                         {19, malformed.c_str(), text, kKeyFileMalformed, "malformed.key: not 64"},
                         {19, other.c_str(), text, kWrongKey, "another key"},
                         {19, key.c_str(), text + "=", kDamagedText, "damaged"}}) {
    const ScopedVariable key_file("TARN_KEY_FILE", row.key_file);
    std::string plain = "as it was";
    const StandardError log;
    EXPECT_EQ(QuillAESCipher::decryptEx(row.text, plain, row.algorithm),
              static_cast<unsigned int>(row.code));
    EXPECT_EQ(plain, "as it was");
    const std::string record = log.Text();
    EXPECT_THAT(record, AllOf(HasSubstr(row.warning), Not(HasSubstr(text))));
    EXPECT_EQ(std::count(record.begin(), record.end(), '\n'), 1);
  }
}

}  // namespace
}  // namespace tarn::test
