// Folders that a command looks into, and those that it makes for what it writes and takes away again when it writes
// nothing.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/files.h"

namespace kvx::publish {

// Ordered by name. A folder that is not there has no entries, one that cannot be read is a failure.
[[nodiscard]] bool list_entries(const fs::path& folder, std::vector<FolderEntry>& entries, Failure& failure);

// Makes the folder and its missing parents. Those that were missing go to the front of `made`, innermost first, also
// when only some of them could be made.
[[nodiscard]] bool make_folders(const fs::path& folder, std::vector<fs::path>& made, Failure& failure);

// Folders that have got something in them stay.
void remove_empty_folders(const std::vector<fs::path>& made);

}  // namespace kvx::publish
