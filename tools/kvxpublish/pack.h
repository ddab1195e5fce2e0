// `kvxpublish pack`: a game's folder becomes a release on a site.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/kvxpublish/failure.h"

namespace kvx::publish {

struct PackRequest {
  std::wstring game_folder;
  std::wstring site;
  std::string channel;
  std::string version;
  std::string exe;                 // relative to the game's folder; backslashes count as "/"
  std::optional<uint64_t> serial;  // by default one more than the published release's
  std::vector<std::string> args;
  std::string notes;
  uint64_t min_free_disk = 0;  // bytes
  std::vector<std::string> remove;
  std::wstring launcher;  // a launcher to hand out with the release, empty for none
  std::string launcher_version;
  std::wstring key;  // a PEM file, empty to leave the release unsigned
};

struct PackSummary {
  uint64_t serial = 0;
  size_t file_count = 0;
  uint64_t total_bytes = 0;
  size_t added_count = 0;  // pieces of content that the site did not have yet
  uint64_t added_bytes = 0;
  std::string key_identifier;  // empty when the release is unsigned
};

// Paths are full. On failure the site is as it was.
[[nodiscard]] bool pack(const PackRequest& request, PackSummary& summary, Failure& failure);

}  // namespace kvx::publish
