#include "foundations/child_process.h"

#include <windows.h>

#include "foundations/system_handles.h"

namespace kvx {
namespace {

// "C:" alone means the current folder of that drive, not its root.
std::wstring as_current_folder(const std::wstring& folder) { return folder.ends_with(L':') ? folder + L'\\' : folder; }

}  // namespace

bool start_program(const std::wstring& program, const std::wstring& command_line, const std::wstring& folder,
                   uint32_t& process_id, uint32_t& error) {
  std::wstring writable_command_line = command_line;  // the call may change it
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  if (CreateProcessW(program.c_str(), writable_command_line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                     as_current_folder(folder).c_str(), &startup, &started) == 0) {
    error = GetLastError();
    return false;
  }
  const KernelHandle process(started.hProcess);
  const KernelHandle thread(started.hThread);
  process_id = started.dwProcessId;
  return true;
}

}  // namespace kvx
