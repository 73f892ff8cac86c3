// The stand-in of the product platform: log, system configuration, cipher, process and reflection.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/c_value.h"
#include "platform/log_process.h"
#include "platform/quill_aes_cipher.h"
#include "platform/quill_process.h"
#include "platform/sys_conf_reader.h"
#include "standin/password_cipher.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/surroundings.h"

namespace {

// What the system calls below do wrong.
struct SystemFaults {
  std::size_t longest_write = SSIZE_MAX;
  bool write = false;
  bool fsync = false;
  bool close = false;
};
SystemFaults faults;

int Fail() {
  errno = EIO;
  return -1;
}

}  // namespace

// Found before the C library's.
#define TARN_TEST_OVERRIDE extern "C" __attribute__((visibility("default")))

TARN_TEST_OVERRIDE ssize_t write(int descriptor, const void* buffer, size_t size) {
  if (faults.write) return Fail();
  // So that other threads come between the pieces of a line.
  if (size > faults.longest_write) std::this_thread::yield();
  return syscall(SYS_write, descriptor, buffer, std::min(size, faults.longest_write));
}
TARN_TEST_OVERRIDE int fsync(int descriptor) {
  return faults.fsync ? Fail() : static_cast<int>(syscall(SYS_fsync, descriptor));
}
TARN_TEST_OVERRIDE int close(int descriptor) {
  const auto result = static_cast<int>(syscall(SYS_close, descriptor));
  return faults.close ? Fail() : result;
}

namespace tarn::test {
namespace {

using namespace tarn::standin;
using enum tarn::standin::Code;
using Quillcommon::SysConfReader;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

namespace fs = std::filesystem;

auto Lines(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

// Whatever is done with the stand-in leaves no descriptor open, and in OpenSSL's queue of errors
// what its host had there.
class Standin : public testing::Test {
 protected:
  Standin() { ERR_raise(ERR_LIB_USER, kHostsError); }
  void TearDown() override {
    faults = {};
    EXPECT_EQ(OpenDescriptors(), descriptors_before_);
    EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), kHostsError);
    EXPECT_EQ(ERR_get_error(), 0U);
  }

  static std::ptrdiff_t OpenDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  }

  static constexpr int kHostsError = 111;
  const std::ptrdiff_t descriptors_before_ = OpenDescriptors();
  const TemporaryFolder folder_;
};

using Log = Standin;

const LocationInfo kHere("file.cpp", "Function", 7);

TEST_F(Log, WritesOneLineARecord) {
  const std::string error = "ERROR 666667 file.cpp:7 Function: ";
  const std::string warn = "WARN - file.cpp:7 Function: m\n";
  struct Row {
    const char* level;
    const char* message;
    std::string expected;
  };
  for (const Row& row : {Row{nullptr, "m", error + "m\n" + warn},
                         {"off", "m", ""},
                         {"error", "m", error + "m\n"},
                         {"debug", "m", error + "m\n" + warn + "DEBUG - file.cpp:7 Function: m\n"},
                         {"error", nullptr, error + "(null)\n"},
                         {"error", "a\nb\x1b[2J\x7f%s\xc3\xa9\xff",
                          error + "a\\x0ab\\x1b[2J\\x7f%s\xc3\xa9\xff\n"}}) {
    const ScopedVariable level("TARN_LOG_LEVEL", row.level);
    // Also where the system takes little at a time, or nothing.
    for (const SystemFaults& fault : {SystemFaults{}, {.longest_write = 3}, {.write = true}}) {
      const StandardError log;
      faults = fault;
      errno = EDOM;
      LogProcess::Error(666667, row.message, kHere);
      LogProcess::Warn(row.message, kHere);
      LogProcess::Debug(row.message, kHere);
      EXPECT_EQ(errno, EDOM);
      EXPECT_EQ(log.Text(), fault.write ? "" : row.expected);
    }
    faults = {};
  }
}

