#include "ui/worker_thread.h"

#include <cstdlib>
#include <exception>
#include <gtest/gtest.h>

namespace kvx {
namespace {

TEST(WorkerThread, RunsItsBodyOnAnotherThreadUntilItIsJoined) {
  DWORD body_thread = 0;
  WorkerThread thread;
  EXPECT_FALSE(thread.joinable());
  thread.start([&] { body_thread = GetCurrentThreadId(); });
  EXPECT_TRUE(thread.joinable());
  thread.join();
  EXPECT_FALSE(thread.joinable());
  EXPECT_NE(body_thread, 0U);
  EXPECT_NE(body_thread, GetCurrentThreadId());
}

TEST(WorkerThread, MustBeJoinedBeforeItIsDestroyed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr int terminated = 42;
  EXPECT_EXIT(
      {
        std::set_terminate([] { std::_Exit(terminated); });  // without the system's report of a crash
        WorkerThread thread;
        thread.start([] {});
      },
      testing::ExitedWithCode(terminated), "");
}

}  // namespace
}  // namespace kvx
