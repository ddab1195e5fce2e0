#include "engine/download_pool.h"

#include <thread>

#include "tests/engine/download_test.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char missing[] = "a required file is missing on the update server (HTTP 404)";

std::string content_of(size_t size) { return std::string(size, 'x'); }

std::string path_of(size_t size) { return blob_url_path(content_of(size)); }

std::string headers_for(size_t size) {
  return status_line(200) + "Content-Length: " + std::to_string(size) + "\r\nConnection: close\r\n\r\n";
}

class DownloadPool : public DownloadTest {
 protected:
  // The error, or empty.
  std::string download(const std::vector<size_t>& sizes) {
    std::vector<BlobJob> jobs;
    for (const size_t size : sizes) jobs.push_back(job(content_of(size)));
    std::string error;
    const bool finished = download_all(context_, threads_, stop_workers_, jobs, error);
    EXPECT_EQ(finished, error.empty()) << error;
    return error;
  }

  // The blob's bytes come only after `gate`.
  void serve_behind(const Gate& gate, size_t size) {
    server_.script(path_of(size), {ScriptedResponse(headers_for(size)).wait_for(gate).then(content_of(size))});
  }

  [[nodiscard]] std::vector<std::string> asked() const {
    std::vector<std::string> targets;
    for (const RecordedRequest& request : server_.requests()) targets.push_back(request.target);
    return targets;
  }

  // True once a failed blob has stopped the others.
  [[nodiscard]] bool wait_for_stop() const {
    for (const uint64_t end = GetTickCount64() + 20000; GetTickCount64() < end; Sleep(1)) {
      if (stop_workers_) return true;
    }
    return false;
  }

  TestClock clock_;
};

TEST_F(DownloadPool, BringsEveryBlob) {
  const std::vector<size_t> sizes = {3, 50, 0, 7, 20, 1000000};
  for (const size_t size : sizes) server_.serve(path_of(size), content_of(size));
  ASSERT_EQ(download(sizes), "");
  for (const size_t size : sizes) EXPECT_EQ(read_text(blob(content_of(size))), content_of(size));
  EXPECT_EQ(ui_.progress_done, 1000080U);
  EXPECT_FALSE(stop_workers_);
}

TEST_F(DownloadPool, StoresWhatHasComeWhileItWaitsForMore) {
  constexpr uint64_t long_enough_to_gather_ms = 300;
  constexpr size_t pieces = 1000;
  constexpr size_t piece_bytes = 1000;
  const std::string content = content_of(pieces * piece_bytes);
  std::vector<Gate> gates(pieces);
  ScriptedResponse response(headers_for(content.size()));
  for (const Gate& gate : gates) response.then(content.substr(0, piece_bytes)).wait_for(gate);
  server_.script(path_of(content.size()), {response});
  std::jthread user([&] {
    const uint64_t start = GetTickCount64();
    size_t seen = 0;
    while (seen < pieces && GetTickCount64() - start < long_enough_to_gather_ms) {
      const uint64_t expected = (seen + 1) * piece_bytes;
      for (const uint64_t end = GetTickCount64() + 20000; ui_.progress_done < expected; Sleep(1)) {
        if (GetTickCount64() < end) continue;
        ADD_FAILURE() << "piece " << seen << " is not stored";
        break;
      }
      gates[seen++].open();
    }
    for (; seen < pieces; ++seen) gates[seen].open();
  });
  EXPECT_EQ(download({content.size()}), "");
}