TEST_F(Log, NamesAnUnknownLevelOnce) {
  const ScopedVariable level("TARN_LOG_LEVEL", "WARN");
  const StandardError log;
  LogProcess::Debug("hidden", kHere);
  LogProcess::Warn("shown", kHere);
  EXPECT_THAT(log.Text(), AllOf(HasSubstr("TARN_LOG_LEVEL: \"WARN\""), EndsWith("shown\n")));
  EXPECT_EQ(Lines(log.Text()), 2);
}

TEST_F(Log, KeepsTheLinesOfThreadsWhole) {
  constexpr int kThreads = 4;
  constexpr int kRecords = 200;
  constexpr std::size_t kLength = 1000;
  // More than one write a line.
  faults.longest_write = kLength / 3;
  const StandardError log;
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([message = std::string(kLength, static_cast<char>('a' + i))] {
      for (int record = 0; record < kRecords; ++record) LogProcess::Warn(message.c_str(), kHere);
    });
  }
  threads.clear();
  std::istringstream lines(log.Text());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_EQ(line, "WARN - file.cpp:7 Function: " + std::string(kLength, line.back()));
  }
  EXPECT_EQ(count, kThreads * kRecords);
}

SysConfReader& Reader() { return SysConfReader::Instance(); }

class SysConf : public Standin, public testing::WithParamInterface<CaseRow> {};

TEST_P(SysConf, GivesTheSettingOrOneWarning) {
  const std::map<std::string, std::string (SysConfReader::*)(const std::string&, unsigned int)>
      getters{{"type", &SysConfReader::getDBType},
              {"user", &SysConfReader::getDBUserName},
              {"password", &SysConfReader::getDBPassword},
              {"host", &SysConfReader::getDBAccessHost},
              {"service", &SysConfReader::getDBServiceName}};
  std::istringstream words(GetParam().label);
  std::string id;
  std::string setting;
  unsigned int index = 0;
  std::string database;
  words >> id >> setting >> index >> database;
  database = Unescaped(database);
  const std::vector<std::string>& texts = GetParam().texts;
  const ScopedVariable file("TARN_SYS_CONF", folder_.Write("sys.json", texts.at(0)));
  const StandardError log;
  EXPECT_EQ(setting == "port" ? std::to_string(Reader().getDBAccessPort(database, index))
                              : (Reader().*getters.at(setting))(database, index),
            texts.at(1));
  const std::string text = log.Text();
  EXPECT_THAT(text, AllOf(HasSubstr(texts.at(2)), Not(HasSubstr("secret"))));
  EXPECT_EQ(Lines(text), texts[2].empty() ? 0 : 1) << text;
}

INSTANTIATE_TEST_SUITE_P(Cases, SysConf, testing::ValuesIn(ReadCases("sys_conf.txt")), CaseName);

using SysConfFile = Standin;

TEST_F(SysConfFile, IsReadAfresh) {
  constexpr std::size_t kLimit = 1U << 20U;
  const std::string good = R"({"databases": {"db": [{"type": "mysql"}]}})";
  const std::string file = folder_.Write("sys.json", good + std::string(kLimit - good.size(), ' '));
  const std::string large = folder_.Write("large.json", good + std::string(kLimit, ' '));
  const std::string deep = folder_.Write("deep.json", std::string(kLimit, '['));
  const std::string none = folder_.Path("none");
  for (const auto& [path, warning] :
       {std::pair<const char*, const char*>(nullptr, "TARN_SYS_CONF names no"),
        {"", "TARN_SYS_CONF names no"},
        {none.c_str(), "none: No such file"},
        {"/", ": Is a directory"},
        {"/dev/zero", "/dev/zero: "},
        {large.c_str(), ": larger than 1 MiB"},
        {deep.c_str(), ": not valid JSON"},
        {file.c_str(), nullptr}}) {
    const ScopedVariable variable("TARN_SYS_CONF", path);
    const StandardError log;
    EXPECT_EQ(Reader().getDBType("db", 0), warning == nullptr ? "mysql" : "");
    EXPECT_THAT(log.Text(), HasSubstr(warning == nullptr ? "" : warning));
  }
  const ScopedVariable variable("TARN_SYS_CONF", file);
  folder_.Write("sys.json", R"({"databases": {"db": [{"type": "other"}]}})");
  EXPECT_EQ(Reader().getDBType("db", 0), "other");
}

