// The database operations on a recording platform: what they hand back, and every call in order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "entry/product_interface_tarn.h"
#include "platform/c_value.h"
#include "support/allocations.h"
#include "support/recording_platform.h"

namespace tarn::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

using Calls = std::vector<std::string>;

// Runs `operation(n)` for every call n of the platform and once beyond. It makes that call throw,
// checks the outputs and returns whether the exception came out.
template <typename Operation>
void ThrowAtEveryCall(int calls, Operation operation) {
  for (int n = 1; n <= calls; ++n) EXPECT_TRUE(operation(n)) << "call " << n;
  EXPECT_FALSE(operation(calls + 1));
}

// Runs `call` with the platform's n-th call throwing; whether that came out.
template <typename Call>
bool ThrowsAt(int n, Call call) {
  Platform().recording = false;
  Platform().throw_at = n;
  Platform().call_count = 0;
  try {
    call();
  } catch (const PlatformError&) {
    return true;
  }
  return false;
}

TEST(DBType, IsHandedBackAndLoggedAsAnError) {
  for (const std::string type : {"mysql", "tundra", "Oracle 19", ""}) {
    ResetPlatform().type = type;
    std::string out = "before";
    EXPECT_TRUE(Product().GetDBType(out, "db01"));
    EXPECT_EQ(out, type);
    EXPECT_THAT(Platform().calls,
                ElementsAre("Instance()", "getDBType(db01, 0)",
                            "Error(666667, " + type + ", getproductinterface.cpp:LogError:213)"));
  }
}

TEST(DBType, IsWrittenBeforeItIsLogged) {
  ResetPlatform().type = "mysql";
  ThrowAtEveryCall(3, [](int n) {
    std::string out = "before";
    const bool threw = ThrowsAt(n, [&] { Product().GetDBType(out, "db01"); });
    EXPECT_EQ(out, n <= 2 ? "before" : "mysql");
    return threw;
  });
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
  Platform().process_handle = 3;
  unsetenv("APP_CONF_FILE");
  ListeningProduct listening;
  impl_dao::CProductInterface& product = listening;
  std::string out;
  std::string password;
  std::map<std::string, refl::CValue> properties;
  product.GetDBType(out, "db01");
  product.GetDBUserAndPassword(out, password, "db01");
  product.GetDBConnectProperties(properties);
  EXPECT_THAT(listening.heard_,
              ElementsAre("error mysql", "warning app", "warning nemgr_transDB_3"));
}

class Account : public testing::Test {
 protected:
  Account() {
    ResetPlatform();
    Platform().type = "mysql";
    Platform().user = "app";
    Platform().password = "cipher";
    Platform().preferred = {kLongPassword, 0};
  }

  Calls Get() {
    EXPECT_TRUE(Product().GetDBUserAndPassword(user_, password_, "db01"));
    return Platform().calls;
  }

  std::string user_ = "user before";
  std::string password_ = "password before";
};

TEST_F(Account, HasTheUserThatTheTypeWants) {
  Platform().later_user = "second";
  for (const auto& [type, user] :
       std::map<std::string, std::string>{{"mysql", "second"},
                                          {"tundra", "db01"},
                                          {"MySQL", "app"},
                                          {"mysql8", "app"},
                                          {"tundr", "app"},
                                          {std::string("mysql\0", 6), "app"},
                                          {"", "app"}}) {
    Platform().call_count = 0;
    Platform().type = type;
    Get();
    EXPECT_EQ(user_, user) << type;
  }
}

TEST_F(Account, IsReadAndDecipheredInOrder) {
  EXPECT_THAT(Get(), ElementsAre("Instance()", "getDBUserName(db01, 0)", "Instance()",
                                 "getDBPassword(db01, 0)", "decryptEx(cipher, , 19)", "Instance()",
                                 "getDBType(db01, 0)", "Instance()", "getDBUserName(db01, 0)",
                                 "Warn(app, getproductinterface.cpp:LogWarning:218)"));
  EXPECT_EQ(password_, kLongPassword);
}

