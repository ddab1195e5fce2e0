// Runs transfers on threads of their own, so that nobody waits for one that is stuck. A blocking WinHTTP call cannot be
// interrupted: it ends by its own time-outs, and its handles may not be closed from another thread meanwhile. A flush
// of a large file takes as long as the disk needs. Where a stop is requested and such a call (a LeavableCall of the
// session) is still under way a second later, its thread is left behind.
//
// What is left behind sees the stop as soon as its call returns and then does nothing more. Until then it may use all
// that its body refers to: that must belong to the body or outlive this object, whose destruction waits for it. A
// program that cannot wait ends its process instead.
//
// For the worker thread.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "foundations/stop_signal.h"
#include "foundations/system_handles.h"
#include "net/http_session.h"

namespace kvx {

class TransferThreads {
 public:
  // Both must outlive this object.
  TransferThreads(const HttpSession& session, const StopSignal& stop) : session_(session), stop_(stop) {}
  TransferThreads(const TransferThreads&) = delete;
  TransferThreads& operator=(const TransferThreads&) = delete;
  ~TransferThreads();

  // What the transfers in a body must use, so that a stuck one is seen as such.
  [[nodiscard]] const HttpSession& session() const { return session_; }
  [[nodiscard]] const StopSignal& stop() const { return stop_; }

  // Runs `body` on `count` threads at once, or on fewer where the system gives no more. The body must return soon after
  // a stop, except from inside a leavable call. Until a stop, the calling thread calls `while_waiting` every 50 ms.
  //
  // Where the system gives no thread at all, the calling thread runs the body itself: it then neither calls
  // `while_waiting` nor leaves a stuck call behind.
  //
  // True when the body has returned everywhere, also after a stop. False when a stop kept it from being started, or
  // left some of it behind.
  [[nodiscard]] bool run(
      size_t count, const std::function<void()>& body, const std::function<void()>& while_waiting = [] {});

  [[nodiscard]] bool has_left_behind() const;

 private:
  using Body = std::function<void()>;

  static unsigned __stdcall run_body(void* body);
  [[nodiscard]] static std::vector<KernelHandle> start(size_t count, Body& body);
  [[nodiscard]] bool wait_or_leave(const std::vector<KernelHandle>& threads,
                                   const std::function<void()>& while_waiting) const;

  const HttpSession& session_;
  const StopSignal& stop_;
  std::vector<std::unique_ptr<Body>> bodies_left_;
  std::vector<KernelHandle> threads_left_;
};

}  // namespace kvx
