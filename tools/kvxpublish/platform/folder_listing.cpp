#include "tools/kvxpublish/platform/folder_listing.h"

#include <windows.h>

#include <algorithm>

#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"

namespace kvx::publish {
namespace {

uint64_t join_words(DWORD high, DWORD low) { return uint64_t{high} << 32 | low; }

FolderEntry entry_of(const WIN32_FIND_DATAW& data) {
  return {data.cFileName, (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
          join_words(data.nFileSizeHigh, data.nFileSizeLow),
          join_words(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)};
}

bool cannot_read(const std::wstring& folder, uint32_t error, Failure& failure) {
  return fail(ExitCode::failed, to_utf8(folder) + ": the folder cannot be read: " + error_text(error), failure);
}

}  // namespace

bool list_entries(const std::wstring& folder, std::vector<FolderEntry>& entries, Failure& failure) {
  entries.clear();
  WIN32_FIND_DATAW data;
  const FindHandle search(FindFirstFileExW(long_path(join_path(folder, L"*")).c_str(), FindExInfoBasic, &data,
                                           FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH));
  if (!search) {
    const uint32_t error = GetLastError();
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || cannot_read(folder, error, failure);
  }
  do {
    const FolderEntry entry = entry_of(data);
    if (entry.name != L"." && entry.name != L"..") entries.push_back(entry);
  } while (FindNextFileW(search.get(), &data) != 0);
  const uint32_t error = GetLastError();
  std::ranges::sort(entries, {}, &FolderEntry::name);
  return error == ERROR_NO_MORE_FILES || cannot_read(folder, error, failure);
}

}  // namespace kvx::publish
