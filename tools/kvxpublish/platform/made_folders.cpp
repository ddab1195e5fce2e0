#include "tools/kvxpublish/platform/made_folders.h"

#include <windows.h>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"

namespace kvx::publish {

bool make_folders(const std::wstring& folder, std::vector<std::wstring>& made, Failure& failure) {
  std::vector<std::wstring> missing;
  for (std::wstring path = folder; !path.empty() && !is_folder(path); path = parent_path(path)) missing.push_back(path);
  uint32_t error = 0;
  const bool done = create_folders(folder, error);
  std::erase_if(missing, [](const std::wstring& path) { return !is_folder(path); });
  made.insert(made.begin(), missing.begin(), missing.end());
  return done || fail(ExitCode::failed, to_utf8(folder) + ": the folder cannot be made: " + error_text(error), failure);
}

void remove_empty_folders(const std::vector<std::wstring>& made) {
  for (const std::wstring& folder : made) RemoveDirectoryW(long_path(folder).c_str());
}

}  // namespace kvx::publish
