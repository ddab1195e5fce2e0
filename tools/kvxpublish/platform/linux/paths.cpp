#include "tools/kvxpublish/platform/paths.h"

#include <algorithm>

namespace kvx::publish {

std::string path_text(const fs::path& path) { return path.native(); }

fs::path path_of(std::string_view text) { return {text}; }

fs::path given_path(const std::string& path) {
  if (path.empty()) return {};
  std::error_code ignored;
  fs::path full = fs::absolute(path, ignored).lexically_normal();
  return full.has_filename() || !full.has_relative_path() ? full : full.parent_path();
}

bool is_same_path(const fs::path& a, const fs::path& b) { return a == b; }

bool lies_in(const fs::path& path, const fs::path& folder) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

}  // namespace kvx::publish
