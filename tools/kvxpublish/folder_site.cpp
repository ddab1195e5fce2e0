#include "tools/kvxpublish/folder_site.h"

#include <windows.h>

#include <vector>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "manifest/managed_path.h"
#include "tools/kvxpublish/given_path.h"

namespace kvx::publish {
namespace {

constexpr size_t read_buffer_bytes = 1048576;

class FolderSite : public SiteReader {
 public:
  explicit FolderSite(std::wstring folder) : folder_(std::move(folder)) {}

  [[nodiscard]] std::string name_of(const std::string& relative) const override { return to_utf8(path_of(relative)); }

  [[nodiscard]] Search read_file(const std::string& relative, uint64_t limit, std::string& bytes,
                                 Failure& failure) override {
    uint64_t size = 0;
    const Search search = find_size(relative, size, failure);
    if (search != Search::found) return search;
    if (size > limit) return failed(relative, "is larger than " + std::to_string(limit) + " bytes", failure);
    if (!kvx::read_file(path_of(relative), limit, bytes)) return failed(relative, "cannot be read", failure);
    return Search::found;
  }

  [[nodiscard]] Search find_size(const std::string& relative, uint64_t& size, Failure& failure) override {
    const std::wstring path = path_of(relative);
    FileStamp stamp;
    if (file_stamp(path, stamp)) {
      size = stamp.size;
      return Search::found;
    }
    if (is_folder(path)) return failed(relative, "is a folder", failure);
    return Search::absent;
  }

  [[nodiscard]] bool read_content(const std::string& relative, uint64_t size, const ContentSink& sink,
                                  Failure& failure) override {
    const FileHandle file(CreateFileW(long_path(path_of(relative)).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file) return cannot_read(relative, failure);
    std::vector<uint8_t> buffer(read_buffer_bytes);
    uint64_t position = 0;
    for (;;) {
      DWORD got = 0;
      if (ReadFile(file.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &got, nullptr) == 0) {
        return cannot_read(relative, failure);
      }
      if (got == 0) break;
      position += got;
      if (!sink(buffer.data(), got)) return fail(ExitCode::failed, name_of(relative) + ": stopped", failure);
    }
    return position == size ||
           fail(ExitCode::failed,
                name_of(relative) + ": has " + std::to_string(position) + " bytes, not " + std::to_string(size),
                failure);
  }

 private:
  [[nodiscard]] std::wstring path_of(const std::string& relative) const {
    return join_path(folder_, native_path(relative));
  }

  Search failed(const std::string& relative, const std::string& reason, Failure& failure) const {
    static_cast<void>(fail(ExitCode::failed, name_of(relative) + ": " + reason, failure));
    return Search::failed;
  }

  bool cannot_read(const std::string& relative, Failure& failure) const {
    const uint32_t error = GetLastError();
    return fail(ExitCode::failed, name_of(relative) + ": cannot be read: " + error_text(error), failure);
  }

  const std::wstring folder_;
};

}  // namespace

std::unique_ptr<SiteReader> open_folder_site(const std::string& folder) {
  return std::make_unique<FolderSite>(given_path(folder));
}

}  // namespace kvx::publish
