#include "tools/kvxpublish/cli/given_path.h"

#include <algorithm>

#include "foundations/paths.h"
#include "foundations/text.h"

namespace kvx::publish {

std::wstring given_path(const std::string& path) {
  std::wstring wide = to_wide(path);
  std::ranges::replace(wide, L'/', L'\\');
  return wide.empty() ? wide : full_path(wide);
}

bool lies_in(const std::wstring& path, const std::wstring& folder) {
  const std::wstring prefix = folder.ends_with(L'\\') ? folder : folder + L'\\';
  return equals_ignore_case(path, folder) || starts_with_ignore_case(path, prefix);
}

}  // namespace kvx::publish
