#include "manifest/file_digest.h"

#include <windows.h>

#include <vector>

#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "manifest/sha256.h"

namespace kvx {
namespace {

constexpr size_t read_buffer_bytes = 4194304;

}  // namespace

std::string hash_file(const std::wstring& path, const HashProgress& progress, std::string& error) {
  const FileHandle file(CreateFileW(long_path(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!file) {
    error = error_text(GetLastError());
    return {};
  }
  std::vector<uint8_t> buffer(read_buffer_bytes);
  Sha256Hasher hasher;
  for (;;) {
    DWORD got = 0;
    if (ReadFile(file.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &got, nullptr) == 0) {
      error = error_text(GetLastError());
      return {};
    }
    if (got == 0) return hasher.finish_text();
    if (!hasher.update(buffer.data(), got)) return {};
    if (progress && !progress(got)) {
      error = "cancelled";
      return {};
    }
  }
}

}  // namespace kvx
