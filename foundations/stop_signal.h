// Who may ask a long operation to stop: the user, or another thread of the same operation that has failed. It refers to
// flags that live elsewhere and must outlive it. Any thread.
#pragma once

#include <atomic>
#include <cstdint>

namespace kvx {

class StopSignal {
 public:
  StopSignal(const std::atomic<bool>& cancel_requested, const std::atomic<bool>& stop_workers)
      : cancel_requested_(&cancel_requested), stop_workers_(&stop_workers) {}

  explicit StopSignal(const std::atomic<bool>& cancel_requested) : StopSignal(cancel_requested, cancel_requested) {}

  [[nodiscard]] bool requested() const { return cancel_requested_->load() || stop_workers_->load(); }

  // Waits in steps of 100 ms. False as soon as a stop is seen, true when the time ran out without one.
  [[nodiscard]] bool wait_or_stop(uint32_t milliseconds) const;

 private:
  const std::atomic<bool>* cancel_requested_;
  const std::atomic<bool>* stop_workers_;
};

}  // namespace kvx