constexpr std::array kAlgorithms{kAes256Gcm, kAes128Ecb};
constexpr std::size_t kHeaderBytes = 10;
constexpr std::size_t kDigestBytes = 8;
const std::string kDigits(64, 'a');

SecretBytes Secret(std::string_view text) { return {text.begin(), text.end()}; }

// The code of the Error that `run` throws; kSuccess if none.
template <typename Run>
Code CodeOf(Run run) {
  try {
    run();
    return kSuccess;
  } catch (const Error& error) {
    return error.code;
  }
}

class Cipher : public Standin {
 protected:
  CipherKey Key(const std::string& digits = kDigits) const {
    return CipherKey::FromFile(folder_.Write("some.key", digits + '\n'));
  }

  Code Decrypt(std::string_view text, unsigned int algorithm) const {
    return CodeOf([&] { DecryptPassword(text, algorithm, key_); });
  }

  const CipherKey key_ = Key();
};

// `text` with its bytes changed and their digest made right, as one who means to deceive would.
template <typename Change>
std::string Forged(const std::string& text, Change change) {
  const auto data = [](auto& bytes) { return reinterpret_cast<unsigned char*>(bytes.data()); };
  std::string source = text;
  std::string bytes(text.size(), '\0');
  EVP_DecodeBlock(data(bytes), data(source), static_cast<int>(source.size()));
  bytes.resize(source.size() / 4 * 3 -
               static_cast<std::size_t>(std::count(source.begin(), source.end(), '=')));
  change(bytes);
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(bytes.data(), bytes.size() - kDigestBytes, digest.data(), nullptr, EVP_sha256(),
             nullptr);
  std::copy_n(digest.begin(), kDigestBytes, bytes.end() - kDigestBytes);
  std::string forged(bytes.size() * 2, '\0');
  forged.resize(static_cast<std::size_t>(
      EVP_EncodeBlock(data(forged), data(bytes), static_cast<int>(bytes.size()))));
  return forged;
}

TEST_F(Cipher, GivesBackEveryPassword) {
  // Lengths around the block of the cipher and the group of Base64, and the longest.
  for (const std::size_t size :
       std::initializer_list<std::size_t>{0, 1, 2, 3, 14, 15, 16, 17, 31, 32, 33, 1024}) {
    std::string password(size, '\0');
    for (std::size_t i = 0; i < size; ++i) password[i] = static_cast<char>(i * 37);
    for (const unsigned int algorithm : kAlgorithms) {
      const std::string text = EncryptPassword(Secret(password), algorithm, key_);
      EXPECT_EQ(DecryptPassword(text, algorithm, key_), Secret(password)) << size;
      EXPECT_EQ(text.find_first_of("\n "), std::string::npos);
      // A repeated text would mean a repeated nonce.
      EXPECT_EQ(EncryptPassword(Secret(password), algorithm, key_) == text,
                algorithm == kAes128Ecb);
    }
  }
  EXPECT_EQ(CodeOf([&] { EncryptPassword(SecretBytes(1025), kAlgorithms[0], key_); }),
            kPasswordTooLong);
}

// Any one character changed, any cut and any addition is damage, and is not taken for a wrong key.
TEST_F(Cipher, TellsEveryDamage) {
  for (const unsigned int algorithm : kAlgorithms) {
    const std::string text = EncryptPassword(Secret("a secret"), algorithm, key_);
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
    for (const std::string& bad : damaged) EXPECT_EQ(Decrypt(bad, algorithm), kDamagedText) << bad;
  }
}

