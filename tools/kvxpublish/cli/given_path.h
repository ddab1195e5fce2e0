// Paths as a person writes them.
#pragma once

#include <string>

namespace kvx::publish {

// The full path of what the command line names, with either kind of slash; an empty text stays empty.
[[nodiscard]] std::wstring given_path(const std::string& path);

// Whether a full path is the folder itself or lies in it.
[[nodiscard]] bool lies_in(const std::wstring& path, const std::wstring& folder);

}  // namespace kvx::publish
