// Tests the product object's operations on a recording platform: their outputs, the order of all
// calls, and the outputs after each possible failure.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <locale>
#include <map>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
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

// The plug-in's entry function, linked into the test.
extern "C" impl_dao::CProductInterface* GetProductInterfaceForVESTA() noexcept;

// The number of calls of read up to the one that fails with EIO; if not above 0, none fails.
static int reads_until_error = 0;

// This definition takes precedence over the C library's. It has another name here, since the
// library's header may define `read` inline.
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

using Calls = std::vector<std::string>;

impl_dao::CProductInterface& Product() { return *GetProductInterfaceForVESTA(); }

// The outputs of the operations. Each operation changes only its own.
struct Outputs {
  std::string text;
  std::string password;
  std::map<std::string, refl::CValue> properties;
};

// Describes the outputs: "TEXT | PASSWORD", then "KEY=TEXT" for each property.
std::string Look(const Outputs& outputs) {
  std::string look = outputs.text + (outputs.password.empty() ? "" : " | " + outputs.password);
  for (const auto& [key, value] : outputs.properties) {
    look += (look.empty() ? "" : " ") + key + "=" + value.ToString();
  }
  return look;
}

// Runs an operation without failures, and with a failure of everything that can fail.
class Operation {
 public:
  // Each run begins with the outputs `before`.
  Operation(Outputs before, void (*call)(Outputs&)) : before_(std::move(before)), call_(call) {}

  // Runs without failures. Returns the platform's calls, then "-> " and the outputs' description.
  Calls Trace() {
    Outputs outputs = before_;
    Platform().recording = true;
    Platform().outputs = [&] { return Look(outputs); };
    Platform().StartAgain();
    call_(outputs);
    Platform().outputs = [] { return std::string(); };
    looks_ = Platform().states;
    looks_.insert(looks_.begin(), Look(before_));
    looks_.push_back(Look(outputs));
    EXPECT_EQ(Platform().live_records, 0);
    Platform().calls.push_back("-> " + looks_.back());
    return Platform().calls;
  }

  // Makes each call of the platform throw, then each allocation fail. Expects every time that the
  // exception reaches the caller, that the outputs are as they were at the failure, and that
  // nothing is left: no memory, no log record, no password. One failing allocation may raise no
  // exception, if the outputs are then described as `survived`.
  void FailEverywhere(const std::string& survived = "never") {
    Trace();
    Platform().recording = false;
    // Allocates a block now, so that it is not counted later.
    left_.reserve(100);
    int survivals = 0;
    for (const bool allocations : {false, true}) {
      for (std::size_t n = 1;; ++n) {
        SCOPED_TRACE((allocations ? "allocation " : "call ") + std::to_string(n));
        const bool failed = allocations ? Fails(0, n) : Fails(n, 0);
        if (!failed && !FailNthAllocation::Happened()) {
          ASSERT_TRUE(allocations ? n > 1 : n == looks_.size() - 1) << "swallowed, or none";
          break;
        }
        const std::size_t reached = Platform().call_count;
        if (failed) {
          EXPECT_THAT(left_, testing::AnyOf(looks_.at(reached), looks_.at(reached + allocations)));
        } else {
          ASSERT_TRUE(left_ == survived && ++survivals == 1) << "the failure was swallowed";
        }
      }
    }
  }

 private:
  // Runs with a failure of that call or allocation (from 1; 0 for none). Returns whether an
  // exception came out.
  bool Fails(std::size_t call, std::size_t allocation) {
    Platform().StartAgain();
    Platform().throw_at = call;
    const long live_before = LiveAllocations();
    bool failed = true;
    {
      const WatchFreedBlocks watch(kLongPassword);
      Outputs outputs = before_;
      try {
        const FailNthAllocation failure(static_cast<long>(allocation));
        call_(outputs);
        failed = false;
      } catch (const PlatformError&) {
      } catch (const std::bad_alloc&) {
      }
      EXPECT_EQ(watch.WithSecret(), 0);
      left_ = Look(outputs);
    }
    Platform().throw_at = 0;
    EXPECT_EQ(LiveAllocations(), live_before);
    EXPECT_EQ(Platform().live_records, 0);
    return failed;
  }

  Outputs before_;
  void (*call_)(Outputs&);
  // The descriptions of the outputs before the operation, before each call, and at the end.
  std::vector<std::string> looks_;
  // The description of the outputs after a run.
  std::string left_;
};

// The product, which also notes each of its operations that is called through its dispatch table.
class NotingProduct : public CProductInterface_Tarn {
  void LogError(const char* message) override {
    Platform().Note("LogError()");
    CProductInterface_Tarn::LogError(message);
  }
  void LogWarning(const char* message) override {
    Platform().Note("LogWarning()");
    CProductInterface_Tarn::LogWarning(message);
  }
};

