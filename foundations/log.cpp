#include "foundations/log.h"

#include <windows.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace kvx::log {
namespace {

constexpr size_t message_buffer_bytes = 4096;
constexpr size_t line_buffer_bytes = 4200;

// The log outlives every thread: neither of these needs construction or destruction at run time.
SRWLOCK lock = SRWLOCK_INIT;
HANDLE handle = INVALID_HANDLE_VALUE;

class LockGuard {
 public:
  LockGuard() { AcquireSRWLockExclusive(&lock); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;
  ~LockGuard() { ReleaseSRWLockExclusive(&lock); }
};

std::wstring previous_log_name(const std::wstring& path) {
  // The last dot of the whole path, a folder's included.
  return path.substr(0, path.rfind(L'.')) + L".prev.log";
}

}  // namespace

void open(const std::wstring& path) {
  // Before the lock is taken: where no memory is left for it, that is logged.
  const std::wstring previous = previous_log_name(path);
  const LockGuard guard;
  if (handle != INVALID_HANDLE_VALUE) return;
  MoveFileExW(path.c_str(), previous.c_str(), MOVEFILE_REPLACE_EXISTING);
  handle =
      CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void write(const char* format, ...) {
  char message[message_buffer_bytes];
  va_list arguments;
  va_start(arguments, format);
  const int message_length = std::vsnprintf(message, sizeof(message), format, arguments);
  va_end(arguments);
  if (message_length < 0) return;

  SYSTEMTIME now;
  GetLocalTime(&now);
  char line[line_buffer_bytes];
  const int line_length =
      std::snprintf(line, sizeof(line), "%04u-%02u-%02u %02u:%02u:%02u.%03u [%5lu] %s\r\n", now.wYear, now.wMonth,
                    now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, GetCurrentThreadId(), message);
  if (line_length < 0) return;

  const LockGuard guard;
  if (handle != INVALID_HANDLE_VALUE) {
    const DWORD bytes = static_cast<DWORD>(std::min(static_cast<size_t>(line_length), sizeof(line) - 1));
    DWORD written = 0;
    WriteFile(handle, line, bytes, &written, nullptr);
  }
  OutputDebugStringA(line);
}

void close() {
  const LockGuard guard;
  if (handle == INVALID_HANDLE_VALUE) return;
  FlushFileBuffers(handle);
  CloseHandle(handle);
  handle = INVALID_HANDLE_VALUE;
}

}  // namespace kvx::log
