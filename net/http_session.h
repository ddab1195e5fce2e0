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

  // How many threads are inside a call that may wait for the network.
  [[nodiscard]] size_t calls_under_way() const { return calls_under_way_.load(); }

 private:
  friend class NetworkCall;

  WinHttpHandle handle_;
  mutable std::atomic<size_t> calls_under_way_{0};
};

// Counts the thread that made it as inside a network call, for as long as it exists.
class NetworkCall {
 public:
  explicit NetworkCall(const HttpSession& session) : session_(session) { ++session_.calls_under_way_; }
  NetworkCall(const NetworkCall&) = delete;
  NetworkCall& operator=(const NetworkCall&) = delete;
  ~NetworkCall() { --session_.calls_under_way_; }

 private:
  const HttpSession& session_;
};

}  // namespace kvx
