#include "engine/download_pool.h"

#include <algorithm>
#include <mutex>
#include <thread>
#include <utility>

namespace kvx {
namespace {

constexpr size_t most_threads = 3;

class DownloadPool {
 public:
  DownloadPool(const BlobDownloadContext& context, std::atomic<bool>& stop_workers, std::vector<BlobJob> jobs)
      : context_(context), stop_workers_(stop_workers), jobs_(std::move(jobs)) {}

  bool run(std::string& error) {
    // Largest first, so that the threads finish close together.
    std::sort(jobs_.begin(), jobs_.end(), [](const BlobJob& a, const BlobJob& b) { return a.size > b.size; });
    std::vector<std::thread> threads;
    for (size_t i = 0; i < std::min(jobs_.size(), most_threads); ++i) threads.emplace_back([this] { work(); });
    for (std::thread& thread : threads) thread.join();
    error = first_error_;
    if (error.empty() && context_.ui.cancel_requested) error = "cancelled";
    return error.empty();
  }

 private:
  void work() {
    while (!context_.stop.requested()) {
      const size_t index = next_job_.fetch_add(1);
      if (index >= jobs_.size()) return;
      std::string error;
      if (!download_blob(context_, jobs_[index], error)) on_failure(error);
    }
  }

  void on_failure(const std::string& error) {
    const std::lock_guard guard(lock_);
    if (first_error_.empty() && error != "cancelled") first_error_ = error;
    stop_workers_.exchange(true);
  }

  const BlobDownloadContext& context_;
  std::atomic<bool>& stop_workers_;
  std::vector<BlobJob> jobs_;
  std::atomic<size_t> next_job_{0};
  std::mutex lock_;  // guards first_error_
  std::string first_error_;
};

}  // namespace

bool download_all(const BlobDownloadContext& context, std::atomic<bool>& stop_workers, std::vector<BlobJob> jobs,
                  std::string& error) {
  return DownloadPool(context, stop_workers, std::move(jobs)).run(error);
}

}  // namespace kvx
