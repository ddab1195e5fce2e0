#include "tools/kvxpublish/release/game_folder.h"

#include <windows.h>

#include <algorithm>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "manifest/file_digest.h"
#include "tools/kvxpublish/release/path_pattern.h"

namespace kvx::publish {
namespace {

// An --exclude and whether it was of any use.
struct Exclusion {
  PathPattern pattern;
  bool used = false;
};

// One walk through a folder, used once.
class FolderWalk {
 public:
  FolderWalk(std::vector<Exclusion>& exclusions, std::vector<GameFile>& files, Failure& failure)
      : exclusions_(exclusions), files_(files), failure_(failure) {}

  bool walk(const std::wstring& folder, const std::string& prefix) {
    WIN32_FIND_DATAW entry;
    const FindHandle search(FindFirstFileExW(long_path(join_path(folder, L"*")).c_str(), FindExInfoBasic, &entry,
                                             FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH));
    if (!search) return cannot_read(folder, GetLastError());
    bool is_empty = true;
    do {
      const std::wstring name = entry.cFileName;
      if (name == L"." || name == L"..") continue;
      is_empty = false;
      if (!visit(folder, name, entry.dwFileAttributes, prefix)) return false;
    } while (FindNextFileW(search.get(), &entry) != 0);
    const uint32_t error = GetLastError();
    if (error != ERROR_NO_MORE_FILES) return cannot_read(folder, error);
    return !is_empty || prefix.empty() || refuse_empty(folder);
  }

 private:
  bool visit(const std::wstring& folder, const std::wstring& name, DWORD attributes, const std::string& prefix) {
    const std::wstring path = join_path(folder, name);
    const std::string relative = prefix + to_utf8(name);
    if (is_excluded(relative)) return true;
    if (to_wide(to_utf8(name)) != name) {
      return fail(ExitCode::refused, to_utf8(path) + ": the name is not valid Unicode; rename the file", failure_);
    }
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
      return fail(ExitCode::refused, to_utf8(path) + ": is a link; put the file itself in its place", failure_);
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return walk(path, relative + '/');
    return add_file(path, relative);
  }

  // Every pattern is tried, so that each one's use is known.
  bool is_excluded(const std::string& relative) {
    bool excluded = false;
    for (Exclusion& exclusion : exclusions_) {
      if (!exclusion.pattern.matches(relative)) continue;
      exclusion.used = true;
      excluded = true;
    }
    return excluded;
  }

  // The listing itself may lag behind what was written to a file, so each one is asked.
  bool add_file(const std::wstring& path, const std::string& relative) {
    FileStamp stamp;
    if (!file_stamp(path, stamp)) {
      return fail(ExitCode::failed, to_utf8(path) + ": cannot be read: " + error_text(GetLastError()), failure_);
    }
    files_.push_back({relative, path, stamp.size, stamp.last_write_time, {}});
    return true;
  }

  bool refuse_empty(const std::wstring& folder) {
    return fail(ExitCode::refused,
                to_utf8(folder) +
                    ": is an empty folder, and a release has only files; put a file into it, or leave it "
                    "out with --exclude",
                failure_);
  }

  bool cannot_read(const std::wstring& folder, uint32_t error) {
    return fail(ExitCode::failed, to_utf8(folder) + ": the folder cannot be read: " + error_text(error), failure_);
  }

  std::vector<Exclusion>& exclusions_;
  std::vector<GameFile>& files_;
  Failure& failure_;
};

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

bool list_game_folder(const std::wstring& folder, const std::vector<std::string>& exclude, std::vector<GameFile>& files,
                      std::vector<std::string>& unused, Failure& failure) {
  files.clear();
  unused.clear();
  std::vector<Exclusion> exclusions;
  exclusions.reserve(exclude.size());
  for (const std::string& pattern : exclude) exclusions.push_back({PathPattern(pattern)});
  if (!FolderWalk(exclusions, files, failure).walk(folder, "")) return false;
  for (size_t i = 0; i < exclude.size(); ++i) {
    if (!exclusions[i].used) unused.push_back(exclude[i]);
  }
  std::ranges::sort(files, {}, &GameFile::path);
  return !files.empty() ||
         fail(ExitCode::refused, to_utf8(folder) + ": there are no files to pack; a release needs at least one",
              failure);
}

}  // namespace kvx::publish
