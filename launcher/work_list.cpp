#include "launcher/work_list.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "foundations/files.h"

namespace kvx {

size_t count_removable(const Manifest& manifest, const std::wstring& install_dir, const StopSignal& stop) {
  const auto count = std::count_if(manifest.remove.begin(), manifest.remove.end(), [&](const ManifestRemoval& removal) {
    return !stop.requested() && is_file(install_dir + L'\\' + removal.native_path());
  });
  return static_cast<size_t>(count);
}

void plan_downloads(const Manifest& manifest, const StagedBytes& staged_bytes, WorkList& work) {
  std::map<std::string_view, uint64_t> size_by_digest;
  for (const uint64_t index : work.files_to_replace) {
    const ManifestFile& file = manifest.files[index];
    size_by_digest.emplace(file.sha256, file.size);
  }
  for (const auto& [digest, size] : size_by_digest) {
    BlobJob job{std::string(digest), size};
    work.download_bytes += size;
    work.staged_bytes += staged_bytes(job.hash, size);
    work.downloads.push_back(std::move(job));
  }
  work.needed_bytes = manifest.min_free_disk + work.download_bytes - work.staged_bytes;
}

}  // namespace kvx
