// Writing the manifest document.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "manifest/manifest.h"
#include "tools/kvxpublish/release/game_folder.h"

namespace kvx::publish {

struct ReleaseDescription {
  std::string channel;
  std::string version;
  std::string exe;  // relative to the game's folder, with "/"
  uint64_t serial = 0;
  std::vector<std::string> args;
  std::string notes;
  uint64_t min_free_disk = 0;  // bytes
  std::vector<std::string> remove;
  std::vector<GameFile> files;
  std::optional<LauncherEntry> launcher;
};

// UTF-8 with members in a fixed order, so that the same release gives the same bytes.
[[nodiscard]] std::string manifest_text(const ReleaseDescription& release);

}  // namespace kvx::publish
