// A stand-in for the game: it writes down how it was started, shows a window for a moment and ends.
//   sample_game [--seconds N] [ANYTHING...]
// game_started.txt in the working directory then holds, in UTF-8, "directory=" with the working directory and one
// "argument=" line for each argument, in order. It appears all at once.
#include <windows.h>
#include <shellapi.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"

namespace {

constexpr UINT default_show_ms = 1500;
constexpr UINT_PTR end_timer = 1;
constexpr int window_width = 640;
constexpr int window_height = 360;

std::vector<std::wstring> arguments() {
  std::vector<std::wstring> list;
  int count = 0;
  wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (words == nullptr) return list;
  for (int i = 1; i < count; ++i) list.emplace_back(words[i]);
  LocalFree(static_cast<void*>(words));
  return list;
}

std::wstring working_directory() {
  std::vector<wchar_t> buffer(32768);
  const DWORD length = GetCurrentDirectoryW(static_cast<DWORD>(buffer.size()), buffer.data());
  return {buffer.data(), length};
}

bool write_start_record(const std::vector<std::wstring>& words) {
  const std::wstring directory = working_directory();
  std::string record = "directory=" + kvx::to_utf8(directory) + "\n";
  for (const std::wstring& word : words) record += "argument=" + kvx::to_utf8(word) + "\n";
  return kvx::write_file_atomic(kvx::join_path(directory, L"game_started.txt"), record);
}

UINT show_milliseconds(const std::vector<std::wstring>& words) {
  for (size_t i = 0; i + 1 < words.size(); ++i) {
    if (words[i] == L"--seconds") return static_cast<UINT>(wcstod(words[i + 1].c_str(), nullptr) * 1000);
  }
  return default_show_ms;
}

void paint(HWND window) {
  PAINTSTRUCT area;
  HDC dc = BeginPaint(window, &area);
  RECT client;
  GetClientRect(window, &client);
  SetBkMode(dc, TRANSPARENT);
  SetTextColor(dc, RGB(244, 246, 255));
  DrawTextW(dc, L"KVX sample game", -1, &client, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
  EndPaint(window, &area);
}

LRESULT CALLBACK window_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case WM_PAINT: paint(window); return 0;
    case WM_TIMER: DestroyWindow(window); return 0;
    case WM_DESTROY: PostQuitMessage(0); return 0;
    default: return DefWindowProcW(window, message, wparam, lparam);
  }
}

void show_window(HINSTANCE instance, UINT milliseconds) {
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = window_procedure;
  window_class.hInstance = instance;
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.hbrBackground = CreateSolidBrush(RGB(18, 23, 53));
  window_class.lpszClassName = L"KVXSampleGame";
  RegisterClassW(&window_class);
  HWND window =
      CreateWindowExW(0, window_class.lpszClassName, L"KVX sample game", WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                      CW_USEDEFAULT, CW_USEDEFAULT, window_width, window_height, nullptr, nullptr, instance, nullptr);
  if (window == nullptr) return;  // no display: the record is what counts
  SetTimer(window, end_timer, milliseconds, nullptr);
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE /*previous*/, LPWSTR /*command_line*/, int /*show*/) {
  const std::vector<std::wstring> words = arguments();
  if (!write_start_record(words)) return 1;
  show_window(instance, show_milliseconds(words));
  return 0;
}
