#include "launcher/system_libraries.h"

#include <windows.h>
#include <delayimp.h>

#include <initializer_list>
#include <string>

#include "foundations/log.h"
#include "foundations/text.h"
#include "launcher/options.h"
#include "launcher/process_end.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

std::wstring name_of(unsigned failure, const DelayLoadInfo& call) {
  std::wstring name = to_wide(call.szDll);
  if (failure == dliFailGetProc && call.dlp.fImportByName != 0) name += L": " + to_wide(call.dlp.szProcName);
  return name;
}

FARPROC WINAPI on_missing(unsigned failure, DelayLoadInfo* call) {
  const std::wstring name = name_of(failure, *call);
  log::write("a part of Windows is missing or too old: %s", to_utf8(name).c_str());
  if (!parse_command_line().unattended) {
    const std::wstring text = L"KVX Launcher cannot run because a part of Windows is missing or too old:\n" + name;
    MessageBoxW(nullptr, text.c_str(), L"KVX Launcher", style_error | MB_SETFOREGROUND);
  }
  end_process(RunOutcome::could_not_start);
}

}  // namespace

void use_system_libraries_only() {
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  __pfnDliFailureHook2 = on_missing;
  // A library that is in memory is not looked for again by name, whichever library asks for it. What is missing here
  // is reported when it is called.
  for (const wchar_t* library : {L"bcrypt.dll", L"winhttp.dll"}) {
    LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  }
}

}  // namespace kvx
