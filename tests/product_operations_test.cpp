// The product object's operations on a recording platform: what they hand back, every call in
// order, and what is left when any of it fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <locale>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include "dbconfig/ssl_mode.h"
#include "dbconfig/wiped_string.h"
#include "entry/product_interface_tarn.h"
#include "platform/c_value.h"
#include "sqlnorm/normalize_sql.h"
#include "sqlnorm/patterns/pattern_engine.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/recording_platform.h"
#include "support/surroundings.h"

namespace {

// Reads until the one that fails with EIO; not above 0: none does.
int reads_until_error = 0;

}  // namespace

// Found before the C library's. Under another name here, since its header may define it inline.
extern "C" __attribute__((visibility("default"))) ssize_t Read(int descriptor, void* buffer,
                                                               size_t size) __asm__("read");
ssize_t Read(int descriptor, void* buffer, size_t size) {
  if (reads_until_error <= 0 || --reads_until_error > 0) {
    return syscall(SYS_read, descriptor, buffer, size);
  }
  errno = EIO;
  return -1;
}

namespace tarn::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::ElementsAreArray;

using Calls = std::vector<std::string>;
using PropertyMap = std::map<std::string, refl::CValue>;

// Runs an operation in peace, and with everything that can fail failing.
template <typename Outputs>
class Operation {
 public:
  // `before` is what the outputs hold before each run, `show` how they look.
  Operation(Outputs before, std::function<void(Outputs&)> call,
            std::function<std::string(const Outputs&)> show)
      : before_(std::move(before)), call_(std::move(call)), show_(std::move(show)) {
    // From now on with a block of its own, so that it does not count.
    constexpr std::size_t kMoreThanInPlace = 100;
    left_.reserve(kMoreThanInPlace);
  }

  // In peace. The platform's calls, then "-> " and how the outputs look in the end.
  Calls Trace() {
    Outputs outputs = before_;
    Platform().recording = true;
    Platform().outputs = [&] { return show_(outputs); };
    Platform().StartAgain();
    call_(outputs);
    Platform().outputs = [] { return std::string(); };
    looks_ = Platform().states;
    looks_.insert(looks_.begin(), show_(before_));
    looks_.push_back(show_(outputs));
    EXPECT_EQ(Platform().live_records, 0);
    Platform().calls.push_back("-> " + looks_.back());
    return Platform().calls;
  }

  // Makes each call of the platform throw and then each allocation fail, and expects every time
  // that the exception comes out, that the outputs are as they were when it happened, and that
  // nothing else is left, be it memory, log records or the password. One failure may stay within,
  // if it leaves the outputs looking like `survived`.
  void FailEverywhere(const std::string& survived = "never") {
    Trace();
    Platform().recording = false;
    const std::size_t calls = looks_.size() - 2;
    for (std::size_t n = 1; n <= calls; ++n) {
      SCOPED_TRACE("call " + std::to_string(n));
      ASSERT_TRUE(Fails(n, 0));
      EXPECT_EQ(left_, looks_[n]);
    }
    int survivals = 0;
    for (long n = 1;; ++n) {
      SCOPED_TRACE("allocation " + std::to_string(n));
      const bool failed = Fails(0, n);
      if (!FailNthAllocation::Happened()) {
        ASSERT_GT(n, 1) << "nothing was allocated";
        break;
      }
      survivals += failed ? 0 : 1;
      ASSERT_TRUE(failed || (left_ == survived && survivals == 1)) << "the failure was swallowed";
      if (failed) {
        EXPECT_THAT(left_, AnyOf(looks_.at(reached_), looks_.at(reached_ + 1)));
      }
    }
  }

