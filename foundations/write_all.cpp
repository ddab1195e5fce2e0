#include "foundations/write_all.h"

#include <algorithm>

namespace kvx {
namespace {

constexpr size_t most_at_once_bytes = 1048576;

}  // namespace

// A disk that fills in the middle of a write may take a part of it without an error; asked for the rest, it says why.
bool write_all(HANDLE file, const void* bytes, size_t count, uint32_t& error) {
  const auto* rest = static_cast<const uint8_t*>(bytes);
  while (count > 0) {
    DWORD written = 0;
    if (WriteFile(file, rest, static_cast<DWORD>(std::min(count, most_at_once_bytes)), &written, nullptr) == 0) {
      error = GetLastError();
      return false;
    }
    if (written == 0) {
      error = ERROR_WRITE_FAULT;
      return false;
    }
    rest += written;
    count -= written;
  }
  return true;
}

bool flush_to_disk(HANDLE file, uint32_t& error) {
  if (FlushFileBuffers(file) != 0) return true;
  error = GetLastError();
  return false;
}

}  // namespace kvx
