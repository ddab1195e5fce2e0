// The folders and files that a run works with, derived from where the launcher itself lies: the game is installed into
// that folder.
#pragma once

#include <string>

namespace kvx {

struct InstallLayout {
  std::wstring install_dir;   // a drive root has no trailing backslash: "D:"
  std::wstring self_path;     // the launcher's full path, without a long-path prefix
  std::wstring self_name;     // its file name
  std::wstring staging_dir;   // install_dir + "\.kvx_patch"
  std::wstring download_dir;  // staging_dir + "\dl"
  std::wstring blobs_dir;     // staging_dir + "\blobs"

  std::wstring launcher_copy;  // staging_dir + "\KVXLauncher.exe.tmp": the launcher's file until it is moved into place

  // A file of the launcher's own, in the staging folder.
  [[nodiscard]] std::wstring staging_file(const wchar_t* name) const { return staging_dir + L'\\' + name; }
};

// `module_path` is the launcher's path as the system gives it.
[[nodiscard]] InstallLayout make_install_layout(const std::wstring& module_path);

// The layout of this process's own program; false when the system does not tell its path.
[[nodiscard]] bool find_install_layout(InstallLayout& out);

}  // namespace kvx
