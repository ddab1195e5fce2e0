// The pauses of a download in real time.
#include <mutex>
#include <thread>

#include "tests/engine/download_test.h"

namespace kvx::test {
namespace {

using PausedBlobDownload = DownloadTest;

TEST_F(PausedBlobDownload, EndsSoonAfterACancel) {
  const std::string content = "content";
  server_.always(blob_url_path(content), answer(500));
  std::atomic<uint64_t> cancelled_at{0};
  std::thread user([&] {
    EXPECT_TRUE(server_.wait_for_requests(2));
    cancelled_at = GetTickCount64();
    ui_.cancel_requested = true;
  });
  EXPECT_EQ(download(content), "cancelled");
  user.join();
  EXPECT_LT(GetTickCount64() - cancelled_at, 3000U);  // the second pause alone is 4 s
  EXPECT_EQ(server_.requests().size(), 2U);
}

TEST_F(PausedBlobDownload, GoesOnAfterASecondWhenBytesHadArrived) {
  constexpr uint64_t clock_step_ms = 16;
  const std::string content = "content";
  const std::string path = blob_url_path(content);
  server_.serve(path, content);
  server_.script(path, {answer_without_length(200, content.substr(0, 3))});
  std::mutex lock;
  std::vector<uint64_t> asked_at;
  server_.on_request(path, [&](const RecordedRequest&) {
    const std::scoped_lock guard(lock);
    asked_at.push_back(GetTickCount64());
  });
  ASSERT_EQ(download(content), "");
  ASSERT_EQ(asked_at.size(), 2U);
  EXPECT_GE(asked_at[1] - asked_at[0], 1000 - clock_step_ms);
  EXPECT_LT(asked_at[1] - asked_at[0], 10000U);
}

}  // namespace
}  // namespace kvx::test
