#include "engine/previous_launcher.h"

#include <cstdint>

#include "foundations/clock.h"
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

std::wstring new_launcher_path(const std::wstring& install_dir) { return install_dir + L"\\KVXLauncher.new.exe"; }

void remove_previous_launcher(const std::wstring& self_path, const std::wstring& install_dir) {
  const std::wstring previous = previous_launcher_path(self_path);
  if (is_file(previous) && delete_patiently(previous)) {
    log::write("removed previous launcher %s", to_utf8(previous).c_str());
  }
  uint32_t error = 0;
  static_cast<void>(delete_file(new_launcher_path(install_dir), error));
}

}  // namespace kvx
