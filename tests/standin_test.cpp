// Tests the stand-in of the product platform: log, system configuration, cipher, process and
// reflection.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <map>
#include <new>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
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

enum class Fault { kNone, kShortWrites, kNoWrite, kNoFsync, kNoClose };
// The fault of the system calls below.
Fault fault = Fault::kNone;

// The result of a system call, or EIO in its place.
long Result(Fault failing, long result) {
  if (fault != failing) return result;
  errno = EIO;
  return -1;
}

}  // namespace

// These definitions take precedence over the C library's. No file comes in one piece.
#define TARN_TEST_OVERRIDE extern "C" __attribute__((visibility("default")))

TARN_TEST_OVERRIDE ssize_t read(int descriptor, void* buffer, size_t size) {
  return syscall(SYS_read, descriptor, buffer, std::min<size_t>(size, 50));
}
TARN_TEST_OVERRIDE ssize_t write(int descriptor, const void* buffer, size_t size) {
  // Lets other threads write in between, so that a line of several writes would be mixed.
  std::this_thread::yield();
  if (fault == Fault::kShortWrites) size = std::min<size_t>(size, 3);
  if (fault == Fault::kNoWrite) size = 0;
  return Result(Fault::kNoWrite, syscall(SYS_write, descriptor, buffer, size));
}
TARN_TEST_OVERRIDE int fsync(int descriptor) {
  return static_cast<int>(Result(Fault::kNoFsync, syscall(SYS_fsync, descriptor)));
}
TARN_TEST_OVERRIDE int close(int descriptor) {
  return static_cast<int>(Result(Fault::kNoClose, syscall(SYS_close, descriptor)));
}

