#include "tests/support/temp_folder.h"

#include <windows.h>

#include <atomic>
#include <gtest/gtest.h>

#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"

namespace kvx::test {
namespace {

void make_folders(const std::wstring& path) {
  if (path.size() <= 3 || exists(path)) return;
  make_folders(parent_path(path));
  CreateDirectoryW(long_path(path).c_str(), nullptr);
}

}  // namespace

TempFolder::TempFolder() {
  static std::atomic<int> count{0};
  wchar_t base[MAX_PATH + 1];
  GetTempPathW(MAX_PATH, base);
  const std::wstring stem = std::wstring(base) + L"kvx-test-" + std::to_wstring(GetCurrentProcessId()) + L"-";
  do {
    path_ = stem + std::to_wstring(++count);
    remove_tree(path_);     // an earlier process with this id may have left one
  } while (exists(path_));  // with something in it that cannot be deleted, such as a link to a device
  make_folders(path_);
}

TempFolder::~TempFolder() { remove_tree(path_); }

void write_text(const std::wstring& path, const std::string& bytes) {
  make_folders(parent_path(path));
  const FileHandle file(
      CreateFileW(long_path(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(file) << "cannot write " << to_utf8(path) << ": error " << GetLastError();
  DWORD written = 0;
  ASSERT_TRUE(WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
  ASSERT_EQ(written, bytes.size());
}

std::string read_text(const std::wstring& path) {
  const FileHandle file(CreateFileW(long_path(path).c_str(), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    ADD_FAILURE() << "cannot read " << to_utf8(path) << ": error " << GetLastError();
    return {};
  }
  std::string bytes(GetFileSize(file.get(), nullptr), '\0');
  DWORD got = 0;
  EXPECT_TRUE(ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &got, nullptr));
  bytes.resize(got);
  return bytes;
}

bool exists(const std::wstring& path) { return GetFileAttributesW(long_path(path).c_str()) != INVALID_FILE_ATTRIBUTES; }

void remove_tree(const std::wstring& path) {
  WIN32_FIND_DATAW entry;
  const FindHandle search(FindFirstFileW(long_path(path + L"\\*").c_str(), &entry));
  if (!search) return;
  do {
    const std::wstring name = entry.cFileName;
    if (name == L"." || name == L"..") continue;
    const std::wstring child = path + L'\\' + name;
    SetFileAttributesW(long_path(child).c_str(), FILE_ATTRIBUTE_NORMAL);
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      remove_tree(child);
    } else {
      DeleteFileW(long_path(child).c_str());
    }
  } while (FindNextFileW(search.get(), &entry) != 0);
  RemoveDirectoryW(long_path(path).c_str());
}

}  // namespace kvx::test