// The second attempt gets the output as the first one left it, and its result decides nothing.
TEST_F(Account, FallsBackToTheSecondAlgorithm) {
  const std::vector<std::pair<Deciphering, std::string>> cases = {
      {{kLongPassword, 0}, "0"}, {{"garbage", 4294967295U}, "4294967295"}};
  for (const auto& [fallback, code] : cases) {
    Platform().calls.clear();
    Platform().preferred = {"rest", 77};
    Platform().fallback = fallback;
    EXPECT_THAT(Get(), ElementsAre("Instance()", "getDBUserName(db01, 0)", "Instance()",
                                   "getDBPassword(db01, 0)", "decryptEx(cipher, , 19)",
                                   "Error(77, [tarn_interface_for_vesta] decryptEx failed Passwd, "
                                   "getproductinterface.cpp:GetDBUserAndPassword:249)",
                                   "decryptEx(cipher, rest, 18)",
                                   "Error(" + code +
                                       ", [tarn_interface_for_vesta] decryptEx ALGID_AES128_ECB , "
                                       "getproductinterface.cpp:GetDBUserAndPassword:251)",
                                   "Instance()", "getDBType(db01, 0)", "Instance()",
                                   "getDBUserName(db01, 0)",
                                   "Warn(app, getproductinterface.cpp:LogWarning:218)"));
    EXPECT_EQ(password_, fallback.plain);
  }
}

TEST_F(Account, EmptyTextsAreUsedLikeAnyOther) {
  Platform().user.clear();
  Platform().password.clear();
  Platform().preferred = {};
  Get();
  EXPECT_EQ(user_, "");
  EXPECT_EQ(password_, "");
}

// An exception at any call keeps what was written, wipes the holder and leaks nothing.
class AccountExceptions : public testing::TestWithParam<bool> {};

TEST_P(AccountExceptions, KeepWhatWasWritten) {
  const bool falls_back = GetParam();
  const int deciphered_after = falls_back ? 8 : 5;
  ThrowAtEveryCall(deciphered_after + 5, [&](int n) {
    ResetPlatform().type = "tundra";
    Platform().user = "app";
    Platform().preferred = {kLongPassword, falls_back ? 1U : 0U};
    Platform().fallback = {kLongPassword, 1};
    std::string user = "user before";
    std::string password = "password before";
    const std::string db_name = "database";
    const long live_before = LiveAllocations();
    bool threw = false;
    {
      const WatchFreedBlocks watch(kLongPassword);
      threw = ThrowsAt(n, [&] { Product().GetDBUserAndPassword(user, password, db_name); });
      EXPECT_EQ(watch.WithSecret(), 0) << n;
      EXPECT_EQ(watch.Wiped(), n < 5 ? 0 : 1) << n;
    }
    EXPECT_EQ(user, n <= 2 ? "user before" : threw ? "app" : "database") << n;
    EXPECT_EQ(password, n <= deciphered_after ? "password before" : kLongPassword) << n;
    const long handed_over = n <= deciphered_after ? 0 : 1;
    EXPECT_EQ(LiveAllocations() - live_before, handed_over) << n;
    return threw;
  });
}
INSTANTIATE_TEST_SUITE_P(Deciphering, AccountExceptions, testing::Bool(),
                         [](const auto& row) { return row.param ? "falling_back" : "at_once"; });

TEST(Address, FollowsTheType) {
  const Calls host_and_port = {"Instance()", "getDBType(db01, 0)",
                               "Instance()", "getDBAccessHost(db01, 0)",
                               "Instance()", "getDBAccessPort(db01, 0)"};
  const Calls service = {"Instance()", "getDBType(db01, 0)", "Instance()",
                         "getDBServiceName(db01, 0)"};
  struct Row {
    std::string type;
    std::string host;
    int port;
    std::string address;
  };
  for (const Row& row : {Row{"mysql", "10.0.0.5", 12345, "10.0.0.5:12345"},
                         {"tundra", "dbhost", 2345, "dbhost:2345"},
                         // No brackets.
                         {"mysql", "::1", 12345, "::1:12345"},
                         {"mysql", "", 0, ":0"},
                         {"tundra", "h", -2147483647 - 1, "h:-2147483648"},
                         {"MySQL", "h", 1, "the service"},
                         {"tundra2", "h", 1, "the service"},
                         {"", "h", 1, "the service"}}) {
    ResetPlatform().type = row.type;
    Platform().host = row.host;
    Platform().port = row.port;
    Platform().service = "the service";
    std::string address = "a previous content that is longer than all others";
    EXPECT_TRUE(Product().GetDBConnectAddress(address, "db01"));
    EXPECT_EQ(address, row.address);
    EXPECT_THAT(Platform().calls,
                ElementsAreArray(address == "the service" ? service : host_and_port));
  }
}

