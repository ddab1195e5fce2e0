#include "net/transfer_threads.h"

#include <process.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace kvx {
namespace {

constexpr DWORD poll_ms = 50;
constexpr int polls_before_leaving = 20;  // about a second

bool has_ended(const KernelHandle& thread) { return WaitForSingleObject(thread.get(), 0) == WAIT_OBJECT_0; }

size_t count_running(const std::vector<KernelHandle>& threads) {
  return threads.size() - static_cast<size_t>(std::count_if(threads.begin(), threads.end(), has_ended));
}

bool wait_for_all(const std::vector<KernelHandle>& threads, DWORD milliseconds) {
  std::vector<HANDLE> handles(threads.size());
  std::transform(threads.begin(), threads.end(), handles.begin(),
                 [](const KernelHandle& thread) { return thread.get(); });
  const auto count = static_cast<DWORD>(handles.size());
  return WaitForMultipleObjects(count, handles.data(), TRUE, milliseconds) < WAIT_OBJECT_0 + count;
}

}  // namespace

TransferThreads::~TransferThreads() {
  for (const KernelHandle& thread : threads_left_) WaitForSingleObject(thread.get(), INFINITE);
}

bool TransferThreads::run(size_t count, const std::function<void()>& body, const std::function<void()>& while_waiting) {
  if (stop_.requested()) return false;
  auto shared_body = std::make_unique<Body>(body);
  std::vector<KernelHandle> threads = start(count, *shared_body);
  if (threads.empty()) {
    body();
    return true;
  }
  if (wait_or_leave(threads, while_waiting)) return true;
  bodies_left_.push_back(std::move(shared_body));
  std::move(threads.begin(), threads.end(), std::back_inserter(threads_left_));
  return false;
}

bool TransferThreads::has_left_behind() const { return count_running(threads_left_) > 0; }

unsigned __stdcall TransferThreads::run_body(void* body) {
  (*static_cast<const Body*>(body))();
  return 0;
}

std::vector<KernelHandle> TransferThreads::start(size_t count, Body& body) {
  std::vector<KernelHandle> threads;
  while (threads.size() < count) {
    const uintptr_t started = _beginthreadex(nullptr, 0, run_body, &body, 0, nullptr);
    if (started == 0) break;
    threads.emplace_back(reinterpret_cast<HANDLE>(started));
  }
  return threads;
}

// Threads are left only when each of those still running is inside a leavable call. Counting is enough to know that:
// the session serves no others, and whoever enters or ends such a call meanwhile looks for the stop next. A thread
// outside, which may be writing a chunk, is waited for.
bool TransferThreads::wait_or_leave(const std::vector<KernelHandle>& threads,
                                    const std::function<void()>& while_waiting) const {
  int polls_since_stop = 0;
  while (!wait_for_all(threads, poll_ms)) {
    if (!stop_.requested()) {
      while_waiting();
      continue;
    }
    ++polls_since_stop;
    const size_t running = count_running(threads);  // none when the last has just ended
    if (polls_since_stop >= polls_before_leaving && running > 0 && session_.leavable_calls() >= running) return false;
  }
  return true;
}

}  // namespace kvx