namespace tarn::test {
namespace {

using namespace tarn::standin;
using Quillcommon::SysConfReader;
using testing::HasSubstr;

namespace fs = std::filesystem;

auto Lines(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

auto Entries(const std::string& folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

SysConfReader& Reader() { return SysConfReader::Instance(); }

SecretBytes Secret(std::string_view text) { return {text.begin(), text.end()}; }

// One record, which contains `warning`, or none if that is empty.
auto Warns(const std::string& warning) {
  return testing::AllOf(HasSubstr(warning), testing::ResultOf(Lines, warning.empty() ? 0 : 1));
}

auto ThrowsCode(Code code) { return testing::Throws<Error>(testing::Field(&Error::code, code)); }

const LocationInfo kHere("file.cpp", "Function", 7);

// Every use of the stand-in closes its descriptors, and leaves the host's errors in OpenSSL's queue
// and none of its own.
class Standin : public testing::TestWithParam<CaseRow> {
 protected:
  Standin() { ERR_raise(ERR_LIB_USER, kHostsError); }
  void TearDown() override {
    fault = Fault::kNone;
    EXPECT_EQ(Entries("/proc/self/fd"), descriptors_before_);
    EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), kHostsError);
    EXPECT_EQ(ERR_get_error(), 0U);
  }

  const std::string& Text(std::size_t index) const { return GetParam().texts.at(index); }
  // The texts from that one on, of which there must be one.
  std::span<const std::string> TextsFrom(std::size_t index) const {
    Text(index);
    return std::span<const std::string>(GetParam().texts).subspan(index);
  }

  // Deciphers with the key file that TARN_KEY_FILE names, and returns the code. On failure expects
  // that the output is unchanged and that one record contains `warning`, but not the text.
  unsigned int Decipher(const std::string& text, unsigned int algorithm,
                        const std::string& warning = "") {
    const StandardError log;
    const unsigned int code = QuillAESCipher::decryptEx(text, plain_, algorithm);
    EXPECT_TRUE(code == 0 || plain_ == kUntouched);
    EXPECT_THAT(log.Text(), Warns(warning));
    EXPECT_EQ(code == 0, warning.empty());
    EXPECT_TRUE(text.size() < 20 || log.Text().find(text) == std::string::npos);
    return code;
  }

  static constexpr int kHostsError = 111;
  static constexpr const char* kUntouched = "as it was";
  const std::ptrdiff_t descriptors_before_ = Entries("/proc/self/fd");
  const TemporaryFolder folder_;
  const ScopedVariable key_file_{"TARN_KEY_FILE",
                                 folder_.Write("some.key", std::string(64, 'a') + '\n')};
  const CipherKey key_ = CipherKey::FromEnvironment();
  std::string plain_ = kUntouched;
};

using Log = Standin;

TEST_P(Log, WritesOneLineARecord) {
  std::string word;
  GetParam().Words() >> word;
  const ScopedVariable level("TARN_LOG_LEVEL", word == "-" ? nullptr : word.c_str());
  const char* const message = Text(0) == "-" ? nullptr : Text(0).c_str();
  // Also if the system takes few bytes at a time, or none.
  for (const Fault now : {Fault::kNone, Fault::kShortWrites, Fault::kNoWrite}) {
    const StandardError log;
    fault = now;
    errno = EDOM;
    LogProcess::Error(666667, message, kHere);
    LogProcess::Warn(message, LocationInfo("f\n", "g\n", -1));
    LogProcess::Debug(message, kHere);
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(log.Text(), fault == Fault::kNoWrite ? "" : Text(1));
  }
}

// Whether a child process that calls `act` ends by itself, without a failed expectation.
template <typename Act>
bool ChildEnds(Act act) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    act();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

// An unknown level counts as "warn" and is named once. Lines of threads and processes stay whole,
// and a child that is forked while threads write waits for none of them.
TEST_F(Log, ServesThreadsAndForkedChildrenAtAnUnknownLevel) {
  constexpr std::size_t kLength = 1000;
  const ScopedVariable level("TARN_LOG_LEVEL", "WARN");
  const StandardError log;
  LogProcess::Debug("hidden", kHere);
  EXPECT_THAT(log.Text(), Warns("TARN_LOG_LEVEL: \"WARN\""));
  std::atomic<int> records = 0;
  const auto write = [&records](const std::string& message) {
    LogProcess::Warn(message.c_str(), kHere);
    ++records;
  };
  std::vector<std::jthread> threads;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([&, message = std::string(kLength, letter)](const std::stop_token& stop) {
      while (!stop.stop_requested()) write(message);
    });
  }
  for (int i = 0; i < 50; ++i) {
#ifdef __SANITIZE_ADDRESS__
    write("");  // a fork leaves the locks of AddressSanitizer's allocator as they are
#else
    ASSERT_TRUE(ChildEnds([] { LogProcess::Warn("", kHere); })) << i;
    ++records;
#endif
  }
  threads.clear();
  std::istringstream lines(log.Text());
  std::string line;
  for (std::getline(lines, line); std::getline(lines, line); --records) {
    const std::string message(line.back() == ' ' ? 0 : kLength, line.back());
    ASSERT_EQ(line, "WARN - file.cpp:7 Function: " + message);
  }
  EXPECT_EQ(records, 0);
}

TEST_F(Log, OutlivesItsReader) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  syscall(SYS_close, ends[0]);
  EXPECT_TRUE(ChildEnds([&ends] {
    dup2(ends[1], STDERR_FILENO);
    sigset_t signals;
    LogProcess::Warn("lost", kHere);
    sigpending(&signals);
    EXPECT_EQ(sigismember(&signals, SIGPIPE), 0);
    // A SIGPIPE that was pending before the record, for the thread or the process, belongs to the
    // host.
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    for (const pid_t process : {0, getpid()}) {
      EXPECT_EQ(process == 0 ? raise(SIGPIPE) : kill(process, SIGPIPE), 0);
      LogProcess::Warn("lost", kHere);
      const timespec at_once{};
      EXPECT_EQ(sigtimedwait(&signals, nullptr, &at_once), SIGPIPE);
      EXPECT_LT(sigtimedwait(&signals, nullptr, &at_once), 0);
    }
    pthread_sigmask(SIG_BLOCK, nullptr, &signals);
    EXPECT_EQ(sigismember(&signals, SIGPIPE), 1);
  }));
  syscall(SYS_close, ends[1]);
}

using SysConf = Standin;