// Padding alone would take one wrong key in 256 for the right one.
TEST_F(Cipher, TellsEveryWrongKey) {
  constexpr int kKeys = 300;
  const std::string texts[] = {EncryptPassword(Secret("secret"), kAlgorithms[0], key_),
                               EncryptPassword(Secret("secret"), kAlgorithms[1], key_)};
  for (int i = 0; i < kKeys; ++i) {
    const CipherKey other = Key(std::to_string(100 + i) + kDigits.substr(3));
    for (const std::size_t which : {0U, 1U}) {
      EXPECT_EQ(CodeOf([&] { DecryptPassword(texts[which], kAlgorithms[which], other); }),
                kWrongKey);
    }
  }
}

TEST_F(Cipher, RefusesForgedTexts) {
  for (const unsigned int algorithm : kAlgorithms) {
    const bool gcm = algorithm == kAes256Gcm;
    const std::string text = EncryptPassword(Secret("secret"), algorithm, key_);
    ASSERT_EQ(Decrypt(Forged(text, [](std::string&) {}), algorithm), kSuccess);
    const std::string other_format = Forged(text, [](std::string& bytes) { bytes[0] = 2; });
    EXPECT_EQ(Decrypt(other_format, algorithm), kDamagedText);
    // In ECB a changed byte spoils the padding, but for one change in 256: not this key's.
    const std::size_t body = text.size() / 4 * 3 - 2 - kHeaderBytes - kDigestBytes;
    for (std::size_t i = 0; i < (gcm ? body : 1); ++i) {
      const std::string forged =
          Forged(text, [i](std::string& bytes) { bytes[kHeaderBytes + i] ^= 1; });
      EXPECT_EQ(Decrypt(forged, algorithm), kDamagedText) << i;
    }
    // Bodies too short for what the algorithm needs.
    for (std::size_t size = 0; size < (gcm ? 12U + 16U : 16U); ++size) {
      const std::string forged = Forged(
          text, [size](std::string& bytes) { bytes.resize(kHeaderBytes + size + kDigestBytes); });
      EXPECT_EQ(Decrypt(forged, algorithm), kDamagedText) << size;
    }
  }
}

using KeyFile = Cipher;

TEST_F(KeyFile, IsTakenOrRefused) {
  constexpr uid_t kNobody = 65534;
  struct Row {
    std::string content;
    mode_t mode;
    Code code;
    uid_t owner = geteuid();
  };
  for (const Row& row : {Row{kDigits + "\n", 0600, kSuccess},
                         {std::string(64, 'F'), 0400, kSuccess},
                         {kDigits, 0640, kKeyFileExposed},
                         {kDigits, 0620, kKeyFileExposed},
                         {kDigits, 0601, kKeyFileExposed},
                         {kDigits, 0600, kKeyFileExposed, kNobody},
                         {"", 0600, kKeyFileMalformed},
                         {kDigits.substr(1) + "\n", 0600, kKeyFileMalformed},
                         {kDigits + "a\n", 0600, kKeyFileMalformed},
                         {kDigits + "\n\n", 0600, kKeyFileMalformed},
                         {kDigits.substr(1) + "g\n", 0600, kKeyFileMalformed},
                         {kDigits.substr(1) + '\0', 0600, kKeyFileMalformed}}) {
    const std::string path = folder_.Write("row.key", row.content, row.mode);
    // Only root can give a file away.
    if (chown(path.c_str(), row.owner, static_cast<gid_t>(-1)) != 0) continue;
    EXPECT_EQ(CodeOf([&] { CipherKey::FromFile(path); }), row.code) << row.content << row.mode;
    fs::remove(path);
  }
  const std::string fifo = folder_.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {folder_.Path("none"), folder_.Path(""), fifo}) {
    EXPECT_EQ(CodeOf([&] { CipherKey::FromFile(path); }), kKeyFileUnreadable) << path;
  }
}

