#include "tests/tools/kvxpublish/support/folder_tree.h"

#include <windows.h>

#include <gtest/gtest.h>

#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "tests/support/temp_folder.h"

namespace kvx::test {
namespace {

void collect(const std::wstring& folder, const std::wstring& prefix, FolderTree& tree) {
  for (const std::wstring& name : list_folder(folder)) {
    const std::wstring path = join_path(folder, name);
    if (is_folder(path)) {
      tree[prefix + name + L'\\'] = "";
      collect(path, prefix + name + L'\\', tree);
    } else {
      tree[prefix + name] = read_text(path);
    }
  }
}

}  // namespace

FolderTree folder_tree(const std::wstring& folder) {
  FolderTree tree;
  collect(folder, L"", tree);
  return tree;
}

void remove_file(const std::wstring& path) { EXPECT_NE(DeleteFileW(long_path(path).c_str()), 0); }

void set_last_write_time(const std::wstring& path, uint64_t time) {
  const FileHandle file(CreateFileW(long_path(path).c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  const FILETIME filetime{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
  EXPECT_NE(SetFileTime(file.get(), nullptr, nullptr, &filetime), 0);
}

}  // namespace kvx::test
