// One thread with one body. It must be joined before it is destroyed; destroying it earlier, or failing to start it,
// ends the program.
#pragma once

#include <functional>

#include "foundations/system_handles.h"

namespace kvx {

class WorkerThread {
 public:
  WorkerThread() = default;
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;
  ~WorkerThread();

  void start(std::function<void()> body);
  [[nodiscard]] bool joinable() const { return static_cast<bool>(handle_); }
  void join();

 private:
  KernelHandle handle_;
  unsigned id_ = 0;
};

}  // namespace kvx
