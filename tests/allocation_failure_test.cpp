// Every allocation of an operation fails once, until the operation gets by without reaching it.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <new>
#include <string>
#include <typeinfo>
#include <utility>

#include "platform/c_value.h"
#include "sqlnorm/normalize_sql.h"
#include "sqlnorm/patterns/pattern_engine.h"
#include "sqlnorm/scanner/scanner_engine.h"
#include "support/allocations.h"
#include "support/recording_platform.h"
#include "support/surroundings.h"

namespace tarn::test {
namespace {

using sqlnorm::NormalizeByPatterns;
using sqlnorm::NormalizeByScanner;

// Long enough to need an allocation wherever it goes.
const std::string kDbName = "database with a name of some length";

// Empties `text` down to its storage, which an assignment would keep.
void Release(std::string& text) { std::string().swap(text); }

// Runs `call` with its first allocation failing, then the second and so on. `start` prepares the
// outputs, `after(completed)` checks them and releases what they hold.
void FailEveryAllocation(const std::function<void()>& start, const std::function<void()>& call,
                         const std::function<void(bool completed)>& after) {
  Platform().recording = false;
  // Once in peace, so that the libraries' caches are filled.
  start();
  call();
  after(true);
  constexpr long kFarTooMany = 100'000;
  for (long n = 1; n < kFarTooMany; ++n) {
    // Before the count: the trace allocates, too.
    SCOPED_TRACE("allocation " + std::to_string(n));
    const long live_before = LiveAllocations();
    start();
    bool completed = false;
    bool failed = false;
    {
      const FailNthAllocation failure(n);
      try {
        call();
        completed = true;
      } catch (const std::bad_alloc&) {
      } catch (const std::bad_cast&) {
        // A stream in which a literal is read makes a failed conversion of it.
      }
      failed = FailNthAllocation::Happened();
    }
    after(completed);
    ASSERT_EQ(LiveAllocations(), live_before);
    if (!failed) {
      ASSERT_TRUE(completed);
      ASSERT_GT(n, 1) << "nothing was allocated";
      return;
    }
    ASSERT_FALSE(completed) << "the failure was swallowed";
  }
  FAIL() << "no end of allocations";
}

TEST(AllocationFailure, NormalizingLeavesTheStatement) {
  // One of each: quotes, literals, a group, an IN list, rows, three aliases, blanks to trim.
  const std::string statement =
      "\" select t7.a, 0.1 , 0xFF from tab t7, tab2 t3 where (t7.a = t3.b and t3.c >= 2.50) and "
      "not (t3.d in (1, 2)) and e in (@p0, @p1) values (1, 10abc), (2, 3) t9  \"";
  const std::string canonical = NormalizeByScanner(statement);
  ASSERT_EQ(sqlnorm::ChosenEngine(), sqlnorm::Engine::kScanner);
  std::string sql;
  const std::function<void()> engines[] = {[&] { Product().NormalizeSQL(sql); },
                                           [&] { sql = NormalizeByPatterns(sql); }};
  for (const auto& engine : engines) {
    FailEveryAllocation([&] { sql = statement; }, engine,
                        [&](bool completed) {
                          EXPECT_EQ(sql, completed ? canonical : statement);
                          Release(sql);
                        });
  }
}

TEST(AllocationFailure, GetDBTypeWritesTheTypeOrNothing) {
  ResetPlatform().type = "an engine type of some length";
  std::string type;
  FailEveryAllocation([&] { type = "before"; }, [&] { Product().GetDBType(type, kDbName); },
                      [&](bool completed) {
                        EXPECT_EQ(type, completed ? Platform().type : "before");
                        Release(type);
                      });
}

TEST(AllocationFailure, GetDBUserAndPasswordWipesThePassword) {
  ResetPlatform().type = "tundra";
  Platform().user = "a login user of some length";
  Platform().password = "an enciphered password";
  Platform().preferred = {kLongPassword, 1};
  Platform().fallback = {kLongPassword, 0};
  std::string user;
  std::string password;
  FailEveryAllocation(
      [&] { user = password = "before"; },
      [&] {
        const WatchFreedBlocks watch(kLongPassword);
        const auto check = [&] { EXPECT_EQ(watch.WithSecret(), 0); };
        try {
          Product().GetDBUserAndPassword(user, password, kDbName);
        } catch (...) {
          check();
          throw;
        }
        check();
        EXPECT_EQ(watch.Wiped(), 1);
      },
      [&](bool completed) {
        if (completed) {
          EXPECT_EQ(user, kDbName);
          EXPECT_EQ(password, kLongPassword);
        } else {
          EXPECT_TRUE(user == "before" || user == Platform().user);
          EXPECT_TRUE(password == "before" || (password == kLongPassword && user != "before"));
        }
        Release(user);
        Release(password);
      });
}

TEST(AllocationFailure, GetDBConnectAddressLeavesTheAddress) {
  for (const char* type : {"mysql", "an engine of another type"}) {
    ResetPlatform().type = type;
    // A host without capacity to spare for the port.
    Platform().host = std::string(30, 'h');
    Platform().service = "a service name of some length";
    Platform().port = 3306;
    std::string address;
    FailEveryAllocation([&] { address = "before"; },
                        [&] { Product().GetDBConnectAddress(address, kDbName); },
                        [&](bool completed) {
                          EXPECT_EQ(address == "before", !completed);
                          Release(address);
                        });
  }
}

TEST(AllocationFailure, GetDBConnectPropertiesNeverMistakesTheMode) {
  ResetPlatform();
  const TemporaryFolder folder;
  // The setting at the end of a file that needs several growing buffers.
  constexpr std::size_t kSize = 20'000;
  const ScopedVariable variable(
      "APP_CONF_FILE",
      folder.Write("app.json", std::string(kSize, ' ') + R"({"sslmode": "required"})"));
  std::map<std::string, refl::CValue> properties;
  FailEveryAllocation([] {}, [&] { Product().GetDBConnectProperties(properties); },
                      [&](bool completed) {
                        EXPECT_EQ(properties["SSLMODE"].ToString(), completed ? "2" : "");
                        properties.clear();
                      });
}

}  // namespace
}  // namespace tarn::test
