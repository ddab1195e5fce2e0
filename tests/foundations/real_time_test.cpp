// The waits of the program once for real, with the system's clock.
#include <windows.h>

#include <gtest/gtest.h>
#include <thread>

#include "foundations/clock.h"
#include "foundations/files.h"
#include "foundations/stop_signal.h"
#include "tests/support/file_lock.h"
#include "tests/support/temp_folder.h"

namespace kvx {
namespace {

// Upper limits leave room for a busy machine.
constexpr uint32_t slack_ms = 20000;
constexpr uint32_t clock_step_ms = 16;

class RealTime : public testing::Test {
 protected:
  void expect_elapsed(uint32_t milliseconds) const {
    const uint32_t elapsed = tick_count_ms() - start;
    EXPECT_GE(elapsed + clock_step_ms, milliseconds);
    EXPECT_LE(elapsed, milliseconds + slack_ms);
  }

  test::TempFolder folder;
  uint32_t error = 0;
  std::atomic<bool> cancel_requested{false};
  std::atomic<bool> stop_workers{false};
  StopSignal signal{cancel_requested, stop_workers};
  uint32_t start = tick_count_ms();
};

TEST_F(RealTime, AHeldFileMakesMoveGiveUpAfterSixSeconds) {
  test::write_text(folder / L"from", "x");
  const test::FileLock hold(folder / L"from");
  start = tick_count_ms();
  EXPECT_FALSE(move_file(folder / L"from", folder / L"to", error));
  expect_elapsed(6000);
  EXPECT_EQ(error, 32U);
}

TEST_F(RealTime, AReadOnlyTargetIsReplacedAfterOnePause) {
  test::write_text(folder / L"from", "new");
  test::write_text(folder / L"to", "old");
  ASSERT_TRUE(SetFileAttributesW((folder / L"to").c_str(), FILE_ATTRIBUTE_READONLY));
  // Makes the first try fail also where the attribute alone does not: Wine under a superuser.
  test::FileLock hold(folder / L"to", FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  const std::wstring target = folder / L"to";
  std::atomic<bool> ended{false};
  std::thread releaser([&] {
    // The first try has failed once the attribute is gone.
    while (!ended && (GetFileAttributesW(target.c_str()) & FILE_ATTRIBUTE_READONLY) != 0) sleep_ms(10);
    hold.release();
  });
  start = tick_count_ms();
  EXPECT_TRUE(move_file(folder / L"from", folder / L"to", error));
  ended = true;
  releaser.join();
  expect_elapsed(150);
  EXPECT_EQ(test::read_text(folder / L"to"), "new");
}

TEST_F(RealTime, AWaitLastsItsTime) {
  EXPECT_TRUE(signal.wait_or_stop(500));
  expect_elapsed(500);
}

TEST_F(RealTime, AWaitEndsSoonAfterAStop) {
  std::thread stopper([this] {
    sleep_ms(200);
    cancel_requested = true;
  });
  EXPECT_FALSE(signal.wait_or_stop(60000));
  stopper.join();
  expect_elapsed(200);
}

}  // namespace
}  // namespace kvx
