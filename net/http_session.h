// The one WinHTTP session of a run. After open, any thread may send requests with it; it must outlive them all.
#pragma once

#include <string>

#include "net/winhttp_handle.h"

namespace kvx {

class HttpSession {
 public:
  // Opens the session with automatic proxy, the program's timeouts and TLS 1.2 or newer. On failure returns false,
  // fills `error`, and the session stays closed.
  [[nodiscard]] bool open(const std::wstring& user_agent, std::string& error);

  [[nodiscard]] const WinHttpHandle& handle() const { return handle_; }

 private:
  WinHttpHandle handle_;
};

}  // namespace kvx
