#include "foundations/child_process.h"

#include <windows.h>

#include "foundations/log.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"

namespace kvx {
namespace {

// The longest working folder that the system takes, whatever the program's manifest says of long paths.
constexpr size_t longest_folder_chars = MAX_PATH - 2;

// The folder itself on a volume without short names, empty when the system does not say.
std::wstring short_path(const std::wstring& folder) {
  const std::wstring path = long_path(folder);
  std::wstring result(GetShortPathNameW(path.c_str(), nullptr, 0), L'\0');
  result.resize(GetShortPathNameW(path.c_str(), result.data(), static_cast<DWORD>(result.size())));
  return without_long_path_prefix(result);
}

// Empty when the folder is too long to be one.
std::wstring as_current_folder(const std::wstring& folder) {
  if (folder.ends_with(L':')) return folder + L'\\';  // "C:" alone means the current folder of that drive, not its root
  if (folder.size() <= longest_folder_chars) return folder;
  std::wstring shorter = short_path(folder);
  if (shorter.size() > longest_folder_chars) shorter.clear();
  return shorter;
}

}  // namespace

bool start_program(const std::wstring& program, const std::wstring& command_line, const std::wstring& folder,
                   uint32_t& process_id, uint32_t& error) {
  std::wstring writable_command_line = command_line;  // the call may change it
  const std::wstring current_folder = as_current_folder(folder);
  if (current_folder.empty()) {
    log::write("the folder's path is too long for a working folder: starting %s without it", to_utf8(program).c_str());
  }
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  if (CreateProcessW(program.c_str(), writable_command_line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                     current_folder.empty() ? nullptr : current_folder.c_str(), &startup, &started) == 0) {
    error = GetLastError();
    return false;
  }
  const KernelHandle process(started.hProcess);
  const KernelHandle thread(started.hThread);
  process_id = started.dwProcessId;
  return true;
}

}  // namespace kvx
