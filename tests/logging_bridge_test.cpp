// The host's messages on their way into the product log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/recording_platform.h"
#include "support/table.h"

namespace tarn::test {
namespace {

using impl_dao::CProductInterface;
using testing::ElementsAre;

struct Operation : NamedRow {
  void (CProductInterface::*log)(const char*);
  // The record around the message.
  std::string begin;
  std::string end;
};

class LoggingBridge : public testing::TestWithParam<Operation> {
 protected:
  void Log(const char* message) { (Product().*GetParam().log)(message); }

  LoggingBridge() { ResetPlatform(); }
};

TEST_P(LoggingBridge, PassesTheVeryMessageOn) {
  // The plug-in's own prefix is no business of the bridge.
  for (const std::string message : {"text", "", "[tarn_interface_for_vesta] text", "%s\n\xFF"}) {
    Platform().calls.clear();
    Log(message.c_str());
    EXPECT_THAT(Platform().calls, ElementsAre(GetParam().begin + message + GetParam().end));
    EXPECT_EQ(static_cast<const void*>(Platform().last_message), message.c_str());
  }
  Platform().calls.clear();
  Log(nullptr);
  EXPECT_THAT(Platform().calls, ElementsAre(GetParam().begin + "(null)" + GetParam().end));
}

TEST_P(LoggingBridge, LetsAnExceptionPass) {
  Platform().throw_at = 1;
  EXPECT_THROW(Log("text"), PlatformError);
}

const Operation kOperations[] = {
    {{"Error"},
     &CProductInterface::LogError,
     "Error(666667, ",
     ", getproductinterface.cpp:LogError:213)"},
    {{"Warning"},
     &CProductInterface::LogWarning,
     "Warn(",
     ", getproductinterface.cpp:LogWarning:218)"},
    {{"Debug"}, &CProductInterface::LogDebug, "Debug(", ", getproductinterface.cpp:LogDebug:222)"},
};
INSTANTIATE_TEST_SUITE_P(Operations, LoggingBridge, testing::ValuesIn(kOperations),
                         RowName<Operation>);

}  // namespace
}  // namespace tarn::test
