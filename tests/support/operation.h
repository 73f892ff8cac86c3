// An operation of the product on the recording platform, run in peace and with everything that can
// fail failing.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <new>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "support/allocations.h"
#include "support/recording_platform.h"

namespace tarn::test {

template <typename Outputs>
class Operation {
 public:
  // `before` is what the outputs hold before each run, `show` how they look.
  Operation(Outputs before, std::function<void(Outputs&)> call,
            std::function<std::string(const Outputs&)> show)
      : before_(std::move(before)), call_(std::move(call)), show_(std::move(show)) {
    // Of its own from now on, so that it does not count.
    constexpr std::size_t kMoreThanInPlace = 100;
    left_.reserve(kMoreThanInPlace);
  }

  // Runs it in peace. The platform's calls, with a line "-> OUTPUTS" wherever those changed.
  std::vector<std::string> Trace() {
    Outputs outputs = before_;
    Platform().recording = true;
    Platform().outputs = [&] { return show_(outputs); };
    Platform().StartAgain();
    call_(outputs);
    Platform().NoteOutputs();
    states_ = Platform().states;
    states_.insert(states_.begin(), show_(before_));
    states_.push_back(show_(outputs));
    Platform().outputs = nullptr;
    EXPECT_EQ(Platform().live_records, 0);
    return Platform().calls;
  }

  // Makes each call of the platform throw and then each allocation fail, and expects every time
  // that the exception comes out, that the outputs are as they were when it happened, and that
  // nothing else is left, be it memory, log records or the password. Only a failure that leaves the
  // outputs looking like `survived` may stay within.
  void FailEverywhere(const std::optional<std::string>& survived = {}) {
    Trace();
    Platform().recording = false;
    const std::size_t calls = states_.size() - 2;
    for (std::size_t n = 1; n <= calls; ++n) {
      SCOPED_TRACE("call " + std::to_string(n));
      ASSERT_TRUE(Fails(n, 0));
      EXPECT_EQ(left_, states_[n]);
    }
    ASSERT_FALSE(Fails(calls + 1, 0));
    for (long n = 1;; ++n) {
      SCOPED_TRACE("allocation " + std::to_string(n));
      const bool failed = Fails(0, n);
      if (!FailNthAllocation::Happened()) {
        ASSERT_GT(n, 1) << "nothing was allocated";
        break;
      }
      ASSERT_EQ(failed, left_ != survived) << "the failure was swallowed";
      if (failed) {
        EXPECT_THAT(left_, testing::AnyOf(states_.at(reached_), states_.at(reached_ + 1)));
      }
    }
  }

 private:
  // Runs it with one call or one allocation failing, from 1, neither if 0; whether that came out.
  bool Fails(std::size_t call, long allocation) {
    Platform().StartAgain();
    const long live_before = LiveAllocations();
    bool failed = true;
    {
      Outputs outputs = before_;
      Platform().call_count = 0;
      Platform().throw_at = static_cast<int>(call);
      const WatchFreedBlocks watch(kLongPassword);
      try {
        const FailNthAllocation failure(allocation);
        call_(outputs);
        failed = false;
      } catch (const PlatformError&) {
      } catch (const std::bad_alloc&) {
      } catch (const std::bad_cast&) {
        // A stream in which a literal is read makes a failed conversion of it.
      }
      EXPECT_EQ(watch.WithSecret(), 0);
      EXPECT_EQ(watch.Wiped(), Platform().plain_bytes == nullptr ? 0 : 1);
      reached_ = static_cast<std::size_t>(Platform().call_count);
      left_ = show_(outputs);
    }
    Platform().throw_at = 0;
    EXPECT_EQ(LiveAllocations(), live_before);
    EXPECT_EQ(Platform().live_records, 0);
    return failed;
  }

  Outputs before_;
  std::function<void(Outputs&)> call_;
  std::function<std::string(const Outputs&)> show_;
  // How the outputs look before the operation, before each call, and in the end.
  std::vector<std::string> states_;
  // After a run: how the outputs look, and the number of calls.
  std::string left_;
  std::size_t reached_ = 0;
};

}  // namespace tarn::test
