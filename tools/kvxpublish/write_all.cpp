#include "tools/kvxpublish/write_all.h"

#include <algorithm>

namespace kvx::publish {
namespace {

constexpr size_t most_at_once_bytes = 1073741824;

}  // namespace

// A disk that fills in the middle of a write may take a part of it without an error; asked for the rest, it says why.
bool write_all(const FileHandle& file, const void* bytes, size_t count, uint32_t& error) {
  const auto* rest = static_cast<const uint8_t*>(bytes);
  while (count > 0) {
    DWORD written = 0;
    if (WriteFile(file.get(), rest, static_cast<DWORD>(std::min(count, most_at_once_bytes)), &written, nullptr) == 0) {
      error = GetLastError();
      return false;
    }
    if (written == 0) {
      error = ERROR_DISK_FULL;
      return false;
    }
    rest += written;
    count -= written;
  }
  return true;
}

}  // namespace kvx::publish