TEST_F(DownloadPool, HasNothingToDoWithoutBlobs) {
  EXPECT_EQ(download({}), "");
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(DownloadPool, DownloadsTheThreeLargestFirstAndNoMoreAtOnce) {
  const Gate gate50;
  const Gate gate40;
  const Gate gate30;
  const Gate gate20;
  serve_behind(gate50, 50);
  serve_behind(gate40, 40);
  serve_behind(gate30, 30);
  serve_behind(gate20, 20);
  server_.serve(path_of(10), content_of(10));
  std::string error;
  std::thread downloading([&] { error = download({10, 40, 20, 50, 30}); });
  EXPECT_TRUE(gate50.wait_until_reached());
  EXPECT_TRUE(gate40.wait_until_reached());
  EXPECT_TRUE(gate30.wait_until_reached());
  EXPECT_THAT(asked(), UnorderedElementsAre("/" + path_of(50), "/" + path_of(40), "/" + path_of(30)));
  gate50.open();
  EXPECT_TRUE(gate20.wait_until_reached());
  EXPECT_EQ(server_.requests().size(), 4U);
  gate20.open();
  EXPECT_TRUE(server_.wait_for_requests(5));
  EXPECT_EQ(asked().back(), "/" + path_of(10));
  gate40.open();
  gate30.open();
  downloading.join();
  EXPECT_EQ(error, "");
}

TEST_F(DownloadPool, StopsTheOthersAtTheFirstFailureAndReportsItsText) {
  const Gate held;
  const Gate held_too;
  serve_behind(held, 50);
  serve_behind(held_too, 40);
  server_.serve(path_of(10), content_of(10));
  server_.script(path_of(30), {ScriptedResponse()
                                   .call([&] { EXPECT_TRUE(held.wait_until_reached()); })
                                   .call([&] { EXPECT_TRUE(held_too.wait_until_reached()); })
                                   .then(status_line(404) + "Content-Length: 0\r\nConnection: close\r\n\r\n")});
  std::string error;
  std::thread downloading([&] { error = download({50, 40, 30, 10}); });
  EXPECT_TRUE(wait_for_stop());
  held.open();
  held_too.open();
  downloading.join();
  EXPECT_EQ(error, missing);
  EXPECT_THAT(asked(), UnorderedElementsAre("/" + path_of(50), "/" + path_of(40), "/" + path_of(30)));
  EXPECT_FALSE(exists(blob(content_of(50))));
  EXPECT_TRUE(exists(part(content_of(50))));
}

TEST_F(DownloadPool, LeavesNoneBehindThatStillReceivesBytesWhenAnotherFails) {
  constexpr DWORD between_bytes_ms = 10;
  constexpr size_t before_failure = 20;  // long enough for the pool to begin gathering bytes
  constexpr size_t slow_bytes = 500;
  const Gate failure;
  ScriptedResponse slow(headers_for(slow_bytes));
  for (size_t i = 0; i < slow_bytes; ++i) {
    slow.then("x").call([] { Sleep(between_bytes_ms); });
    if (i == before_failure) slow.wait_for(failure);
  }
  server_.script(path_of(slow_bytes), {slow});
  server_.script(path_of(40), {ScriptedResponse()
                                   .call([&] {
                                     EXPECT_TRUE(failure.wait_until_reached());
                                     failure.open();
                                   })
                                   .then(status_line(404) + "Content-Length: 0\r\nConnection: close\r\n\r\n")});
  EXPECT_EQ(download({slow_bytes, 40}), missing);
  EXPECT_FALSE(threads_.has_left_behind());
}

TEST_F(DownloadPool, ReportsAFailureThatComesAfterAnothersCancelledText) {
  const Gate answer_404;
  server_.always(path_of(50), answer(500));
  server_.script(path_of(40), {ScriptedResponse()
                                   .wait_for(answer_404)
                                   .then(status_line(404) + "Content-Length: 0\r\nConnection: close\r\n\r\n")});
  clock_.on_sleep([&](uint32_t) {
    EXPECT_TRUE(answer_404.wait_until_reached());
    ui_.cancel_requested = true;
  });
  std::string error;
  std::thread downloading([&] { error = download({50, 40}); });
  EXPECT_TRUE(wait_for_stop());  // by the first, which was cancelled
  answer_404.open();
  downloading.join();
  EXPECT_EQ(error, missing);
}

TEST_F(DownloadPool, ReportsTheUsersCancel) {
  for (const size_t size : {50U, 40U, 30U, 20U}) server_.always(path_of(size), answer(500));
  clock_.on_sleep([&](uint32_t) { ui_.cancel_requested = true; });
  EXPECT_EQ(download({50, 40, 30, 20}), "cancelled");
}

TEST_F(DownloadPool, AsksForNothingAfterTheUsersCancel) {
  ui_.cancel_requested = true;
  EXPECT_EQ(download({50, 40}), "cancelled");
  EXPECT_THAT(server_.requests(), IsEmpty());
}

}  // namespace
}  // namespace kvx::test
