#include <windows.h>
#include <shellapi.h>

#include <string>
#include <vector>

#include "foundations/text.h"
#include "tools/kvxpublish/commands/commands.h"
#include "tools/kvxpublish/platform/system_console.h"

namespace {

// The C runtime's own argv is in the system's code page, which cannot hold every path.
std::vector<std::string> utf8_arguments() {
  std::vector<std::string> arguments;
  int count = 0;
  wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (words == nullptr) return arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(kvx::to_utf8(words[i]));
  LocalFree(static_cast<void*>(words));
  return arguments;
}

}  // namespace

int main() {
  kvx::publish::SystemConsole console;
  return kvx::publish::run_command(utf8_arguments(), console);
}
