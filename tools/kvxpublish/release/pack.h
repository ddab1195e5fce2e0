// Making a release on a site out of a game's folder.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/kvxpublish/cli/console.h"
#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/earlier_releases.h"

namespace kvx::publish {

// Paths are full.
struct PackRequest {
  fs::path game_folder;
  fs::path site;
  PreviousSource previous;
  std::string public_keys;  // whose signature the release before may bear, as load_trusted_keys takes it
  std::string channel;
  std::string version;
  std::string exe;                        // relative to the game's folder; backslashes count as "/"
  std::optional<uint64_t> serial;         // by default one more than the largest that is known
  std::optional<uint64_t> min_free_disk;  // bytes; nothing means as much as an install can need
  std::vector<std::string> args;
  std::vector<std::string> exclude;  // patterns
  std::vector<std::string> remove;   // beside what the release before calls for
  fs::path notes;                    // a file with the notes, empty for none
  fs::path launcher;                 // a launcher to hand out with the release, empty for none
  fs::path key;                      // a PEM file, empty to leave the release unsigned
};

struct PackSummary {
  uint64_t serial = 0;
  size_t file_count = 0;
  uint64_t total_bytes = 0;
  size_t removal_count = 0;
  size_t added_count = 0;  // pieces of content that the site did not have yet
  uint64_t added_bytes = 0;
  std::string launcher_version;  // empty when the release hands out none
  std::string key_identifier;    // empty when the release is unsigned
  std::vector<std::string> notes;
};

// On failure the site is as it was. When the release before has the same content and, with a key, a signature, the
// failure is `nothing_to_do`.
[[nodiscard]] bool pack(const PackRequest& request, Console& console, PackSummary& summary, Failure& failure);

}  // namespace kvx::publish
