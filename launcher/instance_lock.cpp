#include "launcher/instance_lock.h"

#include <cstdio>

#include "foundations/clock.h"
#include "foundations/paths.h"

namespace kvx {
namespace {

constexpr int most_attempts = 10;
constexpr uint32_t retry_pause_ms = 200;

void write_process_id(HANDLE file) {
  char text[32];
  const int length = std::snprintf(text, sizeof(text), "%lu\n", GetCurrentProcessId());
  if (SetFilePointerEx(file, LARGE_INTEGER{}, nullptr, FILE_BEGIN) != 0) SetEndOfFile(file);
  DWORD written = 0;
  WriteFile(file, text, static_cast<DWORD>(length), &written, nullptr);
}

}  // namespace

InstanceLock::Result InstanceLock::acquire(const std::wstring& path) {
  for (int attempt = 1;; ++attempt) {
    handle_.reset(CreateFileW(long_path(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
    if (handle_) {
      write_process_id(handle_.get());
      return Result::acquired;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION && error != ERROR_LOCK_VIOLATION) return Result::cannot_be_created;
    sleep_ms(retry_pause_ms);
    if (attempt == most_attempts) return Result::held_by_another;
  }
}

}  // namespace kvx
