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
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dbconfig/ssl_mode.h"
#include "dbconfig/wiped_string.h"
#include "entry/product_interface_tarn.h"
#include "platform/c_value.h"
#include "sqlnorm/normalize_sql.h"
#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"
#include "support/allocations.h"
#include "support/case_file.h"
#include "support/operation.h"
#include "support/recording_platform.h"
#include "support/surroundings.h"

namespace {

// Reads until the one that fails with EIO; not above 0: none does.
int reads_until_error = 0;

}  // namespace

// Found before the C library's.
extern "C" __attribute__((visibility("default"))) ssize_t read(int descriptor, void* buffer,
                                                               size_t size) {
  if (reads_until_error > 0 && --reads_until_error == 0) {
    errno = EIO;
    return -1;
  }
  return syscall(SYS_read, descriptor, buffer, size);
}

namespace tarn::test {
namespace {

using dbconfig::WipedString;
using impl_dao::CProductInterface;
using testing::ElementsAre;
using testing::ElementsAreArray;

using Calls = std::vector<std::string>;
using PropertyMap = std::map<std::string, refl::CValue>;

// Longer than what a string holds without allocating, with a byte that ends texts of C.
const std::string kDbName("orders\0of the shop in town", 26);
const std::string kUser("app\0user of some length", 23);
const std::string kLaterUser("second\0user of some length", 26);
const std::string kPassword("enciphered\0text of some length", 30);

// What a short text that takes its place does not reach.
const std::string_view kLongPasswordsTail = std::string_view(kLongPassword).substr(8);

std::string Same(const std::string& text) { return text; }

// The log shows a text up to its first NUL.
std::string Shown(const std::string& text) { return text.c_str(); }

TEST(LoggingBridge, PassesTheVeryMessageOn) {
  struct Row {
    void (CProductInterface::*log)(const char*);
    std::string begin;
    std::string end;
  };
  for (const Row& row : {Row{&CProductInterface::LogError, "Error(666667, ", "LogError:213)"},
                         Row{&CProductInterface::LogWarning, "Warn(", "LogWarning:218)"},
                         Row{&CProductInterface::LogDebug, "Debug(", "LogDebug:222)"}}) {
    // The plug-in's own prefix is no business of the bridge.
    for (const char* message : {"text", "", "[tarn_interface_for_vesta] text", "%s\n\xFF",
                                static_cast<const char*>(nullptr)}) {
      ResetPlatform();
      (Product().*row.log)(message);
      EXPECT_THAT(Platform().calls,
                  ElementsAre(row.begin + (message == nullptr ? "(null)" : message) +
                              ", getproductinterface.cpp:" + row.end));
      EXPECT_EQ(Platform().last_message, message);
      Platform().throw_at = 2;
      EXPECT_THROW((Product().*row.log)(message), PlatformError);
      EXPECT_EQ(Platform().live_records, 0);
    }
  }
}

// What the operations log of their own, they log through the object's dispatch table.
class ListeningProduct : public CProductInterface_Tarn {
 public:
  void LogError(const char* message) override { heard_.push_back("error " + std::string(message)); }
  void LogWarning(const char* message) override {
    heard_.push_back("warning " + std::string(message));
  }

  Calls heard_;
};

TEST(OwnLogging, GoesThroughTheDispatchTable) {
  ResetPlatform().type = "mysql";
  Platform().user = "app";
  ListeningProduct listening;
  CProductInterface& product = listening;
  std::string out;
  std::string password;
  PropertyMap properties;
  product.GetDBType(out, kDbName);
  product.GetDBUserAndPassword(out, password, kDbName);
  product.GetDBConnectProperties(properties);
  EXPECT_THAT(listening.heard_,
              ElementsAre("error mysql", "warning app", "warning nemgr_transDB_0"));
}

TEST(DBType, IsHandedBackAndLoggedAsAnError) {
  Operation<std::string> operation(
      "before", [](std::string& type) { EXPECT_TRUE(Product().GetDBType(type, kDbName)); }, Same);
  for (const std::string& type :
       {std::string("mysql"), std::string("an engine of\0a long name", 25), std::string("tundra"),
        std::string()}) {
    ResetPlatform().type = type;
    EXPECT_THAT(
        operation.Trace(),
        ElementsAre("Instance()", "getDBType(" + kDbName + ", 0)", "-> " + type,
                    "Error(666667, " + Shown(type) + ", getproductinterface.cpp:LogError:213)"));
  }
  Platform().type = "an engine of a long name";
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
    Platform().preferred = {kLongPassword, 0};
  }

