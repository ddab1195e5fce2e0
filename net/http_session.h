// The one WinHTTP session of a run. After open, any thread may send requests with it; it must outlive them all.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

#include "net/winhttp_handle.h"

namespace kvx {

class HttpSession {
 public:
  // Opens the session with automatic proxy, the program's timeouts and TLS 1.2 or newer. On failure returns false,
  // fills `error`, and the session stays closed.
  [[nodiscard]] bool open(const std::wstring& user_agent, std::string& error);

  [[nodiscard]] const WinHttpHandle& handle() const { return handle_; }

  // How many threads are inside a call that a stop may leave behind.
  [[nodiscard]] size_t leavable_calls() const { return leavable_calls_.load(); }

 private:
  friend class LeavableCall;

  WinHttpHandle handle_;
  mutable std::atomic<size_t> leavable_calls_{0};
};

// Marks its thread, while it exists, as inside a call of one of this session's transfers that may take long, cannot be
// interrupted and may be left behind by a stop (net/transfer_threads.h): one that waits for the network, or a flush of
// what came from there. After it the thread looks for a stop before it touches a file or anything that others own.
class LeavableCall {
 public:
  explicit LeavableCall(const HttpSession& session) : session_(session) { ++session_.leavable_calls_; }
  LeavableCall(const LeavableCall&) = delete;
  LeavableCall& operator=(const LeavableCall&) = delete;
  ~LeavableCall() { --session_.leavable_calls_; }

 private:
  const HttpSession& session_;
};

}  // namespace kvx
