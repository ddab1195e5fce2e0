#include "tools/kvxpublish/given_path.h"

#include <algorithm>

#include "foundations/paths.h"
#include "foundations/text.h"

namespace kvx::publish {

std::wstring given_path(const std::string& path) {
  std::wstring wide = to_wide(path);
  std::ranges::replace(wide, L'/', L'\\');
  return wide.empty() ? wide : full_path(wide);
}

}  // namespace kvx::publish
