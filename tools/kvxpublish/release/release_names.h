// Names that the launcher would take but Windows, or the way releases are installed, would not. Pure functions; any
// thread.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

// A longer name has no room for the ".copy" that an install adds for a moment.
constexpr size_t longest_name = 250;  // UTF-16 units

// The paths of one release, with "/". Refuses names that are too long, names of devices, two that Windows or other
// programs take for the same, a file where another one needs a folder, and "p.copy" beside "p", which an install would
// overwrite.
[[nodiscard]] bool check_release_names(const std::vector<std::string>& paths, Failure& failure);

// Refuses what cannot be installed over the earlier releases whose files were `earlier`: an install places all new
// files before it removes old ones, and leaves folders alone, so that no name may turn from a file into a folder or
// back.
[[nodiscard]] bool check_names_against(const std::vector<std::string>& earlier, const std::vector<std::string>& paths,
                                       Failure& failure);

}  // namespace kvx::publish