 private:
  // With one call or one allocation failing, from 1, neither if 0; whether that came out.
  bool Fails(std::size_t call, long allocation) {
    Platform().StartAgain();
    const long live_before = LiveAllocations();
    bool failed = true;
    {
      const WatchFreedBlocks watch(kLongPassword);
      Outputs outputs = before_;
      Platform().call_count = 0;
      Platform().throw_at = static_cast<int>(call);
      try {
        const FailNthAllocation failure(allocation);
        call_(outputs);
        failed = false;
      } catch (const PlatformError&) {
      } catch (const std::bad_alloc&) {
      } catch (const std::bad_cast&) {
        // A stream in which a literal is read makes a failed conversion of it.
      }
      Platform().throw_at = 0;
      EXPECT_EQ(watch.WithSecret(), 0);
      EXPECT_EQ(watch.Wiped(), Platform().plain_bytes == nullptr ? 0 : 1);
      reached_ = static_cast<std::size_t>(Platform().call_count);
      left_ = show_(outputs);
    }
    EXPECT_EQ(LiveAllocations(), live_before);
    EXPECT_EQ(Platform().live_records, 0);
    return failed;
  }

  Outputs before_;
  std::function<void(Outputs&)> call_;
  std::function<std::string(const Outputs&)> show_;
  // How the outputs look before the operation, before each call, and in the end.
  std::vector<std::string> looks_;
  // After a run: how the outputs look, and the number of calls.
  std::string left_;
  std::size_t reached_ = 0;
};

std::string Same(const std::string& text) { return text; }

// The product as it is, but that it notes which of its operations are called through its dispatch
// table.
class NotingProduct : public CProductInterface_Tarn {
 public:
  void LogError(const char* message) override {
    if (Platform().recording) Platform().Note("LogError()");
    CProductInterface_Tarn::LogError(message);
  }
  void LogWarning(const char* message) override {
    if (Platform().recording) Platform().Note("LogWarning()");
    CProductInterface_Tarn::LogWarning(message);
  }
};

impl_dao::CProductInterface& Noting() {
  static NotingProduct product;
  return product;
}

// A record that the plug-in makes; a text of the settings is shown up to its first NUL.
std::string Record(const std::string& begin, const std::string& message, const char* place) {
  return begin + message.c_str() + ", getproductinterface.cpp:" + place + ")";
}

// Longer than what a string holds without allocating, with a byte that ends texts of C.
const std::string kDbName("orders\0of the shop in town", 26);
const std::string kUser("app\0user of some length", 23);
const std::string kLaterUser("second\0user of some length", 26);
const std::string kPassword("enciphered\0text of some length", 30);
const std::string kOfDb = "(" + kDbName + ", 0)";

TEST(LoggingBridge, PassesTheVeryMessageOn) {
  struct Row {
    void (impl_dao::CProductInterface::*log)(const char*);
    const char* begin;
    const char* place;
  };
  for (const Row& row :
       {Row{&impl_dao::CProductInterface::LogError, "Error(666667, ", "LogError:213"},
        {&impl_dao::CProductInterface::LogWarning, "Warn(", "LogWarning:218"},
        {&impl_dao::CProductInterface::LogDebug, "Debug(", "LogDebug:222"}}) {
    // The plug-in's own prefix is no business of the bridge.
    for (const char* message : {"text", "", "[tarn_interface_for_vesta] text", "%s\n\xFF",
                                static_cast<const char*>(nullptr)}) {
      ResetPlatform();
      (Product().*row.log)(message);
      EXPECT_THAT(
          Platform().calls,
          ElementsAre(Record(row.begin, message == nullptr ? "(null)" : message, row.place)));
      EXPECT_EQ(Platform().last_message, message);
      Platform().throw_at = 2;
      EXPECT_THROW((Product().*row.log)(message), PlatformError);
      EXPECT_EQ(Platform().live_records, 0);
    }
  }
}

TEST(DBType, IsHandedBackAndLoggedAsAnError) {
  Operation<std::string> operation(
      "before", [](std::string& type) { EXPECT_TRUE(Noting().GetDBType(type, kDbName)); }, Same);
  for (const std::string& type :
       {std::string("mysql"), std::string(), std::string("an engine of\0a long name", 24)}) {
    ResetPlatform().type = type;
    EXPECT_THAT(operation.Trace(),
                ElementsAre("Instance()", "getDBType" + kOfDb, "-> " + type, "LogError()",
                            Record("Error(666667, ", type, "LogError:213"), "-> " + type));
  }
  operation.FailEverywhere();
}

