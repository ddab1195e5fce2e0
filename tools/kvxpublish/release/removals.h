// Which files of older releases a new one deletes. Pure functions; any thread.
#pragma once

#include <string>
#include <vector>

#include "manifest/manifest.h"
#include "tools/kvxpublish/release/game_folder.h"

namespace kvx::publish {

// Everything that the previous release installed or deleted and the new one does not have, ordered by path. What older
// releases deleted is carried on, because a player may come from any of them. Names are compared as launchers compare
// them; `more` is added without a look at the new files.
[[nodiscard]] std::vector<std::string> removal_list(const Manifest& previous, const std::vector<GameFile>& files,
                                                    const std::vector<std::string>& more);

}  // namespace kvx::publish
