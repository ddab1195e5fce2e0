#include "launcher/running_program.h"

#include <windows.h>
#include <tlhelp32.h>

#include "foundations/log.h"
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

}  // namespace

bool find_running_program(const std::wstring& install_dir, std::wstring& image_path) {
  const FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return false;
  // With the backslash, a sibling folder whose name merely starts with this one's does not match.
  const std::wstring prefix = install_dir + L'\\';
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Process32FirstW(snapshot.get(), &entry); more != 0; more = Process32NextW(snapshot.get(), &entry)) {
    if (entry.th32ProcessID == 0 || entry.th32ProcessID == GetCurrentProcessId()) continue;
    std::wstring path = image_path_of(entry.th32ProcessID);
    if (starts_with_ignore_case(path, prefix)) {
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