struct AccountOutputs {
  std::string user = "before";
  std::string password = "before";
};

class Account : public testing::Test {
 protected:
  Account() {
    ResetPlatform().user = kUser;
    Platform().later_user = kLaterUser;
    Platform().password = kPassword;
  }
};

// The second attempt gets the output as the first one left it, and its result decides nothing.
TEST_F(Account, HasAUserByTypeAndADecipheredPassword) {
  Operation<AccountOutputs> operation(
      {},
      [](AccountOutputs& out) {
        EXPECT_TRUE(Noting().GetDBUserAndPassword(out.user, out.password, kDbName));
      },
      [](const AccountOutputs& out) { return out.user + " | " + out.password; });
  const Deciphering good{kLongPassword, 0};
  const Deciphering bad{kLongPassword, 4294967295U};
  struct Row {
    std::string type;
    Deciphering preferred;
    Deciphering fallback;
    std::string user;
  };
  for (const Row& row : {Row{"mysql", good, {}, kLaterUser},
                         {"tundra", {std::string("s3cr\0t", 6), 0}, {}, kDbName},
                         {"MySQL", {}, {}, kUser},
                         {"mysql8", {"rest", 77}, good, kUser},
                         {"tundr", {"rest", 77}, bad, kUser},
                         {std::string("mysql\0", 6), {}, {}, kUser},
                         {"", {}, {}, kUser},
                         {"an engine of a long name", good, {}, kUser},
                         {"mysql", bad, bad, kLaterUser},
                         {"tundra", bad, good, kDbName}}) {
    SCOPED_TRACE(row.type);
    Platform().type = row.type;
    Platform().preferred = row.preferred;
    Platform().fallback = row.fallback;
    const bool falls_back = row.preferred.result != 0;
    const std::string password = (falls_back ? row.fallback : row.preferred).plain;
    Calls expected{"Instance()", "getDBUserName" + kOfDb, "-> " + kUser + " | before",
                   "Instance()", "getDBPassword" + kOfDb, "decryptEx(" + kPassword + ", , 19)"};
    if (falls_back) {
      const auto error = [](const Deciphering& deciphering) {
        return "Error(" + std::to_string(deciphering.result) +
               ", [tarn_interface_for_vesta] decryptEx ";
      };
      expected.push_back(Record(error(row.preferred), "failed Passwd", "GetDBUserAndPassword:249"));
      expected.push_back("decryptEx(" + kPassword + ", " + row.preferred.plain + ", 18)");
      expected.push_back(
          Record(error(row.fallback), "ALGID_AES128_ECB ", "GetDBUserAndPassword:251"));
    }
    expected.insert(expected.end(), {"-> " + kUser + " | " + password, "Instance()",
                                     "getDBType" + kOfDb, "Instance()", "getDBUserName" + kOfDb,
                                     "LogWarning()", Record("Warn(", kLaterUser, "LogWarning:218"),
                                     "-> " + row.user + " | " + password});
    EXPECT_THAT(operation.Trace(), ElementsAreArray(expected));
    if (password == kLongPassword && row.preferred.plain != "rest") operation.FailEverywhere();
  }
}

TEST(Address, FollowsTheType) {
  Operation<std::string> operation(
      "a previous content that is longer than all others",
      [](std::string& address) { EXPECT_TRUE(Noting().GetDBConnectAddress(address, kDbName)); },
      Same);
  const std::string host("a host\0name of some length", 26);
  const std::string service("a service\0name of some length", 29);
  struct Row {
    std::string type;
    std::string host;
    int port;
    std::string address;
  };
  for (const Row& row : {Row{"mysql", "10.0.0.5", 12345, "10.0.0.5:12345"},
                         {"tundra", host, 2345, host + ":2345"},
                         // Without capacity to spare for the port.
                         {"tundra", std::string(30, 'h'), 1, std::string(30, 'h') + ":1"},
                         // No brackets.
                         {"mysql", "::1", 12345, "::1:12345"},
                         {"mysql", "", 0, ":0"},
                         {"tundra", "h", -2147483647 - 1, "h:-2147483648"},
                         {"MySQL", "h", 1, service},
                         {"tundra2", "h", 1, service},
                         {std::string("mysql\0", 6), "h", 1, service},
                         {"", "h", 1, service}}) {
    ResetPlatform().type = row.type;
    Platform().host = row.host;
    Platform().port = row.port;
    Platform().service = service;
    Calls expected{"Instance()", "getDBType" + kOfDb, "Instance()"};
    if (row.address == service) {
      expected.push_back("getDBServiceName" + kOfDb);
    } else {
      for (const char* call : {"getDBAccessHost", "Instance", "getDBAccessPort"}) {
        expected.push_back(call + (call[0] == 'I' ? "()" : kOfDb));
      }
    }
    expected.push_back("-> " + row.address);
    EXPECT_THAT(operation.Trace(), ElementsAreArray(expected));
    if (row.address.size() > kDbName.size()) operation.FailEverywhere();
  }
}

