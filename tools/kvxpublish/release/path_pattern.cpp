#include "tools/kvxpublish/release/path_pattern.h"

#include <algorithm>

#include "foundations/text.h"

namespace kvx::publish {
namespace {

// Tries the rest of the pattern at every place that the star can reach.
bool matches_star(std::wstring_view rest, std::wstring_view text, bool across_folders);

bool matches_whole(std::wstring_view pattern, std::wstring_view text) {
  while (!pattern.empty() && pattern.front() != L'*') {
    const bool same =
        !text.empty() && (pattern.front() == text.front() || (pattern.front() == L'?' && text[0] != L'/'));
    if (!same) return false;
    pattern.remove_prefix(1);
    text.remove_prefix(1);
  }
  if (pattern.empty()) return text.empty();
  if (!pattern.starts_with(L"**")) return matches_star(pattern.substr(1), text, false);
  pattern.remove_prefix(2);
  // "**/x" is also x in the top folder.
  if (pattern.starts_with(L'/') && matches_whole(pattern.substr(1), text)) return true;
  return matches_star(pattern, text, true);
}

bool matches_star(std::wstring_view rest, std::wstring_view text, bool across_folders) {
  for (;;) {
    if (matches_whole(rest, text)) return true;
    if (text.empty() || (text.front() == L'/' && !across_folders)) return false;
    text.remove_prefix(1);
  }
}

}  // namespace

PathPattern::PathPattern(std::string_view text) {
  std::string normal(text);
  std::ranges::replace(normal, '\\', '/');
  if (normal.ends_with('/')) normal.pop_back();
  name_alone_ = normal.find('/') == std::string::npos;
  if (normal.starts_with('/')) normal.erase(0, 1);
  pattern_ = to_upper(to_wide(normal));
}

bool PathPattern::matches(std::string_view path) const {
  if (name_alone_) path.remove_prefix(path.rfind('/') + 1);
  return matches_whole(pattern_, to_upper(to_wide(path)));
}

}  // namespace kvx::publish