TEST_P(SysConf, GivesTheSettingOrOneWarning) {
  std::string setting, name;
  unsigned int index = 0;
  GetParam().Words() >> setting >> index >> name;
  name = Unescaped(name);
  const auto answer = [&] {
    if (setting == "type") return Reader().getDBType(name, index);
    if (setting == "user") return Reader().getDBUserName(name, index);
    if (setting == "password") return Reader().getDBPassword(name, index);
    if (setting == "host") return Reader().getDBAccessHost(name, index);
    if (setting == "service") return Reader().getDBServiceName(name, index);
    return std::to_string(Reader().getDBAccessPort(name, index));
  };
  for (std::string content : TextsFrom(2)) {
    SCOPED_TRACE(content);
    if (GetParam().section == "Entries") content = R"({"databases": {"db": [)" + content + "]}}";
    const ScopedVariable file("TARN_SYS_CONF", folder_.Write("sys.json", content));
    const StandardError log;
    EXPECT_EQ(answer(), Text(0));
    EXPECT_THAT(log.Text(), testing::AllOf(Warns(Text(1)), testing::Not(HasSubstr("secret"))));
  }
}

TEST_F(SysConf, IsReadAfreshWithinBounds) {
  constexpr std::size_t kLimit = 1U << 20U;
  const std::string good = R"({"databases": {"db": [{"type": "mysql"}]}})";
  const std::string file = folder_.Write("sys.json", good + std::string(kLimit - good.size(), ' '));
  for (const auto& [path, warning] : std::map<std::string, std::string>{
           {"-", "TARN_SYS_CONF names no"},
           {"", "TARN_SYS_CONF names no"},
           {folder_.Path("none"), "none: No such file"},
           {"/", ": Is a directory"},
           {folder_.Write("large.json", good + std::string(kLimit, ' ')), ": File too large"},
           {folder_.Write("deep.json", std::string(kLimit, '[')), ": not valid JSON"},
           {file, ""}}) {
    const ScopedVariable variable("TARN_SYS_CONF", path == "-" ? nullptr : path.c_str());
    const StandardError log;
    EXPECT_EQ(Reader().getDBType("db", 0), warning.empty() ? "mysql" : "");
    EXPECT_THAT(log.Text(), Warns(warning));
  }
  const ScopedVariable variable("TARN_SYS_CONF", file);
  folder_.Write("sys.json", R"({"databases": {"db": [{"type": "other"}]}})");
  EXPECT_EQ(Reader().getDBType("db", 0), "other");
}

using Cipher = Standin;

TEST_P(Cipher, GivesThePasswordOrACode) {
  unsigned int algorithm = 0;
  unsigned int expected = 0;
  GetParam().Words() >> algorithm >> expected;
  for (const std::string& text : TextsFrom(1)) {
    EXPECT_EQ(Decipher(text, algorithm, expected == 0 ? "" : Text(0)), expected) << text;
    if (expected != 0) continue;
    EXPECT_EQ(std::exchange(plain_, kUntouched), Text(0));
    // EncryptPassword still writes the same text, too.
    if (algorithm == kAes128Ecb) {
      EXPECT_EQ(EncryptPassword(Secret(Text(0)), algorithm, key_), text);
    }
    // Any changed character, any cut and any addition counts as damage, not as a wrong key.
    for (std::size_t i = 0; i <= text.size(); ++i) {
      for (const char* other : {"", "A", "/", "=", "-", "\x80", " ", "\n", "AAAA"}) {
        for (const std::size_t rest : {i, std::min(i + 1, text.size()), text.size()}) {
          const std::string bad = text.substr(0, i) + other + text.substr(rest);
          if (bad == text) continue;
          EXPECT_EQ(Decipher(bad, algorithm, "damaged"), 709U) << bad;
        }
      }
    }
  }
}

