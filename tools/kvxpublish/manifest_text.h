// The manifest document: writing it, and the launcher's own judgement of it before it is published.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "manifest/manifest.h"
#include "tools/kvxpublish/failure.h"
#include "tools/kvxpublish/game_folder.h"

namespace kvx::publish {

constexpr uint64_t manifest_limit_bytes = 67108864;  // launchers fetch no larger one
constexpr uint64_t launcher_limit_bytes = 268435456;

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

// Reads a document as launchers on `channel` will, and refuses it with their message.
[[nodiscard]] bool check_as_launcher(std::string_view manifest, const std::string& channel, Failure& failure);
[[nodiscard]] bool check_as_launcher(std::string_view manifest, const std::string& channel, Manifest& read,
                                     Failure& failure);

}  // namespace kvx::publish
