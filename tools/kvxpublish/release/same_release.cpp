#include "tools/kvxpublish/release/same_release.h"

#include <algorithm>
#include <map>
#include <utility>

namespace kvx::publish {
namespace {

using FileContents = std::map<std::string_view, std::pair<uint64_t, std::string_view>>;

// Sizes and digests by path; the digests are empty as long as the files have not been read.
FileContents contents_of(const auto& files, bool with_digests) {
  FileContents contents;
  for (const auto& file : files) contents[file.path] = {file.size, with_digests ? file.sha256 : std::string_view()};
  return contents;
}

bool same_launcher(const LauncherEntry& a, const LauncherEntry& b) {
  return a.present == b.present && a.version == b.version && a.sha256 == b.sha256 && a.size == b.size;
}

std::vector<std::string> removals_of(const Manifest& manifest) {
  std::vector<std::string> paths;
  paths.reserve(manifest.remove.size());
  for (const ManifestRemoval& removal : manifest.remove) paths.push_back(removal.path);
  std::ranges::sort(paths);
  return paths;
}

}  // namespace

bool looks_like(const ReleaseDescription& release, const Manifest& previous) {
  return release.version == previous.version && release.exe == previous.exe && release.args == previous.args &&
         release.notes == previous.notes &&
         same_launcher(release.launcher.value_or(LauncherEntry()), previous.launcher) &&
         release.remove == removals_of(previous) &&
         contents_of(release.files, false) == contents_of(previous.files, false);
}

bool has_same_content(const ReleaseDescription& release, const Manifest& previous) {
  return release.min_free_disk == previous.min_free_disk &&
         contents_of(release.files, true) == contents_of(previous.files, true);
}

}  // namespace kvx::publish
