// What takes real time: these tests run with the system's clock.
#include <windows.h>

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "launcher/instance_lock.h"
#include "tests/launcher/updater_fixture.h"
#include "tests/support/test_process.h"
#include "tests/support/window_driver.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

TEST(InstanceLockRealTime, IsGivenUpAfterAboutTwoSeconds) {
  const test::TempFolder folder;
  InstanceLock first;
  ASSERT_EQ(first.acquire(folder / L"launcher.lock"), InstanceLock::Result::acquired);
  const ULONGLONG start = GetTickCount64();
  InstanceLock second;
  EXPECT_EQ(second.acquire(folder / L"launcher.lock"), InstanceLock::Result::held_by_another);
  const ULONGLONG taken_ms = GetTickCount64() - start;
  EXPECT_GE(taken_ms, 1800U);
  EXPECT_LE(taken_ms, 20000U);
}

using UpdaterRealTime = test::UpdaterFixture;

TEST_F(UpdaterRealTime, WaitsForThePreviousProcessBeforeItTouchesTheFolder) {
  const test::TempFolder elsewhere;
  test::copy_test_program(elsewhere / L"previous.exe");
  test::WaitingProgram previous(elsewhere / L"previous.exe");
  options.wait_pid = previous.id();
  std::atomic<bool> layout_found{false};
  environment.find_layout = [&, find = environment.find_layout](InstallLayout& out) {
    layout_found = true;
    return find(out);
  };
  ui.answer(button_ok);
  std::atomic<bool> ended{false};
  RunOutcome outcome = RunOutcome::success;
  std::thread worker([&] {
    outcome = run();
    ended = true;
  });
  EXPECT_TRUE(test::wait_until([&] { return layout_found.load(); }));
  // An updater that does not wait gets this far within milliseconds.
  EXPECT_FALSE(test::wait_until([&] { return ended || test::exists(staged(L"")); }, 1000));
  previous.end();
  worker.join();
  EXPECT_EQ(outcome, RunOutcome::no_update_information);
}

}  // namespace
}  // namespace kvx
