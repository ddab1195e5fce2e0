#include "launcher/options.h"

#include <windows.h>
#include <shellapi.h>

#include <cwchar>
#include <string_view>

namespace kvx {
namespace {

// Fills `value` with what follows `name` in "name" + value.
bool take_value(const std::wstring& argument, std::wstring_view name, std::wstring& value) {
  if (!argument.starts_with(name)) return false;
  value = argument.substr(name.size());
  return true;
}

// True when the option is one that a self-update passes on.
bool apply_forwarded_option(const std::wstring& argument, Options& options) {
  if (take_value(argument, L"--channel=", options.channel)) return true;
  if (argument == L"--test") {
    options.channel = L"test";
    return true;
  }
  if (take_value(argument, L"--base-url=", options.base_url)) return true;
  if (argument == L"--unattended") return options.unattended = true;
  if (argument == L"--hidden") return options.hidden = true;
  if (argument == L"--no-launch") return options.no_launch = true;
  if (argument == L"--repair") return options.repair = true;
  return false;
}

// The marks of one hand-over, which must not reach the next.
void apply_hand_over_option(const std::wstring& argument, Options& options) {
  std::wstring number;
  if (argument == L"--self-updated") {
    options.self_updated = true;
  } else if (take_value(argument, L"--wait-pid=", number)) {
    options.wait_pid = std::wcstoul(number.c_str(), nullptr, 10);
  }
}

}  // namespace

Options parse_arguments(const std::vector<std::wstring>& arguments) {
  Options options;
  bool options_ended = false;
  for (const std::wstring& argument : arguments) {
    if (!options_ended && argument == L"--") {
      options_ended = true;
    } else if (options_ended || !argument.starts_with(L"--")) {
      options.passthrough_args.push_back(argument);
    } else if (apply_forwarded_option(argument, options)) {
      options.forwarded_options.push_back(argument);
    } else {
      apply_hand_over_option(argument, options);
    }
  }
  return options;
}

Options parse_command_line() {
  int count = 0;
  wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  if (arguments == nullptr) return {};
  const std::vector<std::wstring> after_program(arguments + (count > 0 ? 1 : 0), arguments + count);
  LocalFree(static_cast<void*>(arguments));
  return parse_arguments(after_program);
}

}  // namespace kvx
