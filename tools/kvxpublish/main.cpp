#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "tools/kvxpublish/commands.h"
#include "tools/kvxpublish/failure.h"

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

void write_bytes(FILE* stream, const std::string& bytes) {
  static_cast<void>(_setmode(_fileno(stream), _O_BINARY));  // no carriage returns: the output is for scripts too
  static_cast<void>(std::fwrite(bytes.data(), 1, bytes.size(), stream));
  static_cast<void>(std::fflush(stream));
}

}  // namespace

int main() {
  SetConsoleOutputCP(CP_UTF8);
  kvx::publish::CommandOutput output;
  int code = static_cast<int>(kvx::publish::ExitCode::failed);
  try {
    code = kvx::publish::run_command(utf8_arguments(), output);
  } catch (const std::exception& error) {
    output = {{}, std::string("kvxpublish: ") + error.what() + "\n"};
  }
  write_bytes(stdout, output.data);
  write_bytes(stderr, output.messages);
  return code;
}