// Like other texts here, longer than a string holds without allocating, and with a NUL byte.
const std::string kDbName("db\0 of a long name", 18);

void GetType(Outputs& out) { EXPECT_TRUE(NotingProduct().GetDBType(out.text, kDbName)); }
void GetAccount(Outputs& out) {
  EXPECT_TRUE(NotingProduct().GetDBUserAndPassword(out.text, out.password, kDbName));
}
void GetAddress(Outputs& out) {
  EXPECT_TRUE(NotingProduct().GetDBConnectAddress(out.text, kDbName));
}
void GetProperties(Outputs& out) {
  EXPECT_TRUE(NotingProduct().GetDBConnectProperties(out.properties));
}

class Operations : public testing::TestWithParam<CaseRow> {
 protected:
  Operations() {
    Platform() = {};
    Platform().answers = {{"user", std::string("user\0 of a long name", 20)},
                          {"later", std::string("later\0 of a long name", 21)},
                          {"password", std::string("text\0 of a long name", 20)},
                          {"service", std::string("service\0 of a long name", 23)}};
    for (const char* name : {"type", "host"}) Platform().answers[name] = "";
    for (const char* name : {"port", "preferred", "fallback", "process", "handle"}) {
      Platform().answers[name] = "0 ";
    }
  }

  // Applies a setting "NAME=VALUE" of a row: an answer of the platform, or the configuration file's
  // path or content.
  void Set(const std::string& setting) {
    const std::string name = setting.substr(0, setting.find('='));
    const std::string value = setting.substr(name.size() + 1);
    if (name == "path" || name == "file") {
      setenv("APP_CONF_FILE", (name == "path" ? value : folder_.Write("app.json", value)).c_str(),
             1);
    } else {
      ASSERT_TRUE(Platform().answers.contains(name)) << setting;
      Platform().answers[name] = value;
    }
  }

  const TemporaryFolder folder_;
  const ScopedVariable variable_{"APP_CONF_FILE", nullptr};
};

TEST_F(Operations, PassTheVeryMessageOn) {
  Platform().throw_at = 2;
  for (const auto& [log, begin, end] :
       {std::tuple(&impl_dao::CProductInterface::LogError, "Error(666667, ", "LogError:213)"),
        {&impl_dao::CProductInterface::LogWarning, "Warn(", "LogWarning:218)"},
        {&impl_dao::CProductInterface::LogDebug, "Debug(", "LogDebug:222)"}}) {
    // LogError and the others add no prefix to the message.
    for (const char* message :
         {"", "[tarn_interface_for_vesta] text", "%s\n\xFF", static_cast<const char*>(nullptr)}) {
      Platform().StartAgain();
      (Product().*log)(message);
      const std::string text = message == nullptr ? "(null)" : message;
      EXPECT_EQ(Platform().calls, Calls{begin + text + ", " + end});
      EXPECT_EQ(Platform().last_message, message);
      EXPECT_THROW((Product().*log)(message), PlatformError);
      EXPECT_EQ(Platform().live_records, 0);
    }
  }
}

TEST_P(Operations, CallThePlatformInOrder) {
  const std::string before = "a previous content that is longer than all others";
  std::map<std::string, Operation> operations{{"Type", {{before, "", {}}, GetType}},
                                              {"Account", {{before, "before", {}}, GetAccount}},
                                              {"Address", {{before, "", {}}, GetAddress}},
                                              {"Properties", {{}, GetProperties}}};
  Operation& operation = operations.at(GetParam().section);
  const CaseTexts& texts = GetParam().texts;
  std::size_t mark = 0;
  for (; texts.at(mark) != "calls" && texts.at(mark) != "ends"; ++mark) Set(texts.at(mark));
  const auto expected = std::span(texts).subspan(mark + 1);
  Calls calls = operation.Trace();
  if (texts.at(mark) == "ends") calls.erase(calls.begin(), calls.end() - std::ssize(expected));
  EXPECT_THAT(calls, testing::ElementsAreArray(expected));
  if (GetParam().label.ends_with(" failing")) operation.FailEverywhere();
}

INSTANTIATE_TEST_SUITE_P(Cases, Operations, testing::ValuesIn(ReadCases("operations.txt")),
                         CaseName);

using Properties = Operations;

// Existing entries are replaced in place.
TEST_F(Properties, ReplaceTheirEntriesAndNoOther) {
  Outputs before;
  for (const char* key : {"SSLMODE", "SSLmode", "defaultDBName"}) {
    before.properties[key].ReadFrom("old");
  }
  const Calls calls = Operation(before, GetProperties).Trace();
  EXPECT_THAT(calls, testing::Not(testing::Contains("CValue()")));
  EXPECT_EQ(calls.back(), "-> SSLMODE=1 SSLmode=old defaultDBName=nemgr_transDB_0");
}