// "KEY=TEXT(TYPE)" of each entry.
std::string Entries(const PropertyMap& properties) {
  std::string text;
  for (const auto& [key, value] : properties) {
    text += (text.empty() ? "" : " ") + key + "=" + value.ToString() + "(" +
            std::to_string(value.GetDataType()) + ")";
  }
  return text;
}

const std::string kNoFileNamed = Record(
    "Warn(", "[tarn_interface_for_vesta] getSSLmdoe error : APP_CONF_FILE = NULL", "getSSLMode:62");
const std::string kNotOpened = Record(
    "Warn(", "[tarn_interface_for_vesta] Fail to read sslmode, open file error", "getSSLMode:69");
const std::string kNothingFound =
    Record("Warn(", "[tarn_interface_for_vesta] Fail to read ssl in config file", "getSSLMode:122");

class Properties : public testing::Test {
 protected:
  Properties() { ResetPlatform(); }

  static Operation<PropertyMap> Get(const PropertyMap& before = {}) {
    return {
        before,
        [](PropertyMap& properties) { EXPECT_TRUE(Noting().GetDBConnectProperties(properties)); },
        Entries};
  }

  // The mode that the file at `path` gives, behind the warnings on its way.
  static Calls Mode(const std::string& path) {
    const ScopedVariable variable("APP_CONF_FILE", path);
    Calls calls = Get().Trace();
    std::erase_if(calls, [](const std::string& call) {
      return call.find(":getSSLMode:") == std::string::npos && !call.starts_with("ReadFrom(");
    });
    calls.erase(calls.begin());
    return calls;
  }

  const TemporaryFolder folder_;
  const ScopedVariable variable_{"APP_CONF_FILE", nullptr};
};

TEST_F(Properties, AreLookedUpAndLoggedInOrder) {
  struct Row {
    unsigned int process;
    unsigned int handle;
    std::string name;
  };
  for (const Row& row : {Row{4071, 12, "nesvc_v8ptnDB_12"},
                         {4070, 12, "nemgr_transDB_12"},
                         {4072, 65536, "nemgr_transDB_0"},
                         {0, 70000, "nemgr_transDB_4464"},
                         {0xABCD0FE7, 1, "nesvc_v8ptnDB_1"},
                         {4071, 0xFFFFFFFF, "nesvc_v8ptnDB_65535"},
                         {4071, 0x8000, "nesvc_v8ptnDB_32768"}}) {
    Platform().process_id = row.process;
    Platform().process_handle = row.handle;
    const std::string entry = "defaultDBName=" + row.name + "(41)";
    EXPECT_THAT(Get().Trace(),
                ElementsAre("QuillGetProcHandle()", "QuillGetProcId()", "CValue()",
                            "-> defaultDBName=(0)", "ReadFrom(" + row.name + ")", "-> " + entry,
                            "LogWarning()", Record("Warn(", row.name, "LogWarning:218"), "CValue()",
                            "-> SSLMODE=(0) " + entry, "getenv(APP_CONF_FILE)", kNoFileNamed,
                            "ReadFrom(1)", "-> SSLMODE=1(41) " + entry));
  }
}

