#include "tools/kvxpublish/release/removals.h"

#include <algorithm>
#include <set>

#include "manifest/managed_path.h"

namespace kvx::publish {

std::vector<std::string> removal_list(const Manifest& previous, const std::vector<GameFile>& files,
                                      const std::vector<std::string>& more) {
  std::vector<std::string> list;
  std::set<std::wstring> listed;
  const auto add = [&](const std::string& path, const std::wstring& native) {
    if (listed.insert(path_identity(native)).second) list.push_back(path);
  };
  for (const std::string& path : more) add(path, native_path(path));
  std::set<std::wstring> installed;
  for (const GameFile& file : files) installed.insert(path_identity(native_path(file.path)));
  const auto add_unless_installed = [&](const auto& entry) {
    if (!installed.contains(path_identity(entry.native_path()))) add(entry.path, entry.native_path());
  };
  std::ranges::for_each(previous.files, add_unless_installed);
  std::ranges::for_each(previous.remove, add_unless_installed);
  std::ranges::sort(list);
  return list;
}

}  // namespace kvx::publish
