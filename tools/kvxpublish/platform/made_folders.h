// Folders that a command makes for what it writes, and takes away again when it writes nothing.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

// Makes the folder and its missing parents. Those that were missing go to the front of `made`, innermost first, also
// when only some of them could be made.
[[nodiscard]] bool make_folders(const std::wstring& folder, std::vector<std::wstring>& made, Failure& failure);

// Folders that have got something in them stay.
void remove_empty_folders(const std::vector<std::wstring>& made);

}  // namespace kvx::publish