  Operation<AccountOutputs> operation_{
      {},
      [](AccountOutputs& out) {
        EXPECT_TRUE(Product().GetDBUserAndPassword(out.user, out.password, kDbName));
      },
      [](const AccountOutputs& out) { return out.user + " | " + out.password; }};
};

TEST_F(Account, HasTheUserThatTheTypeWants) {
  for (const auto& [type, user] :
       std::map<std::string, std::string>{{"mysql", kLaterUser},
                                          {"tundra", kDbName},
                                          {"MySQL", kUser},
                                          {"mysql8", kUser},
                                          {"tundr", kUser},
                                          {std::string("mysql\0", 6), kUser},
                                          {"", kUser}}) {
    Platform().type = type;
    EXPECT_EQ(operation_.Trace().back(), user == kUser ? "Warn(second, getproductinterface.cpp:"
                                                         "LogWarning:218)"
                                                       : "-> " + user + " | " + kLongPassword);
  }
}

// The second attempt gets the output as the first one left it, and its result decides nothing.
TEST_F(Account, IsReadAndDecipheredInOrder) {
  struct Row {
    Deciphering preferred;
    Deciphering fallback;
  };
  for (const Row& row :
       {Row{{std::string("s3cr\0t", 6), 0}, {}}, Row{{}, {}}, Row{{"rest", 77}, {kLongPassword, 0}},
        Row{{kLongPassword, 1}, {"garbage", 4294967295U}}}) {
    Platform().type = "tundra";
    Platform().preferred = row.preferred;
    Platform().fallback = row.fallback;
    const bool falls_back = row.preferred.result != 0;
    const std::string& plain = falls_back ? row.fallback.plain : row.preferred.plain;
    Calls expected{
        "Instance()", "getDBUserName(" + kDbName + ", 0)", "-> " + kUser + " | before",
        "Instance()", "getDBPassword(" + kDbName + ", 0)", "decryptEx(" + kPassword + ", , 19)"};
    if (falls_back) {
      expected.insert(expected.end(),
                      {"Error(" + std::to_string(row.preferred.result) +
                           ", [tarn_interface_for_vesta] decryptEx failed Passwd, "
                           "getproductinterface.cpp:GetDBUserAndPassword:249)",
                       "decryptEx(" + kPassword + ", " + row.preferred.plain + ", 18)",
                       "Error(" + std::to_string(row.fallback.result) +
                           ", [tarn_interface_for_vesta] decryptEx ALGID_AES128_ECB , "
                           "getproductinterface.cpp:GetDBUserAndPassword:251)"});
    }
    expected.insert(
        expected.end(),
        {"-> " + kUser + " | " + plain, "Instance()", "getDBType(" + kDbName + ", 0)", "Instance()",
         "getDBUserName(" + kDbName + ", 0)",
         "Warn(second, getproductinterface.cpp:LogWarning:218)", "-> " + kDbName + " | " + plain});
    EXPECT_THAT(operation_.Trace(), ElementsAreArray(expected));
  }
}

TEST_F(Account, KeepsWhatWasWrittenWhateverFails) {
  for (const char* type : {"mysql", "tundra", "an engine of a long name"}) {
    Platform().type = type;
    for (const unsigned int result : {0U, 1U}) {
      Platform().preferred = {kLongPassword, result};
      Platform().fallback = {kLongPassword, result};
      operation_.FailEverywhere();
    }
  }
}

TEST(Address, FollowsTheType) {
  Operation<std::string> operation(
      "a previous content that is longer than all others",
      [](std::string& address) { EXPECT_TRUE(Product().GetDBConnectAddress(address, kDbName)); },
      Same);
  const std::string arguments = "(" + kDbName + ", 0)";
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
    Calls expected{"Instance()", "getDBType" + arguments, "Instance()"};
    if (row.address == service) {
      expected.push_back("getDBServiceName" + arguments);
    } else {
      expected.insert(expected.end(),
                      {"getDBAccessHost" + arguments, "Instance()", "getDBAccessPort" + arguments});
    }
    expected.push_back("-> " + row.address);
    EXPECT_THAT(operation.Trace(), ElementsAreArray(expected));
  }
  operation.FailEverywhere();
  Platform().type = "tundra";
  // A host without capacity to spare for the port.
  Platform().host = std::string(30, 'h');
  operation.FailEverywhere();
}

