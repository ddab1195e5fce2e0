// What launchers fetch for a release, beside its manifest. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "manifest/manifest.h"

namespace kvx::publish {

struct Content {
  std::string sha256;
  uint64_t size = 0;  // bytes
};

// The content of all files and of the launcher, each digest once, in ascending order.
[[nodiscard]] std::vector<Content> content_of(const Manifest& manifest);

[[nodiscard]] uint64_t total_bytes(const std::vector<Content>& content);

}  // namespace kvx::publish
