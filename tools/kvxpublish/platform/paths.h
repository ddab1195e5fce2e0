// Paths between the command line, messages and the file system. Any thread.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kvx::publish {

namespace fs = std::filesystem;

// UTF-8, as messages show a path; with the separators of the system.
[[nodiscard]] std::string path_text(const fs::path& path);

// A path of UTF-8 with "/" between names, as manifests and sites have them.
[[nodiscard]] fs::path path_of(std::string_view text);

// The full path of what the command line names, without a separator at its end; an empty text stays empty.
[[nodiscard]] fs::path given_path(const std::string& path);

// As the file system compares names: without regard to case on Windows, exactly elsewhere.
[[nodiscard]] bool is_same_path(const fs::path& a, const fs::path& b);

// Whether a full path is the folder itself or lies in it.
[[nodiscard]] bool lies_in(const fs::path& path, const fs::path& folder);

}  // namespace kvx::publish
