// Difficult hosts: they call from many threads while copies of the library are loaded and unloaded,
// or set a global locale of their own.
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
#include <typeinfo>
#include <vector>

#include "platform/c_value.h"
#include "plugin/plugin.h"
#include "support/surroundings.h"

namespace tarn::test {
namespace {

using host::IsLoaded;
using host::Plugin;

// Copies the library's file to a new name, so that the dynamic loader loads it as another library.
std::string CopyOfThePlugin(const TemporaryFolder& folder, const std::string& name) {
  std::filesystem::copy_file(TARN_PLUGIN_PATH, folder.Path(name));
  return folder.Path(name);
}

// The canonical text, or "bad cast". The exception is caught here, since it must not outlive the
// library that threw it.
std::string Normalized(const Plugin& plugin, std::string sql) {
  try {
    plugin.Product().NormalizeSQL(sql);
  } catch (const std::bad_cast&) {
    return "bad cast";
  }
  return sql;
}

// Calls all nine operations and returns their answers in one text.
std::string AnswersOfAll(impl_dao::CProductInterface& product) {
  product.LogError("error");
  product.LogWarning("warning");
  product.LogDebug("debug");
  std::string answers = std::to_string(product.MapErrorCode(-1));
  for (const std::string name : {"db", "ecb"}) {
    std::string type, user, password, address;
    bool all = product.GetDBType(type, name);
    all = product.GetDBUserAndPassword(user, password, name) && all;
    all = product.GetDBConnectAddress(address, name) && all;
    answers += (all ? "|" : "|false ") + type + "|" + user + ":" + password + "|" + address;
  }
  std::map<std::string, refl::CValue> properties;
  answers += product.GetDBConnectProperties(properties) ? "|" : "|false ";
  answers += properties["SSLMODE"].ToString() + properties["defaultDBName"].ToString() + "|";
  std::string sql = "select t7.a from tab t7, tab2 t3 where (t7.b = 1.50 and c=0xff)";
  product.NormalizeSQL(sql);
  return answers + sql;
}

TEST(Threads, MayCallWhileCopiesAreLoadedAndUnloaded) {
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

  // The dynamic loader holds a lock of its own, which ThreadSanitizer does not see. Without this
  // one it would report a race if two threads load images to one address, one after the other.
  std::mutex loader;
  std::atomic<int> wrong{0};
  std::vector<std::jthread> threads;
  for (int caller = 0; caller < 8; ++caller) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) wrong += AnswersOfAll(plugin.Product()) != expected;
    });
  }
  for (const char* name : {"1.so", "2.so"}) {
    threads.emplace_back([&, copy = CopyOfThePlugin(folder, name)] {
      for (int load = 0; load < 15; ++load) {
        std::unique_lock lock(loader);
        std::optional<Plugin> second(copy);
        lock.unlock();
        wrong += &second->Product() == &plugin.Product();
        wrong += AnswersOfAll(second->Product()) != expected;
        lock.lock();
        second.reset();
        wrong += IsLoaded(copy);
      }
    });
  }
  threads.clear();
  EXPECT_EQ(AnswersOfAll(plugin.Product()), expected);
  EXPECT_EQ(wrong, 0);
}

// Restores the process's locales, also those of the C library.
class Locale : public testing::Test {
 protected:
  void TearDown() override { std::locale::global(std::locale::classic()); }

  const TemporaryFolder folder_;
};

// The classic locale's classes, except for one byte and for the lower case of 'I'. If it `flips`,
// it sets the classic locale as soon as it is asked for a lower case.
class OddCtype : public std::ctype<char> {
 public:
  OddCtype(char byte, mask classes, char lower_i, bool flips = false)
      : std::ctype<char>(table_), lower_i_(lower_i), flips_(flips) {
    std::copy_n(classic_table(), table_size, table_);
    table_[static_cast<unsigned char>(byte)] = classes;
  }

 protected:
  using std::ctype<char>::do_tolower;
  char do_tolower(char c) const override {
    if (flips_) std::locale::global(std::locale::classic());
    return c == 'I' ? lower_i_ : std::ctype<char>::do_tolower(c);
  }

 private:
  mask table_[table_size];
  const char lower_i_;
  const bool flips_;
};

