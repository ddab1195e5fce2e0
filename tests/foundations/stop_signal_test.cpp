#include "foundations/stop_signal.h"

#include <gmock/gmock.h>

#include "tests/support/test_clock.h"

namespace kvx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Flags {
  std::atomic<bool> cancel_requested{false};
  std::atomic<bool> stop_workers{false};
  StopSignal signal{cancel_requested, stop_workers};
};

TEST(StopSignal, IsRequestedByEitherFlag) {
  Flags flags;
  EXPECT_FALSE(flags.signal.requested());
  flags.cancel_requested = true;
  EXPECT_TRUE(flags.signal.requested());
  flags.cancel_requested = false;
  flags.stop_workers = true;
  EXPECT_TRUE(flags.signal.requested());
}

TEST(WaitOrStop, WaitsInStepsUntilTheTimeIsOver) {
  const Flags flags;
  test::TestClock clock;
  EXPECT_TRUE(flags.signal.wait_or_stop(250));
  EXPECT_THAT(clock.sleeps(), ElementsAre(100U, 100U, 100U));
}

TEST(WaitOrStop, WaitsAcrossTheWrapOfTheTickCount) {
  const Flags flags;
  test::TestClock clock;
  clock.set_tick_count_ms(0xFFFFFF80);
  EXPECT_TRUE(flags.signal.wait_or_stop(300));
  EXPECT_THAT(clock.sleeps(), ElementsAre(100U, 100U, 100U));
}

TEST(WaitOrStop, EndsAtTheNextStepAfterAStop) {
  for (std::atomic<bool> Flags::*flag : {&Flags::cancel_requested, &Flags::stop_workers}) {
    Flags flags;
    test::TestClock clock;
    clock.on_sleep([&](uint32_t slept_ms) { flags.*flag = slept_ms == 200; });
    EXPECT_FALSE(flags.signal.wait_or_stop(5000));
    EXPECT_THAT(clock.sleeps(), ElementsAre(100U, 100U, 100U));
  }
}

TEST(WaitOrStop, SeesAStopDuringTheLastStep) {
  Flags flags;
  test::TestClock clock;
  clock.on_sleep([&](uint32_t) { flags.stop_workers = true; });
  EXPECT_FALSE(flags.signal.wait_or_stop(100));
}

TEST(WaitOrStop, DoesNotSleepWhenThereIsNothingToWaitFor) {
  Flags flags;
  test::TestClock clock;
  EXPECT_TRUE(flags.signal.wait_or_stop(0));
  flags.cancel_requested = true;
  EXPECT_FALSE(flags.signal.wait_or_stop(5000));
  EXPECT_FALSE(flags.signal.wait_or_stop(0));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

}  // namespace
}  // namespace kvx