TEST_F(KeyFile, IsMadePrivateAndReplacesNone) {
  const mode_t old_mask = umask(0);
  CipherKey::CreateFile(folder_.Path("new.key"));
  CipherKey::CreateFile(folder_.Path("other.key"));
  umask(old_mask);
  EXPECT_EQ(fs::status(folder_.Path("new.key")).permissions(), fs::perms(0600));
  EXPECT_NE(
      std::memcmp(CipherKey::FromFile(folder_.Path("new.key")).bytes.data(),
                  CipherKey::FromFile(folder_.Path("other.key")).bytes.data(), CipherKey::kBytes),
      0);

  const std::string kept = folder_.Write("kept.key", "precious");
  fs::create_symlink("nowhere", folder_.Path("dangling"));
  for (const std::string& path :
       {kept, folder_.Path("dangling"), folder_.Path("none/new.key"), folder_.Path("")}) {
    EXPECT_EQ(CodeOf([&] { CipherKey::CreateFile(path); }), kKeyFileNotWritten);
  }
  EXPECT_EQ(fs::file_size(kept), std::string_view("precious").size());
  EXPECT_FALSE(fs::exists(folder_.Path("nowhere")));
}

TEST_F(KeyFile, IsNotLeftBehindHalfWritten) {
  const std::string path = folder_.Path("new.key");
  for (const SystemFaults& fault :
       {SystemFaults{.longest_write = 10}, {.write = true}, {.fsync = true}, {.close = true}}) {
    faults = fault;
    EXPECT_EQ(CodeOf([&] { CipherKey::CreateFile(path); }), kKeyFileNotWritten);
    faults = {};
    EXPECT_FALSE(fs::exists(path));
  }
}

using Deciphering = Cipher;

TEST_F(Deciphering, FailsWithACodeAndOneWarningAndLeavesTheOutput) {
  const std::string text = EncryptPassword(Secret("secret"), kAes256Gcm, key_);
  const std::string key = folder_.Path("some.key");
  const std::string other = folder_.Write("other.key", std::string(64, 'b'));
  const std::string malformed = folder_.Write("malformed.key", "x");
  struct Row {
    unsigned int algorithm;
    const char* key_file;
    std::string text;
    Code code;
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
    EXPECT_EQ(Lines(record), 1);
  }
}

// Every allocation fails once. The host gets its exception or a code, and never loses its process.
TEST_F(Deciphering, SurvivesTheEndOfMemoryAndLeavesNoPassword) {
  const ScopedVariable key_file("TARN_KEY_FILE", folder_.Path("some.key"));
  const ScopedVariable level("TARN_LOG_LEVEL", "off");
  for (const unsigned int algorithm : kAlgorithms) {
    const std::string text = EncryptPassword(Secret(kLongPassword), algorithm, key_);
    const ScopedVariable file(
        "TARN_SYS_CONF",
        folder_.Write("sys.json", R"({"databases": {"a database of some length": [{"password": ")" +
                                      text + R"("}]}})"));
    const std::string database = "a database of some length";
    std::string plain;
    plain.reserve(100);
    bool failed = true;
    for (long n = 1; failed; ++n) {
      unsigned int code = 1;
      const WatchFreedBlocks watch(kLongPassword);
      {
        const FailNthAllocation failure(n);
        try {
          const std::string stored = Reader().getDBPassword(database, 0);
          code = QuillAESCipher::decryptEx(stored, plain, algorithm);
        } catch (const std::bad_alloc&) {
        }
      }
      failed = FailNthAllocation::Happened();
      EXPECT_TRUE(failed || code == 0);
      EXPECT_EQ(plain, code == 0 ? kLongPassword : "") << n;
      EXPECT_EQ(watch.WithSecret(), 0) << n;
      plain.clear();
    }
  }
}

