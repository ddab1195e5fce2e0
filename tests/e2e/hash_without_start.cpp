// Takes the place of the system's bcrypt.dll beside a launcher: no algorithm can be had.
#include <windows.h>
#include <bcrypt.h>

extern "C" {

NTSTATUS WINAPI opens_no_algorithm(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR /*name*/, LPCWSTR /*provider*/,
                                   ULONG /*flags*/) {
  constexpr auto not_found = static_cast<NTSTATUS>(0xC0000225);
  *algorithm = nullptr;
  return not_found;
}

// Any other function, whatever its parameters: without an algorithm there is nothing to call it for.
void not_expected() { TerminateProcess(GetCurrentProcess(), 3); }
}
