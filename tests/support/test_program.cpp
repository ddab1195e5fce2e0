// Stands in for a program in the install folder: it writes down how it was started, what the launcher would make of its
// command line and which other program it sees in its own folder, and then ends, or waits until the test lets it go.
//   test_program [wait-for=EVENT] [ANYTHING...]
// started.txt in the working directory, UTF-8, one "name=value" a line; it appears all at once.
#include <windows.h>
#include <shellapi.h>

#include <string>
#include <string_view>

#include "foundations/files.h"
#include "foundations/text.h"
#include "launcher/install_layout.h"
#include "launcher/options.h"
#include "launcher/running_program.h"

namespace {

constexpr std::wstring_view wait_for = L"wait-for=";
constexpr DWORD longest_wait_ms = 300000;

std::string line(const char* name, const std::wstring& value) {
  return std::string(name) + "=" + kvx::to_utf8(value) + "\n";
}

std::string describe(const kvx::Options& options) {
  std::string text = line("channel", options.channel) + line("base_url", options.base_url);
  text += "flags=";
  for (const bool flag :
       {options.unattended, options.hidden, options.no_launch, options.repair, options.self_updated}) {
    text += flag ? '1' : '0';
  }
  text += "\nwait_pid=" + std::to_string(options.wait_pid) + "\n";
  for (const std::wstring& option : options.forwarded_options) text += line("forwarded", option);
  for (const std::wstring& argument : options.passthrough_args) text += line("passthrough", argument);
  return text;
}

std::wstring other_program() {
  kvx::InstallLayout own;
  std::wstring path;
  return kvx::find_install_layout(own) && kvx::find_running_program(own.install_dir, path) ? path : L"none";
}

}  // namespace

int wmain(int count, wchar_t** arguments) {  // NOLINT(misc-use-internal-linkage): the runtime calls it
  wchar_t folder[MAX_PATH + 1];
  const DWORD length = GetCurrentDirectoryW(MAX_PATH, folder);
  const std::wstring directory(folder, length);
  std::string record = line("directory", directory);
  std::wstring event_name;
  for (int i = 1; i < count; ++i) {
    const std::wstring argument = arguments[i];
    record += line("argument", argument);
    if (argument.starts_with(wait_for)) event_name = argument.substr(wait_for.size());
  }
  record += describe(kvx::parse_command_line()) + line("other_program", other_program());
  if (!kvx::write_file_atomic(directory + L"\\started.txt", record)) return 1;
  if (event_name.empty()) return 0;
  HANDLE event = OpenEventW(SYNCHRONIZE, FALSE, event_name.c_str());
  if (event == nullptr) return 2;
  WaitForSingleObject(event, longest_wait_ms);
  CloseHandle(event);
  return 0;
}
