#include "tools/kvxpublish/site/release_content.h"

#include <map>

namespace kvx::publish {

std::vector<Content> content_of(const Manifest& manifest) {
  std::map<std::string, uint64_t> sizes;
  for (const ManifestFile& file : manifest.files) sizes.emplace(file.sha256, file.size);
  if (manifest.launcher.present) sizes.emplace(manifest.launcher.sha256, manifest.launcher.size);
  std::vector<Content> content;
  content.reserve(sizes.size());
  for (const auto& [sha256, size] : sizes) content.push_back({sha256, size});
  return content;
}

uint64_t total_bytes(const std::vector<Content>& content) {
  uint64_t bytes = 0;
  for (const Content& piece : content) bytes += piece.size;
  return bytes;
}

}  // namespace kvx::publish
