// No trace of the plain password is left in what the plug-in releases. Worth the most in an
// optimised build, where stores into dying objects are the first to go.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include "dbconfig/wiped_string.h"
#include "support/allocations.h"
#include "support/recording_platform.h"

namespace tarn::test {
namespace {

using dbconfig::WipedString;

constexpr const char* kShortPassword = "s3cret-passwd";

// Bytes of an object that is gone. Inlined, without a call between the end of the object and here.
__attribute__((always_inline)) inline std::string DeadBytes(const char* bytes, std::size_t size) {
  std::array<char, 32> seen{};
  // To the optimiser they are bytes of unknown origin.
  asm volatile("" : "+r"(bytes) : : "memory");
  const volatile char* const source = bytes;
  for (std::size_t i = 0; i < size && i < seen.size(); ++i) seen[i] = source[i];
  return {seen.data(), std::min(size, seen.size())};
}

std::string Filler(std::size_t size) { return std::string(size, '\xCC'); }

// A short text lies within the object, whose bytes stay to be seen when it is gone.
TEST(WipedString, OverwritesAShortTextInPlace) {
  alignas(WipedString) std::array<char, sizeof(WipedString)> storage{};
  auto* const holder = std::construct_at(reinterpret_cast<WipedString*>(storage.data()));
  holder->Text() = kShortPassword;
  const std::size_t offset = static_cast<std::size_t>(holder->Text().data() - storage.data());
  ASSERT_LT(offset, storage.size());
  std::destroy_at(holder);
  constexpr std::size_t kRoom = 15;
  EXPECT_EQ(DeadBytes(storage.data() + offset, kRoom), Filler(kRoom));
}

TEST(WipedString, OverwritesALongTextBeforeItIsFreed) {
  const WatchFreedBlocks watch(kLongPassword);
  { WipedString().Text() = kLongPassword; }
  EXPECT_EQ(watch.WithSecret(), 0);
  EXPECT_EQ(watch.Wiped(), 1);
}

// That the watch can see an unwiped password.
TEST(WatchFreedBlocks, SeesAnUnwipedText) {
  const WatchFreedBlocks watch(kLongPassword);
  { const auto plain = std::make_unique<std::string>(kLongPassword); }
  EXPECT_EQ(watch.WithSecret(), 1);
  EXPECT_EQ(watch.Wiped(), 0);
}

TEST(GetDBUserAndPassword, FreesNoLongPassword) {
  ResetPlatform().recording = false;
  Platform().preferred = {kLongPassword, 0};
  std::string user;
  std::string password;
  const WatchFreedBlocks watch(kLongPassword);
  Product().GetDBUserAndPassword(user, password, "db01");
  EXPECT_EQ(watch.WithSecret(), 0);
  EXPECT_EQ(watch.Wiped(), 1);
  EXPECT_EQ(password, kLongPassword);
}

// A short one lies in the operation's stack frame. It is looked at right after the return, before
// any other call can use that piece of stack again.
TEST(GetDBUserAndPassword, LeavesNoShortPasswordOnTheStack) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own calls use that piece of stack";
#endif
  ResetPlatform().recording = false;
  Platform().preferred = {kShortPassword, 0};
  const std::size_t length = std::strlen(kShortPassword);
  const std::string db_name = "db01";
  std::string user;
  std::string password;
  const char* const* const plain_bytes = &Platform().plain_bytes;
  Product().GetDBUserAndPassword(user, password, db_name);
  EXPECT_EQ(DeadBytes(*plain_bytes, length), Filler(length));
  EXPECT_EQ(password, kShortPassword);
}

}  // namespace
}  // namespace tarn::test