TEST(ProcessNumber, ComesFromTheEnvironmentOrTheProcess) {
  for (const auto& [variable, get, fallback] :
       {std::tuple("TARN_PROC_ID", &QuillGetProcId, static_cast<unsigned int>(getpid())),
        std::tuple("TARN_PROC_HANDLE", &QuillGetProcHandle, 0U)}) {
    // A bad one is named.
    for (const auto& [value, number, warnings] :
         {std::tuple<const char*, unsigned int, int>(nullptr, fallback, 0),
          {"4071", 4071U, 0},
          {"4294967295", 4294967295U, 0},
          {"4294967296", fallback, 1},
          {"-1", fallback, 1},
          {"", fallback, 1},
          {"12a", fallback, 1}}) {
      const ScopedVariable scoped(variable, value);
      const StandardError log;
      EXPECT_EQ(get(), number);
      EXPECT_EQ(Lines(log.Text()), warnings) << log.Text();
    }
  }
}

TEST(Value, IsCopiedWholeAndEmptiedByAnotherType) {
  refl::CValue value;
  EXPECT_EQ(value.GetDataType(), refl::Enum::DATA_TYPE_NONE);
  const std::string text("a\0b", 3);
  value.ReadFrom(text);
  refl::CValue copy(value);
  value.ReadFrom("other");
  EXPECT_EQ(copy.ToString(), text);
  copy = *&copy;
  value = std::move(copy);
  value.ChangeValueTypeEnum(refl::Enum::DATA_TYPE_STRING);
  EXPECT_EQ(value.ToString(), text);
  value.ChangeValueTypeEnum(static_cast<refl::Enum::DataTypeEnum>(7));
  EXPECT_EQ(value.ToString(), "");
}

class SampleConfiguration : public Standin {
 protected:
  int Make(const std::string& sample) const {
    return RunProgram({std::string(TARN_EXAMPLES) + "/make_sys_conf.sh", TARN_HOST_PATH, "run.key",
                       sample, "sys.json"},
                      {.folder = folder_.Path("")})
        .exit_code;
  }

  const ScopedVariable key_file_{"TARN_KEY_FILE", folder_.Path("run.key")};
  const ScopedVariable file_{"TARN_SYS_CONF", folder_.Path("sys.json")};
};

TEST_F(SampleConfiguration, HoldsEveryPasswordEnciphered) {
  // Nothing is written through a link, be it in the place of a file that only lives for a while.
  for (const char* link : {"sys.json", "sys.json.new"}) {
    fs::create_symlink("victim", folder_.Path(link));
  }
  const std::string sample = folder_.Write(
      "sample.json", R"({"databases": {"db": [{"password":"encipher-19:a\"b\\c $x`y` %s\\"},)"
                     R"({"password": "encipher-18: \\\" "}]}})");
  ASSERT_EQ(Make(sample), 0);
  for (const auto& [index, algorithm, password] :
       {std::tuple(0U, 19U, R"(a"b\c $x`y` %s\)"), std::tuple(1U, 18U, R"( \" )")}) {
    std::string plain;
    EXPECT_EQ(QuillAESCipher::decryptEx(Reader().getDBPassword("db", index), plain, algorithm), 0U);
    EXPECT_EQ(plain, password);
  }
  EXPECT_FALSE(fs::exists(folder_.Path("victim")));
  EXPECT_EQ(fs::symlink_status(folder_.Path("sys.json")).permissions(), fs::perms(0600));
}

TEST_F(SampleConfiguration, IsReplacedAsAWholeOrNotAtAll) {
  // Twice: the key of the first time is used again.
  EXPECT_EQ(Make(TARN_EXAMPLES "/sys_conf.json"), 0);
  EXPECT_EQ(Make(TARN_EXAMPLES "/sys_conf.json"), 0);
  for (const char* bad : {R"("encipher-20:x")", R"("encipher-19:a\nb")", R"("encipher-19:a\")"}) {
    EXPECT_NE(Make(folder_.Write("bad.json", bad)), 0) << bad;
  }
  EXPECT_NE(Make("none.json"), 0);
  EXPECT_EQ(Reader().getDBUserName("orders", 0), "orders_app");
  // The key, the bad sample and the configuration.
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.Path("")), fs::directory_iterator()), 3);
}

}  // namespace
}  // namespace tarn::test