TEST(AddressExceptions, LeaveTheAddressAlone) {
  const std::pair<const char*, int> branches[] = {{"mysql", 6}, {"other", 4}};
  for (const auto& [type, calls] : branches) {
    ResetPlatform().type = type;
    Platform().host = "a host name that needs an allocation";
    Platform().service = "a service name that needs an allocation";
    ThrowAtEveryCall(calls, [&](int n) {
      std::string address = "address before";
      const long live_before = LiveAllocations();
      const bool threw = ThrowsAt(n, [&] { Product().GetDBConnectAddress(address, "db01"); });
      EXPECT_EQ(address == "address before", threw);
      EXPECT_EQ(LiveAllocations() - live_before, threw ? 0 : 1);
      return threw;
    });
  }
}

class Properties : public testing::Test {
 protected:
  Properties() {
    ResetPlatform();
    unsetenv("APP_CONF_FILE");
  }

  // The entry's text, after a check that it is a string.
  std::string Value(const std::string& key) {
    const auto entry = properties_.find(key);
    if (entry == properties_.end()) return "(none)";
    EXPECT_EQ(entry->second.GetDataType(), refl::Enum::DATA_TYPE_STRING) << key;
    return entry->second.ToString();
  }

  std::map<std::string, refl::CValue> properties_;
};

TEST_F(Properties, AreLookedUpAndLoggedInOrder) {
  Platform().process_id = 4071;
  Platform().process_handle = 3;
  EXPECT_TRUE(Product().GetDBConnectProperties(properties_));
  EXPECT_THAT(
      Platform().calls,
      ElementsAre("QuillGetProcHandle()", "QuillGetProcId()",
                  "Warn(nesvc_v8ptnDB_3, getproductinterface.cpp:LogWarning:218)",
                  "Warn([tarn_interface_for_vesta] getSSLmdoe error : APP_CONF_FILE = NULL, "
                  "getproductinterface.cpp:getSSLMode:62)"));
  EXPECT_EQ(properties_.size(), 2U);
  EXPECT_EQ(Value("defaultDBName"), "nesvc_v8ptnDB_3");
  EXPECT_EQ(Value("SSLMODE"), "1");
}

TEST_F(Properties, ReplaceTheirEntriesAndNoOther) {
  properties_["defaultDBName"].ChangeValueTypeEnum(static_cast<refl::Enum::DataTypeEnum>(7));
  properties_["SSLMODE"].ReadFrom("2");
  properties_["SSLmode"].ReadFrom("kept");
  properties_["user"].ChangeValueTypeEnum(static_cast<refl::Enum::DataTypeEnum>(7));
  const refl::CValue* place = &properties_["SSLMODE"];
  Product().GetDBConnectProperties(properties_);
  EXPECT_EQ(properties_.size(), 4U);
  EXPECT_EQ(Value("defaultDBName"), "nemgr_transDB_0");
  EXPECT_EQ(Value("SSLMODE"), "1");
  EXPECT_EQ(place, &properties_["SSLMODE"]);
  EXPECT_EQ(Value("SSLmode"), "kept");
  EXPECT_EQ(properties_["user"].GetDataType(), static_cast<refl::Enum::DataTypeEnum>(7));
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
    Product().GetDBConnectProperties(properties_);
    EXPECT_EQ(Value("defaultDBName"), row.name);
  }
}

TEST_F(Properties, KeepWhatWasWrittenBeforeAnException) {
  constexpr int kNameLogged = 3;
  constexpr int kModeLogged = 4;
  ThrowAtEveryCall(kModeLogged, [&](int n) {
    properties_.clear();
    const long live_before = LiveAllocations();
    const bool threw = ThrowsAt(n, [&] { Product().GetDBConnectProperties(properties_); });
    EXPECT_EQ(properties_.count("defaultDBName"), n >= kNameLogged ? 1U : 0U) << n;
    EXPECT_EQ(properties_.count("SSLMODE"), n >= kModeLogged ? 1U : 0U) << n;
    EXPECT_EQ(properties_["defaultDBName"].ToString(), n >= kNameLogged ? "nemgr_transDB_0" : "")
        << n;
    EXPECT_EQ(properties_["SSLMODE"].ToString(), threw ? "" : "1") << n;
    properties_.clear();
    EXPECT_EQ(LiveAllocations(), live_before) << n;
    return threw;
  });
}

}  // namespace
}  // namespace tarn::test
