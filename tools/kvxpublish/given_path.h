// Paths as a person writes them.
#pragma once

#include <string>

namespace kvx::publish {

// The full path of what the command line names, with either kind of slash; an empty text stays empty.
[[nodiscard]] std::wstring given_path(const std::string& path);

}  // namespace kvx::publish