// Literals do not depend on the locale of loading or on a later one; one decimal has 17 digits, so
// that the scanner's general way prints it. The numbers of aliases follow the locale of the call.
TEST_F(Locale, GroupsTheNumbersOfAliasesAlone) {
  const std::string sql =
      "select 1000.0, 1234567.50, 0xFFFFFFFF, 2.5E-3, 1234567890123456.5, 1.0e-400, 1.0e16, "
      "t9 t8 t7 t6 t5 t4 t3 t2 t1 t0";
  const std::string canonical =
      "SELECT 1000, 1234567.5, 4294967295, 0.0025000000000000001, 1234567890123456.5, 0, "
      "10000000000000000, ____t1 ____t2 ____t3 ____t4 ____t5 ____t6 ____t7 ____t8 ____t9 ____t1";
  // A locale of the C library whose numbers have a decimal comma. The test compiles it, since a
  // bare machine has only "C". It is not set by std::locale::global, since glibc leaks memory
  // there.
  const ScopedVariable locales("LOCPATH", folder_.Path(""));
  const std::string bytes =
      "<code_set_name> ANSI_X3.4-1968\n<escape_char> /\n"
      "CHARMAP\n<U0000>..<U007F> /x00\nEND CHARMAP\n";
  const std::string numbers =
      "escape_char /\nLC_NUMERIC\ndecimal_point \",\"\n"
      "thousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n";
  RunProgram({"localedef", "-c", "-f", folder_.Write("bytes", bytes), "-i",
              folder_.Write("numbers", numbers), folder_.Path("xx_XX")});
  const auto set_comma = [] {
    ASSERT_NE(std::setlocale(LC_NUMERIC, "xx_XX"), nullptr);
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  };
  // Under this locale the patterns take the byte 0xE9 for a letter.
  const std::locale letters(
      std::locale(), new OddCtype('\xE9', std::ctype_base::alpha | std::ctype_base::print, 'i'));
  const std::locale punctuation(std::locale(), new Punctuation("\1"));
  const std::locale both(letters, new Punctuation("\1"));
  std::vector<std::unique_ptr<Plugin>> plugins;
  const auto load_under = [&](const std::locale& locale) {
    std::locale::global(locale);
    const std::string name = std::to_string(plugins.size());
    plugins.push_back(std::make_unique<Plugin>(CopyOfThePlugin(folder_, name)));
  };
  load_under(std::locale::classic());
  load_under(letters);
  set_comma();
  for (const std::locale& locale : {letters, punctuation, both}) load_under(locale);
  for (const std::locale& later : {std::locale::classic(), punctuation, both}) {
    std::locale::global(later);
    set_comma();
    for (const auto& plugin : plugins) {
      EXPECT_EQ(Normalized(*plugin, sql),
                canonical + (later == std::locale::classic() ? "0" : ".0"));
      EXPECT_EQ(Normalized(*plugin, "x = 1.0e999"), "bad cast");
    }
  }
}

// The patterns keep the locale of loading, in which they were compiled. They are used if a single
// byte differs.
TEST_F(Locale, OfLoadingDecidesLettersSpacesAndLowerCase) {
  using Ctype = std::ctype_base;
  struct Row {
    char byte;
    Ctype::mask classes;  // not `graph`: that contains the bit of a digit
    char lower_i;
    const char* sql;
    const char* under_it;
    const char* classic;
  };
  const Plugin classic(TARN_PLUGIN_PATH);
  for (const Row& row :
       {Row{'\xE9', Ctype::alpha | Ctype::lower | Ctype::print, 'i', "select caf\xE9s, \xE9t1",
            "SELECT caf\xE9s, \xE9t1", "SELECT caf \xE9 s, \xE9 ____t1"},
        Row{'\xA0', Ctype::space | Ctype::print, 'i', "select a from\xA0\xA0t where a\xA0=\xA0\x62",
            "SELECT a FROM t WHERE a = b", "SELECT a FROM \xA0\xA0 t WHERE a \xA0=\xA0 b"},
        Row{' ', Ctype::space | Ctype::print, '\xFD', "insert into a", "insert into a", "INSERT a"},
        // The patterns then take a literal that is no number in the classic locale.
        Row{'\xB2', Ctype::digit, 'i', "x = 1.5\xB2", "bad cast", "x = 1.5 \xB2"}}) {
    const std::string copy = CopyOfThePlugin(folder_, std::to_string(row.lower_i + row.byte));
    std::locale::global(
        std::locale(std::locale(), new OddCtype(row.byte, row.classes, row.lower_i)));
    const Plugin odd(copy);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(Normalized(odd, row.sql), row.under_it);
      EXPECT_EQ(Normalized(classic, row.sql), row.classic);
      std::locale::global(std::locale::classic());
    }
  }
}

// Another thread may set the locale while the patterns are compiled. Here the first lower case that
// a pattern asks for sets it.
TEST_F(Locale, OfLoadingIsOneForAllPatterns) {
  std::locale::global(
      std::locale(std::locale(), new OddCtype('\xE9', std::ctype_base::alpha, 'i', true)));
  const Plugin plugin(CopyOfThePlugin(folder_, "flipped.so"));
  EXPECT_EQ(std::locale(), std::locale::classic());
  EXPECT_EQ(Normalized(plugin, "select (\xE9=1), caf\xE9s, \xE9t1 "),
            "SELECT \xE9 = 1, caf\xE9s, \xE9t1");
}

}  // namespace
}  // namespace tarn::test
