#include "net/http_session.h"

#include <windows.h>
#include <winhttp.h>

#include "foundations/error_text.h"

namespace kvx {
namespace {

constexpr int resolve_timeout_ms = 10000;
constexpr int connect_timeout_ms = 10000;
constexpr int send_timeout_ms = 30000;
constexpr int receive_timeout_ms = 60000;

HINTERNET open_with(DWORD access_type, const std::wstring& user_agent) {
  return WinHttpOpen(user_agent.c_str(), access_type, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0);
}

bool set_protocols(HINTERNET session, DWORD protocols) {
  return WinHttpSetOption(session, WINHTTP_OPTION_SECURE_PROTOCOLS, &protocols, sizeof(protocols)) != 0;
}

}  // namespace

void WinHttpHandleTraits::close(value_type value) { WinHttpCloseHandle(value); }

bool HttpSession::open(const std::wstring& user_agent, std::string& error) {
  handle_.reset(open_with(WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY, user_agent));
  // Older systems do not know automatic proxy.
  if (!handle_) handle_.reset(open_with(WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, user_agent));
  if (!handle_) {
    error = "WinHttpOpen: " + error_text(GetLastError());
    return false;
  }
  WinHttpSetTimeouts(handle_.get(), resolve_timeout_ms, connect_timeout_ms, send_timeout_ms, receive_timeout_ms);
  // The wait for the response's headers is not among those.
  DWORD response_timeout_ms = receive_timeout_ms;
  WinHttpSetOption(handle_.get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &response_timeout_ms,
                   sizeof(response_timeout_ms));
  if (!set_protocols(handle_.get(), WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2 | WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_3)) {
    // A system without TLS 1.3 refuses the pair.
    static_cast<void>(set_protocols(handle_.get(), WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2));
  }
  return true;
}

}  // namespace kvx
