// The cipher's texts and key files, and QuillAESCipher above them.
#include "platform/password_cipher.h"

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
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/quill_aes_cipher.h"
#include "support/allocations.h"
#include "support/surroundings.h"
#include "support/table.h"

namespace {

using namespace tarn::platform;
using enum tarn::platform::CipherCode;
using tarn::test::NamedRow;
using tarn::test::RowName;
using tarn::test::ScopedVariable;
using tarn::test::StandardError;
using tarn::test::TemporaryFolder;
using tarn::test::WatchFreedBlocks;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Values;

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
    }
  }
  for (const CipherAlgorithm algorithm : kAlgorithms) {
    EXPECT_EQ(CodeOf([&] { EncryptPassword(SecretBytes(1025), algorithm, key); }),
              kPasswordTooLong);
  }
}

TEST(PasswordCipher, NeverRepeatsATextUnderGcm) {
  const TemporaryFolder folder;
  const CipherKey key = Key(folder);
  std::set<std::string> texts;
  for (int i = 0; i < 100; ++i) {
    texts.insert(EncryptPassword(Secret("secret"), CipherAlgorithm::kAes256Gcm, key));
  }
  EXPECT_EQ(texts.size(), 100U);
}

// Any one character changed, any cut and any addition is damage, and is not taken for a wrong key.
TEST(PasswordCipher, TellsEveryDamage) {
  const TemporaryFolder folder;
  const CipherKey key = Key(folder);
  for (const CipherAlgorithm algorithm : kAlgorithms) {
    const std::string text = EncryptPassword(Secret("a secret"), algorithm, key);
    std::vector<std::string> damaged{text + "=",
                                     text + "AAAA",
                                     text + "\n",
                                     " " + text,
                                     text + text,
                                     "plain text",
                                     "====",
                                     std::string(5000, 'A'),
                                     std::string("AA\0A", 4)};
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
  // A header of one algorithm over the body of the other, and bodies too short for what they need.
  auto relabelled = bytes;
  relabelled[1] = 18;
  EXPECT_EQ(
      CodeOf([&] { DecryptPassword(Resealed(relabelled), CipherAlgorithm::kAes128Ecb, key); }),
      kDamagedText);
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

struct KeyFileRow : NamedRow {
  std::string content;
  mode_t mode;
  CipherCode code;
};

class KeyFile : public testing::TestWithParam<KeyFileRow> {};

TEST_P(KeyFile, IsTakenOrRefused) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("some.key", GetParam().content, GetParam().mode);
  EXPECT_EQ(CodeOf([&] { CipherKey::FromFile(path); }), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Table, KeyFile,
    Values(KeyFileRow{{"Plain"}, kDigits + "\n", 0600, kSuccess},
           KeyFileRow{{"ReadOnly"}, kDigits + "\n", 0400, kSuccess},
           KeyFileRow{{"NoNewline"}, kDigits, 0600, kSuccess},
           KeyFileRow{{"UpperCase"}, std::string(64, 'F'), 0600, kSuccess},
           KeyFileRow{{"GroupReads"}, kDigits, 0640, kKeyFileExposed},
           KeyFileRow{{"OthersRead"}, kDigits, 0604, kKeyFileExposed},
           KeyFileRow{{"GroupWrites"}, kDigits, 0620, kKeyFileExposed},
           KeyFileRow{{"OthersRun"}, kDigits, 0601, kKeyFileExposed},
           KeyFileRow{{"Empty"}, "", 0600, kKeyFileMalformed},
           KeyFileRow{{"Short"}, kDigits.substr(1) + "\n", 0600, kKeyFileMalformed},
           KeyFileRow{{"Long"}, kDigits + "a\n", 0600, kKeyFileMalformed},
           KeyFileRow{{"Endless"}, std::string(100000, 'a'), 0600, kKeyFileMalformed},
           KeyFileRow{{"CarriageReturn"}, kDigits + "\r\n", 0600, kKeyFileMalformed},
           KeyFileRow{{"TwoNewlines"}, kDigits + "\n\n", 0600, kKeyFileMalformed},
           KeyFileRow{{"NoDigit"}, kDigits.substr(1) + "g\n", 0600, kKeyFileMalformed},
           KeyFileRow{{"Nul"}, kDigits.substr(1) + '\0', 0600, kKeyFileMalformed}),
    RowName<KeyFileRow>);

TEST(KeyFileKinds, OnlyRegularFilesAreRead) {
  const TemporaryFolder folder;
  const std::string fifo = folder.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {folder.Path("none"), folder.Path(""), fifo, std::string()}) {
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

struct FailureRow : NamedRow {
  unsigned int algorithm;
  // Of the key file; nothing leaves TARN_KEY_FILE unset.
  std::optional<std::string> digits;
  mode_t mode;
  bool damage;
  CipherCode code;
  const char* warning;
};

class DecipheringFailure : public testing::TestWithParam<FailureRow> {};

TEST_P(DecipheringFailure, HasItsCodeAndOneWarningAndLeavesTheOutput) {
  const FailureRow& row = GetParam();
  const TemporaryFolder folder;
  std::string text = EncryptPassword(Secret("secret"), CipherAlgorithm::kAes256Gcm, Key(folder));
  if (row.damage) text[20] ^= 1;
  std::string path;
  if (row.digits) path = folder.Write("used.key", *row.digits, row.mode);
  const ScopedVariable key_file("TARN_KEY_FILE", path.empty() ? nullptr : path.c_str());

  std::string plain = "as it was";
  const StandardError log;
  EXPECT_EQ(QuillAESCipher::decryptEx(text, plain, row.algorithm),
            static_cast<unsigned int>(row.code));
  EXPECT_EQ(plain, "as it was");
  const std::string record = log.Text();
  EXPECT_THAT(record, HasSubstr(row.warning));
  EXPECT_EQ(std::count(record.begin(), record.end(), '\n'), 1);
  EXPECT_THAT(record, Not(HasSubstr("secret")));
  EXPECT_THAT(record, Not(HasSubstr(text)));
}

INSTANTIATE_TEST_SUITE_P(
    Table, DecipheringFailure,
    Values(
        FailureRow{{"Algorithm"}, 20, kDigits, 0600, false, kUnknownAlgorithm, "algorithm 20"},
        FailureRow{{"NarrowedAlgorithm"},
                   256 + 19,
                   kDigits,
                   0600,
                   false,
                   kUnknownAlgorithm,
                   "algorithm 275"},
        FailureRow{
            {"OtherAlgorithm"}, 18, kDigits, 0600, false, kOtherAlgorithm, "algorithm 19, not 18"},
        FailureRow{{"NoKey"}, 19, std::nullopt, 0600, false, kKeyFileNotNamed, "TARN_KEY_FILE"},
        FailureRow{
            {"ExposedKey"}, 19, kDigits, 0644, false, kKeyFileExposed, "used.key: group or others"},
        FailureRow{{"MalformedKey"}, 19, "x", 0600, false, kKeyFileMalformed, "used.key: not 64"},
        FailureRow{{"WrongKey"}, 19, std::string(64, 'b'), 0600, false, kWrongKey, "another key"},
        FailureRow{{"Damage"}, 19, kDigits, 0600, true, kDamagedText, "damaged"}),
    RowName<FailureRow>);

}  // namespace
