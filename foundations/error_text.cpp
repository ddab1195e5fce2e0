#include "foundations/error_text.h"

#include <windows.h>

#include <string_view>

#include "foundations/text.h"

namespace kvx {
namespace {

constexpr DWORD english_united_states = 1033;

// Empty when the table has no text for the code. `source` and `module` name the table: the system's or a module's.
std::wstring message_from(DWORD source, HMODULE module, uint32_t code) {
  wchar_t* buffer = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | source, module, code, english_united_states,
      reinterpret_cast<wchar_t*>(&buffer),  // with ALLOCATE_BUFFER the call takes a pointer's address
      0, nullptr);
  if (length == 0) return {};
  std::wstring text(buffer, length);
  LocalFree(buffer);
  return text;
}

std::wstring message_for(uint32_t code) {
  std::wstring text = message_from(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code);
  if (!text.empty()) return text;
  // WinHTTP's own codes (12000 and up) are in its module; a program without it cannot have met one.
  const HMODULE winhttp = GetModuleHandleW(L"winhttp.dll");
  return winhttp == nullptr ? std::wstring() : message_from(FORMAT_MESSAGE_FROM_HMODULE, winhttp, code);
}

}  // namespace

std::string error_text(uint32_t code) {
  std::string text = to_utf8(message_for(code));
  text.erase(text.find_last_not_of("\n\r .") + 1);
  const std::string number = "error " + std::to_string(code);
  return text.empty() ? number : text + " (" + number + ")";
}

}  // namespace kvx
