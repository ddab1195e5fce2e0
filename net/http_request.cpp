#include "net/http_request.h"

#include <windows.h>
#include <winhttp.h>

#include "foundations/error_text.h"

namespace kvx {
namespace {

bool fail(const char* step, std::string& error) {
  error = describe_http_error(step, GetLastError());
  return false;
}

std::string http_error_text(uint32_t code) {
  switch (code) {
    case ERROR_WINHTTP_TIMEOUT: return "the connection timed out";
    case ERROR_WINHTTP_NAME_NOT_RESOLVED: return "the server name could not be resolved";
    case ERROR_WINHTTP_CANNOT_CONNECT: return "could not connect to the server";
    case ERROR_WINHTTP_CONNECTION_ERROR: return "the connection was reset";
    case ERROR_WINHTTP_SECURE_FAILURE: return "the secure (TLS) connection failed";
    default: return error_text(code);
  }
}

bool send(HINTERNET request, const std::wstring& extra_headers) {
  constexpr auto zero_terminated = static_cast<DWORD>(-1);
  if (extra_headers.empty()) {
    return WinHttpSendRequest(request, WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0) != 0;
  }
  return WinHttpSendRequest(request, extra_headers.c_str(), zero_terminated, WINHTTP_NO_REQUEST_DATA, 0, 0, 0) != 0;
}

bool query_status(HINTERNET request, uint32_t& status) {
  DWORD number = 0;
  DWORD size = sizeof(number);
  if (WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, WINHTTP_HEADER_NAME_BY_INDEX,
                          &number, &size, WINHTTP_NO_HEADER_INDEX) == 0) {
    return false;
  }
  status = number;
  return true;
}

}  // namespace

std::string describe_http_error(const char* step, uint32_t code) {
  return std::string(step) + ": " + http_error_text(code);
}

bool send_request(const HttpSession& session, const UrlParts& url, const std::wstring& extra_headers, HttpRequest& out,
                  uint32_t& status, std::string& error) {
  out.connection.reset(WinHttpConnect(session.handle().get(), url.host.c_str(), url.port, 0));
  if (!out.connection) return fail("connect", error);
  out.request.reset(WinHttpOpenRequest(out.connection.get(), L"GET", url.path.c_str(), nullptr, WINHTTP_NO_REFERER,
                                       WINHTTP_DEFAULT_ACCEPT_TYPES, url.secure ? WINHTTP_FLAG_SECURE : 0));
  if (!out.request) return fail("open request", error);
  {
    const LeavableCall call(session);
    if (!send(out.request.get(), extra_headers)) return fail("send", error);
    if (WinHttpReceiveResponse(out.request.get(), nullptr) == 0) return fail("receive", error);
  }
  if (!query_status(out.request.get(), status)) return fail("status", error);
  if (status != 0) return true;
  error = "status: the server sent no valid status";
  return false;
}

bool query_header_text(const WinHttpHandle& request, uint32_t header, std::wstring& text) {
  text.clear();
  DWORD bytes = 0;
  if (WinHttpQueryHeaders(request.get(), header, WINHTTP_HEADER_NAME_BY_INDEX, WINHTTP_NO_OUTPUT_BUFFER, &bytes,
                          WINHTTP_NO_HEADER_INDEX) != 0 ||
      GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    return false;
  }
  text.resize(bytes / sizeof(wchar_t));
  if (WinHttpQueryHeaders(request.get(), header, WINHTTP_HEADER_NAME_BY_INDEX, text.data(), &bytes,
                          WINHTTP_NO_HEADER_INDEX) == 0) {
    text.clear();
    return false;
  }
  text.resize(bytes / sizeof(wchar_t));  // the second call's length leaves out the terminating zero
  return !text.empty();
}

}  // namespace kvx
