#include "launcher/running_program.h"

#include <windows.h>
#include <tlhelp32.h>

#include "foundations/log.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

// Empty when the process cannot be looked at.
std::wstring image_path_of(DWORD process_id) {
  const KernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
  if (!process) return {};
  DWORD length = 32768;
  std::wstring path(length, L'\0');
  if (QueryFullProcessImageNameW(process.get(), 0, path.data(), &length) == 0) return {};
  path.resize(length);
  return path;
}

// The folder's path as the system names images in it, also where the folder is reached through a drive that stands for
// another folder. Empty when the system does not say.
std::wstring final_path(const std::wstring& folder) {
  const FileHandle handle(CreateFileW(long_path(folder + L'\\').c_str(), 0,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!handle) return {};
  std::wstring path(GetFinalPathNameByHandleW(handle.get(), nullptr, 0, FILE_NAME_NORMALIZED), L'\0');
  path.resize(
      GetFinalPathNameByHandleW(handle.get(), path.data(), static_cast<DWORD>(path.size()), FILE_NAME_NORMALIZED));
  path = without_long_path_prefix(path);
  if (path.ends_with(L'\\')) path.pop_back();
  return path;
}

class InstallFolderPrefixes {
 public:
  explicit InstallFolderPrefixes(const std::wstring& folder)
      // With the backslash, a sibling folder whose name merely starts with this one's does not match.
      : given_(folder + L'\\'), final_(final_path(folder) + L'\\') {}

  [[nodiscard]] bool contains(const std::wstring& path) const {
    return starts_with_ignore_case(path, given_) || (final_.size() > 1 && starts_with_ignore_case(path, final_));
  }

 private:
  const std::wstring given_;
  const std::wstring final_;
};

}  // namespace

bool find_running_program(const std::wstring& install_dir, std::wstring& image_path) {
  const FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return false;
  const InstallFolderPrefixes folder(install_dir);
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Process32FirstW(snapshot.get(), &entry); more != 0; more = Process32NextW(snapshot.get(), &entry)) {
    if (entry.th32ProcessID == 0 || entry.th32ProcessID == GetCurrentProcessId()) continue;
    std::wstring path = image_path_of(entry.th32ProcessID);
    if (folder.contains(path)) {
      image_path = std::move(path);
      return true;
    }
  }
  return false;
}

bool wait_until_game_closed(Ui& ui, const std::wstring& install_dir) {
  std::wstring program;
  while (find_running_program(install_dir, program)) {
    log::write("a program from the install folder is running: %s", to_utf8(program).c_str());
    const std::wstring question =
        L"KVX is still running:\n" + program + L"\n\nPlease close the game, then press Retry to install the update.";
    if (ui.message_box(question, style_retry) != button_retry) return false;
  }
  return true;
}

}  // namespace kvx
