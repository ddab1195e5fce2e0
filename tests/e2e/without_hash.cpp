// A launcher that is linked with this gets no algorithm from the system's cryptography.
#include <windows.h>
#include <bcrypt.h>

extern "C" NTSTATUS WINAPI BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR /*name*/,
                                                       LPCWSTR /*provider*/, ULONG /*flags*/) {
  constexpr auto not_found = static_cast<NTSTATUS>(0xC0000225);
  *algorithm = nullptr;
  return not_found;
}