TEST_F(Cipher, GivesBackEveryPassword) {
  for (const unsigned int algorithm : {kAes256Gcm, kAes128Ecb}) {
    // Lengths around the cipher's block and Base64's group, and the greatest length.
    for (const std::size_t size : {0U, 1U, 2U, 3U, 14U, 15U, 16U, 17U, 31U, 32U, 33U, 1024U}) {
      const SecretBytes password(size, static_cast<unsigned char>(size));
      const std::string text = EncryptPassword(password, algorithm, key_);
      EXPECT_EQ(DecryptPassword(text, algorithm, key_), password) << size;
      EXPECT_EQ(text.find_first_of("\n "), std::string::npos);
      // Two equal texts of AES-256-GCM would have the same nonce.
      EXPECT_EQ(EncryptPassword(password, algorithm, key_) == text, algorithm == kAes128Ecb);
    }
    EXPECT_THAT([&] { EncryptPassword(SecretBytes(1025), algorithm, key_); },
                ThrowsCode(Code::kPasswordTooLong));
    EXPECT_THAT([&] { DecryptPassword(std::string(100'000, 'A'), algorithm, key_); },
                ThrowsCode(Code::kDamagedText));
  }
}

// Each allocation fails once. The host gets the exception or a code, and its process continues.
TEST_F(Cipher, SurvivesFailedAllocationsAndLeavesNoPassword) {
  const ScopedVariable level("TARN_LOG_LEVEL", "off");
  const std::string database = "a database of some length";
  for (const unsigned int algorithm : {kAes256Gcm, kAes128Ecb}) {
    const std::string text = EncryptPassword(Secret(kLongPassword), algorithm, key_);
    const std::string entry = R"(": [{"password": ")" + text + R"("}]}})";
    const ScopedVariable file("TARN_SYS_CONF",
                              folder_.Write("sys.json", R"({"databases": {")" + database + entry));
    std::string plain;
    plain.reserve(100);
    bool failed = true;
    for (long n = 1; failed; ++n) {
      SCOPED_TRACE(n);
      unsigned int code = 1;
      // The password's end, which would remain if too few bytes were wiped.
      const WatchFreedBlocks watch(std::string_view(kLongPassword).substr(8));
      try {
        const FailNthAllocation failure(n);
        code = QuillAESCipher::decryptEx(Reader().getDBPassword(database, 0), plain, algorithm);
      } catch (const std::bad_alloc&) {
      }
      failed = FailNthAllocation::Happened();
      EXPECT_TRUE(failed || code == 0);
      EXPECT_EQ(plain, code == 0 ? kLongPassword : "");
      EXPECT_EQ(watch.WithSecret(), 0);
      plain.clear();
    }
  }
}

using KeyFile = Standin;

TEST_P(KeyFile, IsTakenOrRefused) {
  mode_t mode = 0;
  uid_t owner = 0;
  unsigned int code = 0;
  GetParam().Words() >> std::oct >> mode >> std::dec >> owner >> code;
  for (const std::string& content : TextsFrom(1)) {
    const std::string path = folder_.Write("row.key", content, mode);
    if (chown(path.c_str(), geteuid() + owner, static_cast<gid_t>(-1)) != 0) {
      GTEST_SKIP() << "only root can give a file away";
    }
    const ScopedVariable variable("TARN_KEY_FILE", path);
    const std::string text = EncryptPassword(Secret("secret"), kAes256Gcm, key_);
    EXPECT_EQ(Decipher(text, kAes256Gcm, Text(0)), code) << content;
  }
}

TEST_F(KeyFile, IsNamedAndARegularFile) {
  const std::string fifo = folder_.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {folder_.Path("none"), folder_.Path(""), fifo, std::string()}) {
    const ScopedVariable variable("TARN_KEY_FILE", path);
    EXPECT_THAT(CipherKey::FromEnvironment,
                ThrowsCode(path.empty() ? Code::kKeyFileNotNamed : Code::kKeyFileUnreadable));
  }
}

TEST_F(KeyFile, IsMadePrivateAndWholeAndReplacesNone) {
  const auto is_refused = [](const std::string& path) {
    EXPECT_THAT([&] { CipherKey::CreateFile(path); }, ThrowsCode(Code::kKeyFileNotWritten));
  };
  const std::string made = folder_.Path("new.key");
  for (const Fault now : {Fault::kShortWrites, Fault::kNoWrite, Fault::kNoFsync, Fault::kNoClose}) {
    fault = now;
    is_refused(made);
    EXPECT_FALSE(fs::exists(made));
  }
  fault = Fault::kNone;
  const mode_t old_mask = umask(0);
  for (const std::string& path : {made, folder_.Path("other.key")}) CipherKey::CreateFile(path);
  umask(old_mask);
  EXPECT_EQ(fs::status(made).permissions(), fs::perms(0600));
  EXPECT_NE(CipherKey::FromFile(made).bytes, CipherKey::FromFile(folder_.Path("other.key")).bytes);

  fs::create_symlink("nowhere", folder_.Path("dangling"));
  for (const char* name : {"some.key", "dangling", "none/new.key"}) is_refused(folder_.Path(name));
  EXPECT_EQ(CipherKey::FromEnvironment().bytes, key_.bytes);
  EXPECT_FALSE(fs::exists(folder_.Path("nowhere")));
}

