// The value that -fstack-protector compares, and what happens when it does not hold. The compiler's own library asks
// CryptoAPI for the value before the program's first statement, and CryptoAPI loads libraries from the launcher's
// folder.
#include <windows.h>

#include <cstdint>

extern "C" {

extern uintptr_t __stack_chk_guard;        // NOLINT(bugprone-reserved-identifier): the compiler names both
[[noreturn]] void __stack_chk_fail(void);  // NOLINT(bugprone-reserved-identifier)

uintptr_t __stack_chk_guard = 0;

void __stack_chk_fail() {
  constexpr UINT stack_buffer_overrun = 0xC0000409;  // as Windows ends such a process itself
  TerminateProcess(GetCurrentProcess(), stack_buffer_overrun);
  for (;;) Sleep(INFINITE);
}
}

namespace {

// Before every other constructor, and without a guard of its own, which it changes.
__attribute__((constructor(101), no_stack_protector)) void choose_guard() {
  LARGE_INTEGER counter;
  FILETIME now;
  QueryPerformanceCounter(&counter);
  GetSystemTimeAsFileTime(&now);
  const uint64_t sources[] = {static_cast<uint64_t>(counter.QuadPart),
                              uint64_t{now.dwLowDateTime} << 32 | now.dwHighDateTime,
                              uint64_t{GetCurrentProcessId()} << 32 | GetCurrentThreadId(),
                              GetTickCount64(),
                              __builtin_ia32_rdtsc(),
                              reinterpret_cast<uintptr_t>(&counter),
                              reinterpret_cast<uintptr_t>(&__stack_chk_guard)};
  uint64_t value = 0;
  for (const uint64_t source : sources) {
    value = (value ^ source) * 0x9E3779B97F4A7C15;
    value ^= value >> 29;
  }
  // Its lowest byte is zero, which ends a string that is written over it.
  __stack_chk_guard = value << 8;
}

}  // namespace
