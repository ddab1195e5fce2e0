#include "tools/kvxpublish/platform/paths.h"

#include "foundations/paths.h"
#include "foundations/text.h"

namespace kvx::publish {

std::string path_text(const fs::path& path) { return to_utf8(path.native()); }

fs::path path_of(std::string_view text) { return fs::path(to_wide(text)).make_preferred(); }

fs::path given_path(const std::string& path) {
  return path.empty() ? fs::path() : fs::path(full_path(path_of(path).native()));
}

bool is_same_path(const fs::path& a, const fs::path& b) { return equals_ignore_case(a.native(), b.native()); }

bool lies_in(const fs::path& path, const fs::path& folder) {
  const std::wstring prefix = folder.native().ends_with(L'\\') ? folder.native() : folder.native() + L'\\';
  return is_same_path(path, folder) || starts_with_ignore_case(path.native(), prefix);
}

}  // namespace kvx::publish
