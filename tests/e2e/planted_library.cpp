// A library that somebody has put beside the launcher: whoever loads it ends at once.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE /*library*/, DWORD /*reason*/, LPVOID /*reserved*/) {
  TerminateProcess(GetCurrentProcess(), 3);
  return FALSE;
}
