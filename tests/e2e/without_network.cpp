// In a launcher that is linked with this, the network cannot be initialised.
#include <windows.h>
#include <winhttp.h>

extern "C" HINTERNET WINAPI WinHttpOpen(LPCWSTR /*agent*/, DWORD /*access*/, LPCWSTR /*proxy*/, LPCWSTR /*bypass*/,
                                        DWORD /*flags*/) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}