// Entries that are there keep their place, whatever they held.
TEST_F(Properties, ReplaceTheirEntriesAndNoOther) {
  const auto other_type = static_cast<refl::Enum::DataTypeEnum>(7);
  PropertyMap before;
  before["defaultDBName"].ChangeValueTypeEnum(other_type);
  before["SSLMODE"].ReadFrom("2");
  before["SSLmode"].ReadFrom("kept");
  before["user"].ChangeValueTypeEnum(other_type);
  const Calls calls = Get(before).Trace();
  EXPECT_THAT(calls, testing::Not(testing::Contains("CValue()")));
  EXPECT_EQ(calls.back(),
            "-> SSLMODE=1(41) SSLmode=kept(41) defaultDBName=nemgr_transDB_0(41) user=(7)");
}

TEST_F(Properties, KeepWhatWasWrittenWhateverFails) {
  Get().FailEverywhere();
  // At the end of a file that needs several growing buffers. Where there is no memory for a FILE,
  // there is no file.
  constexpr std::size_t kSize = 20'000;
  const ScopedVariable variable(
      "APP_CONF_FILE",
      folder_.Write("app.json", std::string(kSize, ' ') + R"({"sslmode": "required"})"));
  const std::string name = "defaultDBName=nemgr_transDB_0(41)";
  Get().FailEverywhere("SSLMODE=1(41) " + name);
  EXPECT_EQ(Get().Trace().back(), "-> SSLMODE=2(41) " + name);
}

struct Groups : std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

// The port is printed as a stream prints it; the default database's name never is.
TEST_F(Properties, AreNotGroupedInTheHostsLocaleAsThePortIs) {
  Platform().type = "mysql";
  Platform().port = 12345;
  Platform().process_handle = 65535;
  std::string address;
  PropertyMap properties;
  const std::locale old = std::locale::global(std::locale(std::locale::classic(), new Groups));
  Product().GetDBConnectAddress(address, kDbName);
  Product().GetDBConnectProperties(properties);
  std::locale::global(old);
  EXPECT_EQ(address, ":12.345");
  EXPECT_EQ(Entries(properties), "SSLMODE=1(41) defaultDBName=nemgr_transDB_65535(41)");
}

class SSLModeSearch : public testing::TestWithParam<CaseRow> {};

TEST_P(SSLModeSearch, FindsTheMode) {
  EXPECT_EQ(dbconfig::FindSSLMode(GetParam().texts.at(0)).value_or(""), GetParam().texts.at(1));
}

INSTANTIATE_TEST_SUITE_P(Cases, SSLModeSearch, testing::ValuesIn(ReadCases("ssl_mode.txt")),
                         CaseName);

using SSLMode = Properties;

TEST_F(SSLMode, IsReadAfreshFromTheFileThatIsNamed) {
  const std::string file = folder_.Path("app.json");
  EXPECT_THAT(Mode(file), ElementsAre(kNotOpened, "ReadFrom(1)"));
  EXPECT_THAT(Mode(""), ElementsAre(kNotOpened, "ReadFrom(1)"));
  // A folder opens, but can't be read.
  EXPECT_THAT(Mode("/"), ElementsAre(kNothingFound, "ReadFrom(1)"));
  folder_.Write("app.json", R"({"sslmode": "preferred"})");
  EXPECT_THAT(Mode(file), ElementsAre(kNothingFound, "ReadFrom(1)"));
  folder_.Write("app.json", "");
  EXPECT_THAT(Mode(file), ElementsAre(kNothingFound, "ReadFrom(1)"));
  folder_.Write("app.json", R"({"ssl": false})");
  EXPECT_THAT(Mode(file), ElementsAre("ReadFrom(0)"));
}

