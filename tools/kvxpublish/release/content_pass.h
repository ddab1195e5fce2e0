// Reading all files of a game, on all cores, each as few times as possible. A file that is not what it was when the
// folder was listed, in size, time or content, is a failure, and so is one that holds a private key.
#pragma once

#include <vector>

#include "tools/kvxpublish/cli/console.h"
#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/release/game_folder.h"
#include "tools/kvxpublish/site/site.h"

namespace kvx::publish {

// Fills the digests and writes nothing.
[[nodiscard]] bool measure_files(std::vector<GameFile>& files, Console& console, Failure& failure);

// Adds the content of the files to a site and fills their digests. A digest that is known already must still be right.
[[nodiscard]] bool store_files(std::vector<GameFile>& files, SiteWriter& writer, Console& console, Failure& failure);

}  // namespace kvx::publish
