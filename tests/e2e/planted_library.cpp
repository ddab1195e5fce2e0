// A library that somebody has put beside the launcher: whoever loads it ends at once.
#include <windows.h>

// NOLINTNEXTLINE(misc-use-internal-linkage): the system calls it
BOOL WINAPI DllMain(HINSTANCE /*library*/, DWORD /*reason*/, LPVOID /*reserved*/) {
  TerminateProcess(GetCurrentProcess(), 3);
  return FALSE;
}
