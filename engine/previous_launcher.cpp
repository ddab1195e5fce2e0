#include "engine/previous_launcher.h"

#include <cstdint>

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

namespace {

std::wstring installed_launcher_path(const std::wstring& install_dir) { return install_dir + L"\\KVXLauncher.exe"; }

}  // namespace

std::wstring new_launcher_path(const std::wstring& install_dir) { return install_dir + L"\\KVXLauncher.new.exe"; }

bool is_left_by_a_self_update(const std::wstring& self_path, const std::wstring& install_dir) {
  return equals_ignore_case(self_path, new_launcher_path(install_dir)) ||
         equals_ignore_case(self_path, previous_launcher_path(installed_launcher_path(install_dir)));
}

void restore_missing_launcher(const std::wstring& self_path, const std::wstring& install_dir,
                              const std::wstring& temporary) {
  const std::wstring installed = installed_launcher_path(install_dir);
  if (!is_left_by_a_self_update(self_path, install_dir) || is_file(installed)) return;
  uint32_t error = 0;
  if (copy_file(self_path, temporary, error) && flush_file(temporary, error) &&
      move_file(temporary, installed, error)) {
    log::write("KVXLauncher.exe was missing: restored from %s", to_utf8(file_name(self_path)).c_str());
    return;
  }
  log::write("KVXLauncher.exe is missing and cannot be restored: %s", error_text(error).c_str());
  static_cast<void>(delete_file(temporary, error));
}

void remove_previous_launcher(const std::wstring& self_path, const std::wstring& install_dir) {
  const std::wstring previous = previous_launcher_path(self_path);
  if (is_file(previous) && delete_patiently(previous)) {
    log::write("removed previous launcher %s", to_utf8(previous).c_str());
  }
  const std::wstring new_file = new_launcher_path(install_dir);
  if (equals_ignore_case(self_path, new_file)) return;  // a running program's file cannot be deleted
  uint32_t error = 0;
  static_cast<void>(delete_file(new_file, error));
}

}  // namespace kvx
