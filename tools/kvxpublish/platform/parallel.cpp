#include "tools/kvxpublish/platform/parallel.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace kvx::publish {

bool for_each_index(size_t count, const std::function<IndexWork()>& make_work) {
  std::atomic<size_t> next{0};
  std::atomic<bool> stopped{false};
  const auto run = [&] {
    const IndexWork work = make_work();
    for (size_t index = next++; index < count && !stopped.load(); index = next++) {
      if (!work(index)) stopped.store(true);
    }
  };
  const size_t cores = std::max(1U, std::thread::hardware_concurrency());
  {
    std::vector<std::jthread> threads;  // joined at the end of the block
    while (threads.size() < std::min(cores, count)) threads.emplace_back(run);
  }
  return !stopped.load();
}

}  // namespace kvx::publish
