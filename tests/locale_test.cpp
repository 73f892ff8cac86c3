// The process's global C++ locale at load time says what a word and a space are. A program of its
// own, since the locale must be set before the plug-in is first loaded.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <locale>
#include <string>

#include "tarn_host/plugin.h"

namespace {

// Latin-1, as far as the test looks: 0xE9 is a letter and 0xA0 a space.
class LatinCtype : public std::ctype<char> {
 public:
  LatinCtype() : std::ctype<char>(Table()) {}

 private:
  static const mask* Table() {
    static const std::array<mask, table_size> table = [] {
      std::array<mask, table_size> classes{};
      std::copy_n(classic_table(), table_size, classes.begin());
      // Not `graph`: that mask contains the bit of a digit.
      classes[0xE9] = alpha | lower | print;
      classes[0xA0] = space | print;
      return classes;
    }();
    return table.data();
  }
};

TEST(GlobalLocale, DecidesWhatAWordIs) {
  const std::locale before = std::locale::global(std::locale(std::locale(), new LatinCtype));
  const tarn::host::Plugin plugin(TARN_PLUGIN_PATH);
  // The patterns keep the locale they were compiled under.
  std::locale::global(before);

  std::string sql =
      "select caf\xE9s from\xA0\xA0t where a\xA0=\xA0"
      "b and \xE9t1 = 2";
  plugin.Product().NormalizeSQL(sql);
  EXPECT_EQ(sql, "SELECT caf\xE9s FROM t WHERE a = b and \xE9t1 = 2");
}

}  // namespace
