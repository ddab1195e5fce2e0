#include "launcher/instance_lock.h"

#include <gtest/gtest.h>
#include <optional>
#include <vector>

#include "foundations/paths.h"
#include "tests/support/file_lock.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_clock.h"

namespace kvx {
namespace {

using Result = InstanceLock::Result;

class InstanceLockTest : public testing::Test {
 protected:
  bool is_held() const {
    const FileHandle file(CreateFileW(long_path(path_).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0,
                                      nullptr));
    return !file && GetLastError() == ERROR_SHARING_VIOLATION;
  }

  test::TestClock clock_;
  test::TempFolder folder_;
  const std::wstring path_ = folder_ / L"launcher.lock";
  const std::string own_id_ = std::to_string(GetCurrentProcessId()) + "\n";
};

TEST_F(InstanceLockTest, HoldsTheFileForItselfUntilReleasedAndLeavesItBehind) {
  InstanceLock lock;
  EXPECT_EQ(lock.acquire(path_), Result::acquired);
  EXPECT_TRUE(is_held());
  lock.release();
  EXPECT_FALSE(is_held());
  EXPECT_EQ(test::read_text(path_), own_id_);
  EXPECT_TRUE(clock_.sleeps().empty());
}

TEST_F(InstanceLockTest, EndsWithItsOwner) {
  {
    InstanceLock lock;
    EXPECT_EQ(lock.acquire(path_), Result::acquired);
  }
  EXPECT_FALSE(is_held());
  EXPECT_TRUE(test::exists(path_));
}

TEST_F(InstanceLockTest, TakesOverAFileThatACrashLeftBehind) {
  for (const char* left : {"", "4\n", "12345678901234567890 and much more text than a process id\n"}) {
    test::write_text(path_, left);
    InstanceLock lock;
    EXPECT_EQ(lock.acquire(path_), Result::acquired);
    lock.release();
    EXPECT_EQ(test::read_text(path_), own_id_);
  }
}

TEST_F(InstanceLockTest, GivesUpAfterTenAttemptsWhileAnotherHoldsIt) {
  InstanceLock first;
  ASSERT_EQ(first.acquire(path_), Result::acquired);
  InstanceLock second;
  EXPECT_EQ(second.acquire(path_), Result::held_by_another);
  EXPECT_EQ(clock_.sleeps(), std::vector<uint32_t>(10, 200));
  first.release();
  EXPECT_EQ(test::read_text(path_), own_id_);
}

TEST_F(InstanceLockTest, TakesALockThatIsReleasedInTime) {
  test::write_text(path_, "1\n");
  test::FileLock other(path_);
  clock_.on_sleep([&](uint32_t slept_ms) {
    if (slept_ms == 1600) other.release();  // during the ninth pause: the tenth and last attempt gets it
  });
  InstanceLock lock;
  EXPECT_EQ(lock.acquire(path_), Result::acquired);
  EXPECT_EQ(clock_.sleeps(), std::vector<uint32_t>(9, 200));
}

TEST_F(InstanceLockTest, FailsAtOnceWhenTheFileCannotBeMade) {
  test::write_text(path_ + L"\\inside", "a folder has its name");
  InstanceLock lock;
  EXPECT_EQ(lock.acquire(path_), Result::cannot_be_created);
  EXPECT_EQ(lock.acquire(folder_ / L"no such folder\\launcher.lock"), Result::cannot_be_created);
  EXPECT_TRUE(clock_.sleeps().empty());
}

}  // namespace
}  // namespace kvx