TEST_F(Properties, KeepWrittenEntriesAfterAnyFailure) {
  // The mode is at the end of a file that needs several growing buffers. If there is no memory for
  // a FILE, the file counts as not opened.
  Set("file=" + std::string(20'000, ' ') + R"({"sslmode": "required"})");
  Operation operation({}, GetProperties);
  operation.FailEverywhere("SSLMODE=1 defaultDBName=nemgr_transDB_0");
  EXPECT_EQ(operation.Trace().back(), "-> SSLMODE=2 defaultDBName=nemgr_transDB_0");
}

// The port has the locale's digit groups, the default database's name never has.
TEST_F(Properties, AreNotGroupedInTheHostsLocaleAsThePortIs) {
  for (const char* setting : {"type=mysql", "port=12345", "handle=65535"}) Set(setting);
  Outputs out;
  const std::locale old =
      std::locale::global(std::locale(std::locale::classic(), new Punctuation("\3")));
  GetAddress(out);
  GetProperties(out);
  std::locale::global(old);
  EXPECT_EQ(Look(out), ":12.345 SSLMODE=1 defaultDBName=nemgr_transDB_65535");
}

TEST(SSLModeSearch, FindsTheMode) {
  for (const CaseRow& row : ReadCases("ssl_mode.txt")) {
    EXPECT_FALSE(row.texts.empty()) << row;
    for (const std::string& content : row.texts) {
      EXPECT_EQ(dbconfig::FindSSLMode(content).value_or("-"), row.label) << row << '\n' << content;
    }
  }
}

// The part that was read before an error counts.
TEST_F(Properties, HaveTheModeAsFarAsTheFileCanBeRead) {
  const std::string filler(20'000, ' ');
  for (const char* first : {R"("sslmode": "required")", ""}) {
    Set("file=" + (first + filler) + R"("sslmode": "required")");
    reads_until_error = 2;
    Outputs out;
    GetProperties(out);
    EXPECT_EQ(out.properties["SSLMODE"].ToString(), *first == 0 ? "1" : "2");
  }
}

// The tests of wiping matter most in an optimised build, since an optimiser removes stores into
// objects at the end of their lifetime.

std::string Filler(std::size_t size) { return std::string(size, '\xCC'); }

// The bytes of an object after its end. Inlined, since a call in between would overwrite them.
__attribute__((always_inline)) inline std::string DeadBytes(const char* bytes, std::size_t size) {
  std::array<char, 32> seen{};
  // Hides the origin of the bytes from the optimiser.
  asm volatile("" : "+r"(bytes) : : "memory");
  const volatile char* const source = bytes;
  for (std::size_t i = 0; i < size && i < seen.size(); ++i) seen[i] = source[i];
  return {seen.data(), std::min(size, seen.size())};
}

// A short text is within the object, whose bytes can still be read after its end. If it replaces a
// long one, the end of the long one is still in the buffer.
TEST(WipedString, OverwritesAllItsBytes) {
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

// A short password is in the operation's stack frame. The test reads it right after the return,
// before another call overwrites that part of the stack.
TEST_F(Operations, LeaveNoShortPasswordOnTheStack) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own calls use that piece of stack";
#endif
  Platform().recording = false;
  Platform().answers["preferred"] = "0 s3cret-passwd";
  Outputs out;
  const char* const* const plain_bytes = &Platform().plain_bytes;
  constexpr std::size_t kLength = 13;
  Product().GetDBUserAndPassword(out.text, out.password, kDbName);
  EXPECT_EQ(DeadBytes(*plain_bytes, kLength), Filler(kLength));
  EXPECT_EQ(out.password, "s3cret-passwd");
}

TEST(NormalizeSQL, LeavesTheStatementIfMemoryRunsOut) {
  ASSERT_EQ(sqlnorm::ChosenEngine(), sqlnorm::Engine::kScanner);
  // One of each: quotes, literals, a group, an IN list, rows, three aliases and blanks to trim.
  const std::string statement =
      "\" select t7.id, 0.1 , 0xFF from orders t7, items t3 where (t7.id = t3.no and t3.n >= 2.50) "
      "and not (t3.id in (1, 2)) and e in (@p0, @p1) values (1, 10abc), (2, 3) t9  \"";
  // This one outgrows its own capacity and every buffer, and has so many aliases that they are
  // sorted.
  std::string growing;
  for (int i = 0; i < 300; ++i) growing += "0.1,t1234567" + std::to_string(i) + ",";
  const auto by_product = [](Outputs& out) { Product().NormalizeSQL(out.text); };
  const auto by_patterns = [](Outputs& out) { out.text = sqlnorm::NormalizeByPatterns(out.text); };
  Operation({statement, "", {}}, by_product).FailEverywhere();
  Operation({growing, "", {}}, by_product).FailEverywhere();
  Operation({statement, "", {}}, by_patterns).FailEverywhere();
}

}  // namespace
}  // namespace tarn::test
