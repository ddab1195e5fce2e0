// Keeping private keys out of releases.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/failure.h"
#include "tools/kvxpublish/game_folder.h"

namespace kvx::publish {

// False when one of the files is `key`, the full path of the signing key or empty, or begins as a PEM file with a
// private key does. A file that cannot be read passes; packing it fails for that reason.
[[nodiscard]] bool check_no_private_key(const std::vector<GameFile>& files, const std::wstring& key, Failure& failure);

}  // namespace kvx::publish