INSTANTIATE_TEST_SUITE_P(Cases, Log, testing::ValuesIn(ReadCases("log.txt")), CaseName);
INSTANTIATE_TEST_SUITE_P(Cases, SysConf, testing::ValuesIn(ReadCases("sys_conf.txt")), CaseName);
INSTANTIATE_TEST_SUITE_P(Cases, KeyFile, testing::ValuesIn(ReadCases("key_file.txt")), CaseName);
INSTANTIATE_TEST_SUITE_P(Cases, Cipher, testing::ValuesIn(ReadCases("cipher.txt")), CaseName);

TEST(ProcessNumber, ComesFromTheEnvironmentOrTheProcess) {
  const auto process = static_cast<unsigned int>(getpid());
  EXPECT_EQ(QuillGetProcId(), process);
  for (const std::string value : {"4294967295", "4294967296", "-1", "", "12a"}) {
    const ScopedVariable id("TARN_PROC_ID", value);
    const ScopedVariable handle("TARN_PROC_HANDLE", value);
    const StandardError log;
    const bool good = value == "4294967295";
    EXPECT_EQ(QuillGetProcId(), good ? 4294967295U : process);
    EXPECT_EQ(QuillGetProcHandle(), good ? 4294967295U : 0U);
    // A warning names each bad value.
    EXPECT_EQ(Lines(log.Text()), good ? 0 : 2) << log.Text();
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

TEST_F(Standin, SampleConfigurationIsMadeWholeOrNotAtAll) {
  const ScopedVariable key_file("TARN_KEY_FILE", folder_.Path("run.key"));
  const ScopedVariable file("TARN_SYS_CONF", folder_.Path("sys.json"));
  // The script follows no link, not even one in the way of a temporary file.
  for (const char* link : {"sys.json", "sys.json.new"}) {
    fs::create_symlink("victim", folder_.Path(link));
  }
  const auto makes = [&](const std::string& sample, const std::string& key = "run.key",
                         const std::string& output = "sys.json") {
    return RunProgram({std::string(TARN_EXAMPLES) + "/make_sys_conf.sh", TARN_HOST_PATH, key,
                       sample, output},
                      {.folder = folder_.Path("")})
               .exit_code == 0;
  };
  // The second run uses the key of the first. Names that look like options are taken for names.
  EXPECT_TRUE(makes(TARN_EXAMPLES "/sys_conf.json", "run.key", "-o.json"));
  EXPECT_TRUE(makes(folder_.Write(
      "sample.json", R"({"databases": {"db": [{"password":"encipher-19:a\"b\\c $x`y` %s\\"},)"
                     R"({"password": "encipher-18: \\\" "}]}})")));
  for (const char* bad : {R"("encipher-20:x")", R"("encipher-19:a\nb")", R"("encipher-19:a\")"}) {
    EXPECT_FALSE(makes(folder_.Write("sample.json", bad), "-k.key")) << bad;
  }
  EXPECT_EQ(Decipher(Reader().getDBPassword("db", 0), kAes256Gcm), 0U);
  EXPECT_EQ(plain_, R"(a"b\c $x`y` %s\)");
  EXPECT_EQ(Decipher(Reader().getDBPassword("db", 1), kAes128Ecb), 0U);
  EXPECT_EQ(plain_, R"( \" )");
  EXPECT_EQ(fs::symlink_status(folder_.Path("sys.json")).permissions(), fs::perms(0600));
  // Three keys, the sample, two configurations, and the other link are there; no "victim".
  EXPECT_EQ(Entries(folder_.Path("")), 7);
}

}  // namespace
}  // namespace tarn::test
