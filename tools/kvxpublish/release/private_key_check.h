// Keeping private keys out of releases.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/game_folder.h"

namespace kvx::publish {

// False when one of the files is `key`, the full path of the signing key or empty. Opens no file.
[[nodiscard]] bool check_key_is_elsewhere(const std::vector<GameFile>& files, const fs::path& key, Failure& failure);

// False when the file begins as a PEM file with a private key does. `count` is how much of its beginning was read; the
// first 4 KiB are looked at.
[[nodiscard]] bool check_no_private_key(const GameFile& file, const uint8_t* bytes, size_t count, Failure& failure);

}  // namespace kvx::publish
