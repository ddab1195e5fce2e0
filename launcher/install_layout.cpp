#include "launcher/install_layout.h"

#include <windows.h>

#include "foundations/paths.h"

namespace kvx {
namespace {

// Without the backslash of a drive root, so that a backslash and a name can always follow.
std::wstring folder_of(const std::wstring& file) {
  std::wstring folder = parent_path(file);
  if (folder.size() == 3 && folder[1] == L':') folder.pop_back();
  return folder;
}

}  // namespace

InstallLayout make_install_layout(const std::wstring& module_path) {
  InstallLayout layout;
  layout.self_path = full_path(without_long_path_prefix(module_path));
  layout.self_name = file_name(layout.self_path);
  layout.install_dir = folder_of(layout.self_path);
  layout.staging_dir = layout.install_dir + L"\\.kvx_patch";
  layout.download_dir = layout.staging_dir + L"\\dl";
  layout.blobs_dir = layout.staging_dir + L"\\blobs";
  layout.launcher_copy = layout.staging_file(L"KVXLauncher.exe.tmp");
  return layout;
}

bool find_install_layout(InstallLayout& out) {
  constexpr DWORD buffer_chars = 32768;
  std::wstring path(buffer_chars, L'\0');
  const DWORD length = GetModuleFileNameW(nullptr, path.data(), buffer_chars);
  if (length == 0 || length >= buffer_chars - 1) return false;  // failed, or cut off
  path.resize(length);
  out = make_install_layout(path);
  return true;
}

}  // namespace kvx
