#include "manifest/file_digest.h"

#include <windows.h>

#include <algorithm>

#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "manifest/sha256.h"

namespace kvx {
namespace {

constexpr uint64_t smallest_buffer_bytes = 16384;
constexpr uint64_t largest_buffer_bytes = 4194304;

uint64_t size_or_zero(HANDLE file) {
  LARGE_INTEGER size;
  return GetFileSizeEx(file, &size) != 0 ? static_cast<uint64_t>(size.QuadPart) : 0;
}

}  // namespace

std::string FileHasher::hash(const std::wstring& path, const HashProgress& progress, std::string& error) {
  const FileHandle file(CreateFileW(long_path(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!file) {
    error = error_text(GetLastError());
    return {};
  }
  make_buffer_for(size_or_zero(file.get()));
  Sha256Hasher sha256;
  for (;;) {
    DWORD got = 0;
    if (ReadFile(file.get(), buffer_.get(), buffer_bytes_, &got, nullptr) == 0) {
      error = error_text(GetLastError());
      return {};
    }
    if (got == 0) return sha256.finish_text();
    if (!sha256.update(buffer_.get(), got)) return {};
    if (progress && !progress(got)) {
      error = "cancelled";
      return {};
    }
  }
}

// The content of the buffer is never looked at before it is read, so it is not cleared.
void FileHasher::make_buffer_for(uint64_t file_bytes) {
  const auto bytes = static_cast<uint32_t>(std::clamp(file_bytes, smallest_buffer_bytes, largest_buffer_bytes));
  if (bytes <= buffer_bytes_) return;
  buffer_.reset();
  buffer_ = std::make_unique_for_overwrite<uint8_t[]>(bytes);
  buffer_bytes_ = bytes;
}

std::string hash_file(const std::wstring& path, const HashProgress& progress, std::string& error) {
  return FileHasher().hash(path, progress, error);
}

}  // namespace kvx
