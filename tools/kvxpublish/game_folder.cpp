#include "tools/kvxpublish/game_folder.h"

#include <windows.h>

#include <algorithm>

#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "manifest/file_digest.h"

namespace kvx::publish {
namespace {

bool list_files(const std::wstring& folder, const std::string& prefix, std::vector<GameFile>& files, Failure& failure) {
  WIN32_FIND_DATAW entry;
  const FindHandle search(FindFirstFileExW(long_path(join_path(folder, L"*")).c_str(), FindExInfoBasic, &entry,
                                           FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH));
  if (!search) {
    return fail(ExitCode::failed, to_utf8(folder) + ": the folder cannot be read: " + error_text(GetLastError()),
                failure);
  }
  do {
    const std::wstring name = entry.cFileName;
    if (name == L"." || name == L"..") continue;
    const std::wstring path = join_path(folder, name);
    const std::string relative = prefix + to_utf8(name);
    if (to_wide(to_utf8(name)) != name) {
      return fail(ExitCode::refused, to_utf8(path) + ": the name is not valid Unicode; rename the file", failure);
    }
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
      return fail(ExitCode::refused, to_utf8(path) + ": is a link; put the file itself in its place", failure);
    }
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      files.push_back({relative, path, 0, {}});
    } else if (!list_files(path, relative + '/', files, failure)) {
      return false;
    }
  } while (FindNextFileW(search.get(), &entry) != 0);
  return true;
}

}  // namespace

bool measure_file(const std::wstring& path, uint64_t& size, std::string& sha256, Failure& failure) {
  // Counted while hashing, so that size and digest are of the same bytes.
  size = 0;
  std::string error;
  sha256 = hash_file(
      path,
      [&size](uint64_t bytes) {
        size += bytes;
        return true;
      },
      error);
  if (!sha256.empty()) return true;
  if (error.empty()) error = "SHA-256 is not available on this system";
  return fail(ExitCode::failed, to_utf8(path) + ": cannot be read: " + error, failure);
}

bool read_game_folder(const std::wstring& folder, std::vector<GameFile>& files, Failure& failure) {
  files.clear();
  if (!list_files(folder, "", files, failure)) return false;
  if (files.empty()) {
    return fail(ExitCode::refused, to_utf8(folder) + ": the folder has no files; a release needs at least one",
                failure);
  }
  std::ranges::sort(files, {}, &GameFile::path);
  return std::ranges::all_of(
      files, [&failure](GameFile& file) { return measure_file(file.source, file.size, file.sha256, failure); });
}

}  // namespace kvx::publish
