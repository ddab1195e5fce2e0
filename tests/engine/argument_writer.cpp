// A program that writes its own command line and working directory to started.txt there, and ends.
#include <windows.h>

#include <string>

#include "foundations/files.h"
#include "foundations/text.h"

int main() {
  wchar_t folder[MAX_PATH + 1] = {};
  GetCurrentDirectoryW(MAX_PATH, folder);
  const std::string record = kvx::to_utf8(GetCommandLineW()) + "\n" + kvx::to_utf8(folder) + "\n";
  return kvx::write_file_atomic(std::wstring(folder) + L"\\started.txt", record) ? 0 : 1;
}
