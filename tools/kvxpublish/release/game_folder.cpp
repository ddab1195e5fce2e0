#include "tools/kvxpublish/release/game_folder.h"

#include <algorithm>

#include "foundations/text.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"
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

  bool walk(const fs::path& folder, const std::string& prefix) {
    std::vector<FolderEntry> entries;
    std::string reason;
    if (!list_folder(folder, entries, reason)) {
      return fail(ExitCode::failed, path_text(folder) + ": the folder cannot be read: " + reason, failure_);
    }
    for (const FolderEntry& entry : entries) {
      if (!visit(folder, entry, prefix)) return false;
    }
    return !entries.empty() || prefix.empty() || refuse_empty(folder);
  }

 private:
  bool visit(const fs::path& folder, const FolderEntry& entry, const std::string& prefix) {
    const fs::path path = folder / entry.name;
    const std::string name = path_text(entry.name);
    const std::string relative = prefix + name;
    if (is_excluded(relative)) return true;
    if (path_of(name) != entry.name || to_utf8(to_wide(name)) != name) {
      return fail(ExitCode::refused, path_text(path) + ": the name is not valid Unicode; rename the file", failure_);
    }
    switch (entry.kind) {
      case FileKind::folder: return walk(path, relative + '/');
      case FileKind::link:
        return fail(ExitCode::refused, path_text(path) + ": is a link; put the file itself in its place", failure_);
      case FileKind::other:
        return fail(ExitCode::refused,
                    path_text(path) + ": is neither a file nor a folder; leave it out with --exclude", failure_);
      default: return add_file(path, relative);
    }
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
  bool add_file(const fs::path& path, const std::string& relative) {
    FileStamp stamp;
    FileKind kind{};
    std::string reason;
    if (!file_stamp(path, stamp, kind, reason)) {
      return fail(ExitCode::failed, path_text(path) + ": cannot be read: " + reason, failure_);
    }
    files_.push_back({relative, path, stamp.size, stamp.last_write_time, {}});
    return true;
  }

  bool refuse_empty(const fs::path& folder) {
    return fail(ExitCode::refused,
                path_text(folder) +
                    ": is an empty folder, and a release has only files; put a file into it, or leave it "
                    "out with --exclude",
                failure_);
  }

  std::vector<Exclusion>& exclusions_;
  std::vector<GameFile>& files_;
  Failure& failure_;
};

}  // namespace

bool list_game_folder(const fs::path& folder, const std::vector<std::string>& exclude, std::vector<GameFile>& files,
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
         fail(ExitCode::refused, path_text(folder) + ": there are no files to pack; a release needs at least one",
              failure);
}

}  // namespace kvx::publish
