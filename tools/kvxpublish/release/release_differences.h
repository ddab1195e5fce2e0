// What tells one release from another, as launchers see it. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "manifest/manifest.h"
#include "tools/kvxpublish/site/release_content.h"

namespace kvx::publish {

struct ChangedFile {
  std::string path;  // as the new release writes it
  uint64_t size = 0;
  uint64_t former_size = 0;
};

struct ReleaseDifferences {
  std::vector<ManifestFile> added;
  std::vector<ChangedFile> changed;
  std::vector<ManifestFile> removed;
  size_t same_count = 0;
  // What a player downloads who has the old release whole. Content that merely has a new path counts too: a launcher
  // looks for each file under its own path only.
  std::vector<Content> downloads;
};

// The files of `next` against those of `former`, each list in the order of its release. Names are compared as launchers
// compare them.
[[nodiscard]] ReleaseDifferences compare_releases(const Manifest& next, const Manifest& former);

}  // namespace kvx::publish
