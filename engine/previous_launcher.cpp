#include "engine/previous_launcher.h"

#include <windows.h>

#include "foundations/clock.h"
#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/paths.h"
#include "foundations/text.h"

namespace kvx {
namespace {

constexpr int most_tries = 40;
constexpr uint32_t retry_pause_ms = 250;

bool delete_patiently(const std::wstring& path) {
  for (int tries = 0; tries < most_tries; ++tries) {
    uint32_t error = 0;
    if (delete_file_once(path, error)) return true;
    sleep_ms(retry_pause_ms);
  }
  return false;
}

std::wstring installed_launcher_path(const std::wstring& install_dir) { return install_dir + L"\\KVXLauncher.exe"; }

// The path with the file's long name, which may have been started by its short one.
std::wstring with_long_name(const std::wstring& path) {
  std::wstring result(GetLongPathNameW(path.c_str(), nullptr, 0), L'\0');
  result.resize(GetLongPathNameW(path.c_str(), result.data(), static_cast<DWORD>(result.size())));
  return result.empty() ? path : join_path(parent_path(path), file_name(result));
}

}  // namespace

std::wstring previous_launcher_path(const std::wstring& self_path) {
  constexpr std::wstring_view extension = L".exe";
  std::wstring stem = self_path;
  if (file_name(self_path).size() > extension.size() &&
      equals_ignore_case(std::wstring_view(self_path).substr(self_path.size() - extension.size()), extension)) {
    stem.resize(stem.size() - extension.size());
  }
  return stem + L".old.exe";
}

std::wstring new_launcher_path(const std::wstring& install_dir) { return install_dir + L"\\KVXLauncher.new.exe"; }

bool runs_as_new_launcher(const std::wstring& self_path, const std::wstring& install_dir) {
  return equals_ignore_case(with_long_name(self_path), new_launcher_path(install_dir));
}

bool runs_under_self_update_name(const std::wstring& self_path, const std::wstring& install_dir) {
  return runs_as_new_launcher(self_path, install_dir) ||
         equals_ignore_case(with_long_name(self_path), previous_launcher_path(installed_launcher_path(install_dir)));
}

bool copy_launcher(const std::wstring& from, const std::wstring& target, const std::wstring& temporary,
                   uint32_t& error) {
  if (copy_file(from, temporary, error) && flush_file(temporary, error) && move_file(temporary, target, error)) {
    return true;
  }
  uint32_t ignored = 0;
  static_cast<void>(delete_file(temporary, ignored));
  return false;
}

void restore_missing_launcher(const std::wstring& self_path, const std::wstring& install_dir,
                              const std::wstring& temporary) {
  uint32_t error = 0;
  const std::wstring installed = installed_launcher_path(install_dir);
  if (!runs_under_self_update_name(self_path, install_dir) || is_file(installed)) {
    static_cast<void>(delete_file_once(temporary, error));
    return;
  }
  if (copy_launcher(self_path, installed, temporary, error)) {
    log::write("KVXLauncher.exe was missing: restored from %s", to_utf8(file_name(self_path)).c_str());
  } else {
    log::write("KVXLauncher.exe is missing and cannot be restored: %s", error_text(error).c_str());
  }
}

void remove_previous_launcher(const std::wstring& self_path, const std::wstring& install_dir) {
  const std::wstring previous = previous_launcher_path(self_path);
  if (is_file(previous) && delete_patiently(previous)) {
    log::write("removed previous launcher %s", to_utf8(previous).c_str());
  }
  if (runs_as_new_launcher(self_path, install_dir)) return;  // a running program's file cannot be deleted
  uint32_t error = 0;
  static_cast<void>(delete_file(new_launcher_path(install_dir), error));
}

}  // namespace kvx
