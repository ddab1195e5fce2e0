#include "tools/kvxpublish/platform/folders.h"

#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {

bool list_entries(const fs::path& folder, std::vector<FolderEntry>& entries, Failure& failure) {
  std::string reason;
  return list_folder(folder, entries, reason) ||
         fail(ExitCode::failed, path_text(folder) + ": the folder cannot be read: " + reason, failure);
}

bool make_folders(const fs::path& folder, std::vector<fs::path>& made, Failure& failure) {
  std::vector<fs::path> missing;
  for (fs::path path = folder; !path.empty() && !is_folder(path); path = path.parent_path()) {
    missing.push_back(path);
    if (path == path.parent_path()) break;
  }
  for (; !missing.empty(); missing.pop_back()) {
    const fs::path& path = missing.back();
    std::string reason;
    bool exists = false;
    if (make_folder(path, exists, reason)) {
      made.insert(made.begin(), path);
    } else if (!exists || !is_folder(path)) {  // another program may have made it meanwhile
      return fail(ExitCode::failed, path_text(folder) + ": the folder cannot be made: " + reason, failure);
    }
  }
  return true;
}

void remove_empty_folders(const std::vector<fs::path>& made) {
  for (const fs::path& folder : made) discard_empty_folder(folder);
}

}  // namespace kvx::publish
