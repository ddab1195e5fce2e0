// What a test can only do from inside the program it looks at: asking for the handles of its icons and for what its
// fonts are, and sending it messages whose parameter points to data.
#pragma once

#include <windows.h>

#include <string>

namespace kvx::test {

// The handle that the process uses for one of the system's icons, for example IDI_ERROR; null on failure, which fails
// the test.
[[nodiscard]] HICON system_icon_in(DWORD process_id, LPCWSTR icon);

// Tells the window of another process that it moved to a monitor of this DPI, and where it should go.
void send_dpi_change(HWND window, WORD dpi, const RECT& suggested);

// The font that a control of another process shows its text in; empty on failure, which fails the test.
[[nodiscard]] LOGFONTW font_of(HWND control);

// The whole command line of a process, and its working folder; empty on failure, which fails the test.
[[nodiscard]] std::wstring command_line_of(HANDLE process);
[[nodiscard]] std::wstring working_folder_of(HANDLE process);

}  // namespace kvx::test
