// Hosts that make it hard: calls on many threads while copies of the library come and go, a global
// locale of their own.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <filesystem>
#include <locale>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/c_value.h"
#include "support/surroundings.h"
#include "tarn_host/plugin.h"

namespace tarn::test {
namespace {

using host::IsLoaded;
using host::Plugin;

// The library's file under another name, which the dynamic loader takes for another library.
std::string CopyOfThePlugin(const TemporaryFolder& folder, const std::string& name) {
  std::filesystem::copy_file(TARN_PLUGIN_PATH, folder.Path(name));
  return folder.Path(name);
}

std::string Normalized(const Plugin& plugin, std::string sql) {
  plugin.Product().NormalizeSQL(sql);
  return sql;
}

// Everything the nine operations answer, in one text.
std::string AnswersOfAll(impl_dao::CProductInterface& product) {
  product.LogError("error");
  product.LogWarning("warning");
  product.LogDebug("debug");
  std::string answers = std::to_string(product.MapErrorCode(-1));
  for (const std::string name : {"db", "ecb"}) {
    std::string type;
    std::string user;
    std::string password;
    std::string address;
    const bool all = product.GetDBType(type, name) &&
                     product.GetDBUserAndPassword(user, password, name) &&
                     product.GetDBConnectAddress(address, name);
    answers.append(all ? "|" : "|false ").append(type).append("|");
    answers.append(user).append(":").append(password).append("|").append(address);
  }
  std::map<std::string, refl::CValue> properties;
  answers += product.GetDBConnectProperties(properties) ? "|" : "|false ";
  answers += properties["SSLMODE"].ToString() + properties["defaultDBName"].ToString() + "|";
  std::string sql = "select t7.a from tab t7, tab2 t3 where (t7.b = 1.50 and c=0xff)";
  product.NormalizeSQL(sql);
  return answers + sql;
}

TEST(Threads, MayCallEverythingWhileCopiesComeAndGo) {
  constexpr int kCallers = 8;
  constexpr int kCalls = 50;
  constexpr int kLoaders = 2;
  constexpr int kLoads = 15;
  const TemporaryFolder folder;
  const ScopedVariable variables[] = {{"TARN_SYS_CONF", TARN_CASES "/tool/sys.json"},
                                      {"TARN_KEY_FILE", folder.Write("key", std::string(64, 'a'))},
                                      {"APP_CONF_FILE", TARN_CASES "/tool/app.json"},
                                      {"TARN_PROC_ID", "4071"},
                                      {"TARN_PROC_HANDLE", "3"},
                                      {"TARN_LOG_LEVEL", "off"}};
  const Plugin plugin(TARN_PLUGIN_PATH);
  const std::string expected =
      "184549395|mysql|app:top secret|10.0.0.5:12345|tundra|ecb:  a \"blank\" |h:1|"
      "2nesvc_v8ptnDB_3|"
      "SELECT ____t1.a FROM tab ____t1, tab2 ____t2 WHERE ____t1.b = 1.5 and c = 255";

  // Held by the dynamic loader anyway, whose own lock ThreadSanitizer does not see: images that one
  // thread after the other puts at the same addresses would look like races.
  std::mutex loader;
  std::atomic<int> wrong_answers{0};
  std::atomic<int> wrong_copies{0};
  std::vector<std::jthread> threads;
  for (int i = 0; i < kCallers; ++i) {
    threads.emplace_back([&] {
      for (int call = 0; call < kCalls; ++call) {
        if (AnswersOfAll(plugin.Product()) != expected) ++wrong_answers;
      }
    });
  }
  for (int i = 0; i < kLoaders; ++i) {
    const std::string copy = CopyOfThePlugin(folder, std::to_string(i) + ".so");
    threads.emplace_back([&, copy] {
      for (int load = 0; load < kLoads; ++load) {
        std::unique_lock lock(loader);
        std::optional<Plugin> second(copy);
        lock.unlock();
        if (&second->Product() == &plugin.Product()) ++wrong_copies;
        if (AnswersOfAll(second->Product()) != expected) ++wrong_copies;
        lock.lock();
        second.reset();
        if (IsLoaded(copy)) ++wrong_copies;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(AnswersOfAll(plugin.Product()), expected);
  EXPECT_EQ(wrong_answers, 0);
  EXPECT_EQ(wrong_copies, 0);
}

// Puts the process's locales back.
class ScopedLocale {
 public:
  ScopedLocale() = default;
  ScopedLocale(const ScopedLocale&) = delete;
  ScopedLocale& operator=(const ScopedLocale&) = delete;
  ~ScopedLocale() {
    std::locale::global(before_);
    std::setlocale(LC_ALL, "C");
  }

 private:
  const std::locale before_;
};

class Punctuation : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

// Numbers that would be grouped or get another decimal point, and more than a thousand aliases,
// whose numbers alone are grouped, in a library that was loaded before the host set its locales and
// in one loaded after. The C library's locale is made here: a bare machine has none but "C". It is
// not set by std::locale::global, in which glibc itself leaks.
TEST(HostLocale, LeavesTheCanonicalTextAlone) {
  std::string sql = "select 1234567.50, 0xFFFFFFFF, 2.5E-3";
  std::string canonical = "SELECT 1234567.5, 4294967295, 0.0025000000000000001";
  for (int i = 1; i <= 1001; ++i) {
    sql += ", t" + std::to_string(2000 + i);
    canonical += ", ____t" + (i < 1000 ? std::to_string(i) : "1.00" + std::to_string(i % 10));
  }
  const TemporaryFolder folder;
  const std::string bytes = folder.Write("bytes",
                                         "<code_set_name> ANSI_X3.4-1968\n<escape_char> /\n"
                                         "CHARMAP\n<U0000>..<U007F> /x00\nEND CHARMAP\n");
  const std::string numbers = folder.Write("numbers",
                                           "escape_char /\nLC_NUMERIC\ndecimal_point \",\"\n"
                                           "thousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n");
  const RunResult made = RunProgram(
      {"/usr/bin/env", "localedef", "-c", "-f", bytes, "-i", numbers, folder.Path("xx_XX")});
  const ScopedVariable locales("LOCPATH", folder.Path(""));
  const ScopedLocale scoped;
  const Plugin loaded_before(CopyOfThePlugin(folder, "before.so"));
  std::locale::global(std::locale(std::locale(), new Punctuation));
  EXPECT_NE(std::setlocale(LC_NUMERIC, "xx_XX"), nullptr) << made.errors;
  EXPECT_STREQ(std::localeconv()->decimal_point, ",");
  const Plugin loaded_after(CopyOfThePlugin(folder, "after.so"));
  EXPECT_EQ(Normalized(loaded_before, sql), canonical);
  EXPECT_EQ(Normalized(loaded_after, sql), canonical);
}

// The classic classes of bytes, but for one byte and for what 'I' is in lower case.
class OddCtype : public std::ctype<char> {
 public:
  OddCtype(char byte, mask classes, char lower_i)
      : std::ctype<char>(Table(static_cast<unsigned char>(byte), classes), true),
        lower_i_(lower_i) {}

 private:
  static const mask* Table(unsigned char byte, mask classes) {
    auto table = std::make_unique<mask[]>(table_size);
    std::copy_n(classic_table(), table_size, table.get());
    table[byte] = classes;
    return table.release();
  }
  using std::ctype<char>::do_tolower;
  char do_tolower(char c) const override {
    return c == 'I' ? lower_i_ : std::ctype<char>::do_tolower(c);
  }

  const char lower_i_;
};

// The patterns keep the classes of bytes that they were compiled under: those of loading. One byte
// that differs is enough.
TEST(LocaleOfLoading, DecidesWhatALetterASpaceAndALowerCaseAre) {
  using Ctype = std::ctype_base;
  struct Row {
    char byte;
    Ctype::mask classes;  // not `graph`: that contains the bit of a digit
    char lower_i;
    const char* sql;
    const char* under_it;
    const char* classic;
  };
  const TemporaryFolder folder;
  const Plugin classic(TARN_PLUGIN_PATH);
  for (const Row& row :
       {Row{'\xE9', Ctype::alpha | Ctype::lower | Ctype::print, 'i', "select caf\xE9s, \xE9t1",
            "SELECT caf\xE9s, \xE9t1", "SELECT caf \xE9 s, \xE9 ____t1"},
        Row{'\xA0', Ctype::space | Ctype::print, 'i', "select a from\xA0\xA0t where a\xA0=\xA0\x62",
            "SELECT a FROM t WHERE a = b", "SELECT a FROM \xA0\xA0 t WHERE a \xA0=\xA0 b"},
        Row{' ', Ctype::space | Ctype::print, '\xFD', "insert into a", "insert into a",
            "INSERT a"}}) {
    const std::string copy = CopyOfThePlugin(folder, std::to_string(row.lower_i + row.byte));
    auto scoped = std::make_optional<ScopedLocale>();
    std::locale::global(
        std::locale(std::locale(), new OddCtype(row.byte, row.classes, row.lower_i)));
    const Plugin odd(copy);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(Normalized(odd, row.sql), row.under_it);
      EXPECT_EQ(Normalized(classic, row.sql), row.classic);
      scoped.reset();
    }
  }
}

}  // namespace
}  // namespace tarn::test
