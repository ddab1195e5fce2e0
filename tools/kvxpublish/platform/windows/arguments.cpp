#include "tools/kvxpublish/platform/arguments.h"

#include <windows.h>
#include <shellapi.h>

#include "foundations/text.h"

namespace kvx::publish {

// The C runtime's own words are in the system's code page, which cannot hold every path.
std::vector<std::string> program_arguments(int /*count*/, char** /*words*/) {
  std::vector<std::string> arguments;
  int count = 0;
  wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (words == nullptr) return arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(to_utf8(words[i]));
  LocalFree(static_cast<void*>(words));
  return arguments;
}

}  // namespace kvx::publish
