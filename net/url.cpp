#include "net/url.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>
#include <cstddef>

#include "foundations/text.h"

namespace kvx {
namespace {

constexpr DWORD measured_by_the_splitter = static_cast<DWORD>(-1);

bool fail(const char* text, std::string& error) {
  error = text;
  return false;
}

// Only the name is compared without regard to case; the literal addresses must match exactly.
bool is_local_test_server(const std::wstring& host) {
  return equals_ignore_case(host, L"localhost") || host == L"127.0.0.1" || host == L"::1" || host == L"[::1]";
}

// The splitter refuses a scheme that is not HTTP's with the same code as a text without any.
bool names_a_scheme(const std::wstring& url) {
  const size_t end = url.find(L"://");
  return end != std::wstring::npos && end > 0 &&
         std::all_of(url.begin(), url.begin() + static_cast<std::ptrdiff_t>(end),
                     [](wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); });
}

}  // namespace

bool parse_url(const std::wstring& url, UrlParts& out, std::string& error) {
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof(parts);
  parts.dwSchemeLength = measured_by_the_splitter;
  parts.dwHostNameLength = measured_by_the_splitter;
  parts.dwUrlPathLength = measured_by_the_splitter;
  parts.dwExtraInfoLength = measured_by_the_splitter;
  if (WinHttpCrackUrl(url.c_str(), static_cast<DWORD>(url.size()), 0, &parts) == 0) {
    const bool unknown_scheme = GetLastError() == ERROR_WINHTTP_UNRECOGNIZED_SCHEME && names_a_scheme(url);
    return fail(unknown_scheme ? "unsupported URL scheme" : "invalid URL", error);
  }
  if (parts.nScheme != INTERNET_SCHEME_HTTPS && parts.nScheme != INTERNET_SCHEME_HTTP) {
    return fail("unsupported URL scheme", error);
  }
  out.secure = parts.nScheme == INTERNET_SCHEME_HTTPS;
  out.host.assign(parts.lpszHostName, parts.dwHostNameLength);
  out.port = parts.nPort;
  out.path.assign(parts.lpszUrlPath, parts.dwUrlPathLength);
  out.path.append(parts.lpszExtraInfo, parts.dwExtraInfoLength);
  if (out.path.empty()) out.path = L"/";
  if (out.host.empty()) return fail("URL has no host", error);
  if (out.secure || is_local_test_server(out.host)) return true;
  return fail("plain HTTP is only allowed for a local test server (127.0.0.1 / localhost)", error);
}

}  // namespace kvx
