#include "tools/kvxpublish/site/folder_site.h"

#include <windows.h>

#include <utility>
#include <vector>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "manifest/managed_path.h"
#include "tools/kvxpublish/cli/given_path.h"

namespace kvx::publish {
namespace {

constexpr size_t read_buffer_bytes = 1048576;

class FolderSite : public SiteReader {
 public:
  explicit FolderSite(std::wstring folder) : folder_(std::move(folder)) {}

  [[nodiscard]] std::string name_of(const std::string& relative) const override { return to_utf8(path_of(relative)); }

  [[nodiscard]] Search read_file(const std::string& relative, uint64_t limit, std::string& bytes,
                                 Failure& failure) override {
    const FileHandle file = open(relative);
    if (!file) return not_found(relative, GetLastError(), failure);
    LARGE_INTEGER size;
    if (GetFileSizeEx(file.get(), &size) == 0) return not_found(relative, GetLastError(), failure);
    if (std::cmp_greater(size.QuadPart, limit)) {
      return failed(relative, "is larger than " + std::to_string(limit) + " bytes", failure);
    }
    bytes.clear();
    const auto sink = [&](const uint8_t* piece, size_t count) {
      bytes.append(piece, piece + count);
      return true;
    };
    uint64_t count = 0;
    return read_to_end(relative, file, sink, count, failure) ? Search::found : Search::failed;
  }

  [[nodiscard]] Search find_size(const std::string& relative, uint64_t& size, Failure& failure) override {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (GetFileAttributesExW(long_path(path_of(relative)).c_str(), GetFileExInfoStandard, &data) == 0) {
      return not_found(relative, GetLastError(), failure);
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return failed(relative, "is a folder", failure);
    size = uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
    return Search::found;
  }

  [[nodiscard]] bool read_content(const std::string& relative, uint64_t size, const ContentSink& sink,
                                  Failure& failure) override {
    const FileHandle file = open(relative);
    if (!file) return cannot_read(relative, GetLastError(), failure);
    uint64_t count = 0;
    if (!read_to_end(relative, file, sink, count, failure)) return false;
    return count == size ||
           fail(ExitCode::failed,
                name_of(relative) + ": has " + std::to_string(count) + " bytes, not " + std::to_string(size), failure);
  }

 private:
  [[nodiscard]] std::wstring path_of(const std::string& relative) const {
    return join_path(folder_, native_path(relative));
  }

  [[nodiscard]] FileHandle open(const std::string& relative) const {
    return FileHandle(CreateFileW(long_path(path_of(relative)).c_str(), GENERIC_READ,
                                  FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  }

  // Counts the bytes that the sink has got.
  [[nodiscard]] bool read_to_end(const std::string& relative, const FileHandle& file, const ContentSink& sink,
                                 uint64_t& count, Failure& failure) const {
    std::vector<uint8_t> buffer(read_buffer_bytes);
    for (;;) {
      DWORD got = 0;
      if (ReadFile(file.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &got, nullptr) == 0) {
        return cannot_read(relative, GetLastError(), failure);
      }
      if (got == 0) return true;
      count += got;
      if (!sink(buffer.data(), got)) return fail(ExitCode::failed, name_of(relative) + ": stopped", failure);
    }
  }

  // Only what is certainly not there is absent: whoever takes a release that cannot be read for none publishes over it.
  Search not_found(const std::string& relative, uint32_t error, Failure& failure) const {
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return Search::absent;
    if (is_folder(path_of(relative))) return failed(relative, "is a folder", failure);
    static_cast<void>(cannot_read(relative, error, failure));
    return Search::failed;
  }

  Search failed(const std::string& relative, const std::string& reason, Failure& failure) const {
    static_cast<void>(fail(ExitCode::failed, name_of(relative) + ": " + reason, failure));
    return Search::failed;
  }

  bool cannot_read(const std::string& relative, uint32_t error, Failure& failure) const {
    return fail(ExitCode::failed, name_of(relative) + ": cannot be read: " + error_text(error), failure);
  }

  const std::wstring folder_;
};

}  // namespace

std::unique_ptr<SiteReader> open_folder_site(const std::string& folder) {
  return std::make_unique<FolderSite>(given_path(folder));
}

}  // namespace kvx::publish
