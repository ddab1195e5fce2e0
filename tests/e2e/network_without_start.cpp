// Takes the place of the system's winhttp.dll beside a launcher: a network that cannot be initialised.
#include <windows.h>
#include <winhttp.h>

#include <cwchar>

extern "C" {

HINTERNET WINAPI fails_to_open(LPCWSTR /*agent*/, DWORD /*access*/, LPCWSTR /*proxy*/, LPCWSTR /*bypass*/,
                               DWORD /*flags*/) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

// Enough for "http://HOST:PORT/PATH" of the test's server.
BOOL WINAPI splits_local_url(LPCWSTR url, DWORD /*length*/, DWORD /*flags*/, URL_COMPONENTS* parts) {
  const wchar_t* host = url + std::wcslen(L"http://");
  const wchar_t* port = std::wcschr(host, L':');
  const wchar_t* path = std::wcschr(host, L'/');
  if (port == nullptr || path == nullptr) return FALSE;
  auto* writable = const_cast<wchar_t*>(url);  // the structure's members are not const, and nobody writes there
  parts->nScheme = INTERNET_SCHEME_HTTP;
  parts->lpszHostName = writable + (host - url);
  parts->dwHostNameLength = static_cast<DWORD>(port - host);
  parts->nPort = static_cast<INTERNET_PORT>(std::wcstoul(port + 1, nullptr, 10));
  parts->lpszUrlPath = writable + (path - url);
  parts->dwUrlPathLength = static_cast<DWORD>(std::wcslen(path));
  parts->lpszExtraInfo = nullptr;
  parts->dwExtraInfoLength = 0;
  return TRUE;
}

// Any other function, whatever its parameters: without a session there is nothing to call it for.
void not_expected() { TerminateProcess(GetCurrentProcess(), 3); }
}
