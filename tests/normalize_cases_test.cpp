// The canonical text as a host sees it, through the loaded plug-in.
#include <gtest/gtest.h>

#include <string>

#include "tarn_host/plugin.h"

namespace {

TEST(NormalizeSQL, WorkedExample) {
  const tarn::host::Plugin plugin(TARN_PLUGIN_PATH);
  std::string sql =
      "select t3.a, 1.50 from tab t3 where (t3.id = 0x1F and t3.b >= 2.5E3)";
  plugin.Product().NormalizeSQL(sql);
  EXPECT_EQ(sql, "SELECT a, 1.5 FROM tab ____t1 WHERE id = 31 and b >= 2500");
}

}  // namespace
