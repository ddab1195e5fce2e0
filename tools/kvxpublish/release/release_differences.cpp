#include "tools/kvxpublish/release/release_differences.h"

#include <unordered_map>
#include <unordered_set>

#include "manifest/managed_path.h"

namespace kvx::publish {

ReleaseDifferences compare_releases(const Manifest& next, const Manifest& former) {
  std::unordered_map<std::wstring, const ManifestFile*> former_files;
  for (const ManifestFile& file : former.files) former_files.emplace(path_identity(file.native_path()), &file);
  ReleaseDifferences differences;
  Manifest to_fetch;
  std::unordered_set<std::wstring> next_files;
  for (const ManifestFile& file : next.files) {
    const std::wstring identity = path_identity(file.native_path());
    next_files.insert(identity);
    const auto before = former_files.find(identity);
    if (before != former_files.end() && before->second->sha256 == file.sha256) {
      ++differences.same_count;
      continue;
    }
    to_fetch.files.push_back(file);
    if (before == former_files.end()) {
      differences.added.push_back(file);
    } else {
      differences.changed.push_back({file.path, file.size, before->second->size});
    }
  }
  for (const ManifestFile& file : former.files) {
    if (!next_files.contains(path_identity(file.native_path()))) differences.removed.push_back(file);
  }
  differences.downloads = content_of(to_fetch);
  return differences;
}

}  // namespace kvx::publish