struct Groups : std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

// The port is printed as a stream prints it; the default database's name never is.
TEST(HostsLocale, GroupsThePortAlone) {
  ResetPlatform().type = "mysql";
  Platform().port = 12345;
  Platform().process_handle = 65535;
  std::string address;
  PropertyMap properties;
  const std::locale old = std::locale::global(std::locale(std::locale::classic(), new Groups));
  Product().GetDBConnectAddress(address, kDbName);
  Product().GetDBConnectProperties(properties);
  std::locale::global(old);
  EXPECT_EQ(address, ":12.345");
  EXPECT_EQ(properties["defaultDBName"].ToString(), "nemgr_transDB_65535");
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

constexpr const char* kNoFileNamed =
    "Warn([tarn_interface_for_vesta] getSSLmdoe error : APP_CONF_FILE = NULL, "
    "getproductinterface.cpp:getSSLMode:62)";
constexpr const char* kNotOpened =
    "Warn([tarn_interface_for_vesta] Fail to read sslmode, open file error, "
    "getproductinterface.cpp:getSSLMode:69)";
constexpr const char* kNothingFound =
    "Warn([tarn_interface_for_vesta] Fail to read ssl in config file, "
    "getproductinterface.cpp:getSSLMode:122)";

class Properties : public testing::Test {
 protected:
  Properties() { ResetPlatform(); }

  static Operation<PropertyMap> Get(const PropertyMap& before = {}) {
    return {
        before,
        [](PropertyMap& properties) { EXPECT_TRUE(Product().GetDBConnectProperties(properties)); },
        Entries};
  }

  // The mode, behind the warnings on its way.
  static Calls Mode() {
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
  Platform().process_id = 4071;
  Platform().process_handle = 3;
  const std::string name = "defaultDBName=nesvc_v8ptnDB_3(41)";
  EXPECT_THAT(Get().Trace(),
              ElementsAre("QuillGetProcHandle()", "QuillGetProcId()", "CValue()",
                          "-> defaultDBName=(0)", "ReadFrom(nesvc_v8ptnDB_3)", "-> " + name,
                          "Warn(nesvc_v8ptnDB_3, getproductinterface.cpp:LogWarning:218)",
                          "CValue()", "-> SSLMODE=(0) " + name, "getenv(APP_CONF_FILE)",
                          kNoFileNamed, "ReadFrom(1)", "-> SSLMODE=1(41) " + name));
}

// Entries that are there keep their place, whatever they held.
TEST_F(Properties, ReplaceTheirEntriesAndNoOther) {
  const auto other_type = static_cast<refl::Enum::DataTypeEnum>(7);
  PropertyMap before;
  before["defaultDBName"].ChangeValueTypeEnum(other_type);
  before["SSLMODE"].ReadFrom("2");
  before["SSLmode"].ReadFrom("kept");
  before["user"].ChangeValueTypeEnum(other_type);
  EXPECT_THAT(
      Get(before).Trace(),
      ElementsAre("QuillGetProcHandle()", "QuillGetProcId()", "ReadFrom(nemgr_transDB_0)",
                  testing::_, testing::_, "getenv(APP_CONF_FILE)", kNoFileNamed, "ReadFrom(1)",
                  "-> SSLMODE=1(41) SSLmode=kept(41) defaultDBName=nemgr_transDB_0(41) "
                  "user=(7)"));
}

TEST_F(Properties, NameTheDatabaseOfTheProcess) {
  struct Row {
    unsigned int process;
    unsigned int handle;
    const char* name;
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
    PropertyMap properties;
    Product().GetDBConnectProperties(properties);
    EXPECT_EQ(properties["defaultDBName"].ToString(), row.name);
  }
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

class SSLModeSearch : public testing::TestWithParam<CaseRow> {};

TEST_P(SSLModeSearch, FindsTheMode) {
  EXPECT_EQ(dbconfig::FindSSLMode(GetParam().texts.at(0)).value_or(""), GetParam().texts.at(1));
}

INSTANTIATE_TEST_SUITE_P(Cases, SSLModeSearch, testing::ValuesIn(ReadCases("ssl_mode.txt")),
                         CaseName);

using SSLMode = Properties;

TEST_F(SSLMode, IsReadAfreshFromTheFileThatIsNamed) {
  const std::string file = folder_.Path("app.json");
  // A folder opens, but can't be read.
  for (const auto& [path, warning] : std::map<std::string, const char*>{
           {file, kNotOpened}, {"", kNotOpened}, {"/", kNothingFound}}) {
    const ScopedVariable variable("APP_CONF_FILE", path);
    EXPECT_THAT(Mode(), ElementsAre(warning, "ReadFrom(1)")) << path;
  }
  const ScopedVariable variable("APP_CONF_FILE", file);
  for (const char* content : {"", R"({"sslmode": "preferred"})"}) {
    folder_.Write("app.json", content);
    EXPECT_THAT(Mode(), ElementsAre(kNothingFound, "ReadFrom(1)"));
  }
  folder_.Write("app.json", R"({"ssl": true})");
  EXPECT_THAT(Mode(), ElementsAre("ReadFrom(2)"));
  folder_.Write("app.json", R"({"ssl": false})");
  EXPECT_THAT(Mode(), ElementsAre("ReadFrom(0)"));
}

TEST_F(SSLMode, IsTheDefaultWithoutADescriptorForTheFile) {
  const ScopedVariable variable("APP_CONF_FILE",
                                folder_.Write("app.json", R"({"sslmode": "required"})"));
  rlimit old{};
  getrlimit(RLIMIT_NOFILE, &old);
  const rlimit none{0, old.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const Calls mode = Mode();
  setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_THAT(mode, ElementsAre(kNotOpened, "ReadFrom(1)"));
}

// What was read before an error counts.
TEST_F(SSLMode, IsSoughtAsFarAsTheFileCanBeRead) {
  const std::string filler(20'000, ' ');
  const std::string setting = R"("sslmode": "required")";
  const ScopedVariable variable("APP_CONF_FILE", folder_.Write("app.json", setting + filler));
  reads_until_error = 2;
  EXPECT_THAT(Mode(), ElementsAre("ReadFrom(2)"));
  folder_.Write("app.json", filler + setting);
  reads_until_error = 2;
  EXPECT_THAT(Mode(), ElementsAre(kNothingFound, "ReadFrom(1)"));
}

// Worth the most in an optimised build, where stores into dying objects are the first to go.

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

// A short text lies within the object, whose bytes stay to be seen when it is gone.
TEST(WipedString, OverwritesAllItsRoom) {
  constexpr std::size_t kRoom = 15;
  const std::string full_room(kRoom, 's');
  for (const Calls& texts : {Calls{"short"}, Calls{full_room, "short"},
                             Calls{full_room, kLongPassword}, Calls{kLongPassword, "short"}}) {
    const WatchFreedBlocks watch(kLongPasswordsTail);
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

// That the watch can see an unwiped password.
TEST(WatchFreedBlocks, SeesAnUnwipedText) {
  const WatchFreedBlocks watch(kLongPassword);
  { const auto plain = std::make_unique<std::string>(kLongPassword); }
  EXPECT_EQ(watch.WithSecret(), 1);
  EXPECT_EQ(watch.Wiped(), 0);
}

TEST_F(Account, WipesWhatTheSecondAlgorithmDidNotOverwrite) {
  Platform().recording = false;
  Platform().preferred = {kLongPassword, 1};
  Platform().fallback = {"short", 0};
  AccountOutputs out;
  const WatchFreedBlocks watch(kLongPasswordsTail);
  Product().GetDBUserAndPassword(out.user, out.password, kDbName);
  EXPECT_EQ(watch.WithSecret(), 0);
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
      "\" select t7.id, 0.1 , 0xFF from orders t7, items t3 where (t7.id = t3.ord and t3.n >= "
      "2.50) "
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
