#include "engine/download_pool.h"

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <utility>

namespace kvx {
namespace {

constexpr size_t most_threads = 3;

// Shared by its threads, of which any may be the last to use it.
class DownloadPool {
 public:
  DownloadPool(const BlobDownloadContext& context, const HttpSession& session, std::atomic<bool>& stop_workers,
               std::vector<BlobJob> jobs)
      : context_(context), session_(session), stop_workers_(stop_workers), jobs_(std::move(jobs)) {
    // Largest first, so that the threads finish close together.
    std::sort(jobs_.begin(), jobs_.end(), [](const BlobJob& a, const BlobJob& b) { return a.size > b.size; });
  }

  [[nodiscard]] size_t thread_count() const { return std::min(jobs_.size(), most_threads); }

  // The body of each thread.
  void work() {
    ReceiveBuffer& buffer = buffers_[next_buffer_.fetch_add(1)];
    while (!context_.stop.requested()) {
      const size_t index = next_job_.fetch_add(1);
      if (index >= jobs_.size()) return;
      std::string error;
      if (!download_blob(context_, session_, jobs_[index], buffer, error)) on_failure(error);
    }
  }

  // Stores what has come while a thread waits for more.
  void pass_on_waiting() {
    for (ReceiveBuffer& buffer : buffers_) buffer.pass_on_waiting();
  }

  [[nodiscard]] bool result(std::string& error) {
    const std::scoped_lock guard(lock_);
    error = first_error_;
    if (error.empty() && context_.ui.cancel_requested) error = "cancelled";
    return error.empty();
  }

 private:
  void on_failure(const std::string& error) {
    const std::scoped_lock guard(lock_);
    if (first_error_.empty() && error != "cancelled") first_error_ = error;
    stop_workers_.exchange(true);
  }

  const BlobDownloadContext context_;
  const HttpSession& session_;
  std::atomic<bool>& stop_workers_;
  std::vector<BlobJob> jobs_;
  std::atomic<size_t> next_job_{0};
  std::array<ReceiveBuffer, most_threads> buffers_;  // one for each thread
  std::atomic<size_t> next_buffer_{0};
  std::mutex lock_;  // guards first_error_
  std::string first_error_;
};

struct SingleDownload {
  SingleDownload(const BlobDownloadContext& its_context, BlobJob its_job)
      : context(its_context), job(std::move(its_job)) {}

  BlobDownloadContext context;
  BlobJob job;
  ReceiveBuffer buffer;
  bool finished = false;
  std::string error;
};

}  // namespace

bool download_all(const BlobDownloadContext& context, TransferThreads& threads, std::atomic<bool>& stop_workers,
                  std::vector<BlobJob> jobs, std::string& error) {
  const auto pool = std::make_shared<DownloadPool>(context, threads.session(), stop_workers, std::move(jobs));
  // Threads left behind count as stopped.
  if (pool->thread_count() > 0) {
    static_cast<void>(threads.run(
        pool->thread_count(), [pool] { pool->work(); }, [pool] { pool->pass_on_waiting(); }));
  }
  return pool->result(error);
}

bool download_one(const BlobDownloadContext& context, TransferThreads& threads, const BlobJob& job,
                  std::string& error) {
  const auto download = std::make_shared<SingleDownload>(context, job);
  const auto body = [download, &session = threads.session()] {
    download->finished = download_blob(download->context, session, download->job, download->buffer, download->error);
  };
  if (!threads.run(1, body, [download] { download->buffer.pass_on_waiting(); })) {
    error = "cancelled";
    return false;
  }
  error = download->error;
  return download->finished;
}

}  // namespace kvx