TEST_F(SSLMode, IsTheDefaultWithoutADescriptorForTheFile) {
  const std::string file = folder_.Write("app.json", R"({"sslmode": "required"})");
  rlimit old{};
  getrlimit(RLIMIT_NOFILE, &old);
  const rlimit none{0, old.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const Calls mode = Mode(file);
  setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_THAT(mode, ElementsAre(kNotOpened, "ReadFrom(1)"));
}

// What was read before an error counts.
TEST_F(SSLMode, IsSoughtAsFarAsTheFileCanBeRead) {
  const std::string filler(20'000, ' ');
  const std::string setting = R"("sslmode": "required")";
  reads_until_error = 2;
  EXPECT_THAT(Mode(folder_.Write("app.json", setting + filler)), ElementsAre("ReadFrom(2)"));
  reads_until_error = 2;
  EXPECT_THAT(Mode(folder_.Write("app.json", filler + setting)),
              ElementsAre(kNothingFound, "ReadFrom(1)"));
}

// The wiping is worth the most to test in an optimised build, where stores into dying objects are
// the first to go.

std::string Filler(std::size_t size) { return std::string(size, '\xCC'); }

// Bytes of an object that is gone. Inlined, without a call between the end of the object and here.
__attribute__((always_inline)) inline std::string DeadBytes(const char* bytes, std::size_t size) {
  std::array<char, 32> seen{};
  // To the optimiser they are bytes of unknown origin.
  asm volatile("" : "+r"(bytes) : : "memory");
  const volatile char* const source = bytes;
  for (std::size_t i = 0; i < size && i < seen.size(); ++i) seen[i] = source[i];
  return {seen.data(), std::min(size, seen.size())};
}

// A short text lies within the object, whose bytes stay to be seen when it is gone. A long one
// leaves its tail behind a short one that takes its place.
TEST(WipedString, OverwritesAllItsRoom) {
  using dbconfig::WipedString;
  constexpr std::size_t kRoom = 15;
  const std::string full_room(kRoom, 's');
  for (const Calls& texts : {Calls{"short"}, Calls{full_room, "short"},
                             Calls{full_room, kLongPassword}, Calls{kLongPassword, "short"}}) {
    const WatchFreedBlocks watch(std::string_view(kLongPassword).substr(8));
    alignas(WipedString) std::array<char, sizeof(WipedString)> storage{};
    auto* const holder = std::construct_at(reinterpret_cast<WipedString*>(storage.data()));
    const std::size_t offset = static_cast<std::size_t>(holder->Text().data() - storage.data());
    ASSERT_LE(offset + kRoom, storage.size());
    for (const std::string& text : texts) holder->Text() = text;
    std::destroy_at(holder);
    EXPECT_EQ(DeadBytes(storage.data() + offset, kRoom), Filler(kRoom)) << texts.back();
    EXPECT_EQ(watch.WithSecret(), 0) << texts.back();
  }
}

// A short password lies in the operation's stack frame. It is looked at right after the return,
// before any other call can use that piece of stack again.
TEST_F(Account, LeavesNoShortPasswordOnTheStack) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own calls use that piece of stack";
#endif
  Platform().recording = false;
  const std::string short_password = "s3cret-passwd";
  Platform().preferred = {short_password, 0};
  AccountOutputs out;
  const char* const* const plain_bytes = &Platform().plain_bytes;
  const std::size_t length = short_password.size();
  Product().GetDBUserAndPassword(out.user, out.password, kDbName);
  EXPECT_EQ(DeadBytes(*plain_bytes, length), Filler(length));
  EXPECT_EQ(out.password, short_password);
}

TEST(NormalizeSQL, LeavesTheStatementWhereMemoryEnds) {
  ResetPlatform();
  ASSERT_EQ(sqlnorm::ChosenEngine(), sqlnorm::Engine::kScanner);
  // One of each: quotes, literals, a group, an IN list, rows, three aliases, blanks to trim.
  const std::string statement =
      "\" select t7.id, 0.1 , 0xFF from orders t7, items t3 where (t7.id = t3.no and t3.n >= 2.50) "
      "and not (t3.id in (1, 2)) and e in (@p0, @p1) values (1, 10abc), (2, 3) t9  \"";
  Operation<std::string>(
      statement, [](std::string& sql) { Product().NormalizeSQL(sql); }, Same)
      .FailEverywhere();
  Operation<std::string>(
      statement, [](std::string& sql) { sql = sqlnorm::NormalizeByPatterns(sql); }, Same)
      .FailEverywhere();
}

}  // namespace
}  // namespace tarn::test
