// Finds the windows of a program, the test's own or another one, reads what they show and presses their buttons.
// Whatever is waited for has a limit; when it passes, the test fails and the result is null or empty. Any thread but
// the one that owns the windows.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kvx::test {

constexpr uint32_t usual_limit_ms = 60000;

// True as soon as the condition holds, false after the limit.
[[nodiscard]] bool wait_until(const std::function<bool()>& condition, uint32_t limit_ms = usual_limit_ms);

// The first top-level window of this class that belongs to the process, shown or not; null when there is none.
[[nodiscard]] HWND find_window(const wchar_t* class_name, DWORD process_id = GetCurrentProcessId());
[[nodiscard]] HWND wait_for_window(const wchar_t* class_name, DWORD process_id = GetCurrentProcessId());

// The text by WM_GETTEXT, as another process may read it too.
[[nodiscard]] std::wstring text_of(HWND window);
// In coordinates of the parent's client area.
[[nodiscard]] RECT place_of(HWND child);
[[nodiscard]] RECT client_area_of(HWND window);

// The progress window and its controls.
struct ProgressWindow {
  HWND window = nullptr;
  HWND status_text = nullptr;
  HWND detail_text = nullptr;
  HWND progress_bar = nullptr;
  HWND cancel_button = nullptr;
};
[[nodiscard]] ProgressWindow wait_for_progress_window(DWORD process_id = GetCurrentProcessId());

// A message box on the screen.
struct MessageBoxWindow {
  HWND window = nullptr;
  HWND owner = nullptr;
  std::wstring caption;
  std::wstring text;
  std::vector<uint32_t> buttons;  // identifiers, from left to right
  uint32_t default_button = 0;
  HICON icon = nullptr;

  void press(uint32_t button) const;
};
[[nodiscard]] MessageBoxWindow wait_for_message_box(DWORD process_id = GetCurrentProcessId());
[[nodiscard]] bool has_message_box(DWORD process_id = GetCurrentProcessId());

}  // namespace kvx::test
