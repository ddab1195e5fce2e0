#include "ui/window.h"

#include <commctrl.h>

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/test_clock.h"
#include "tests/support/window_driver.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

using test::MessageBoxWindow;
using test::ProgressWindow;
using test::wait_until;

constexpr UINT message_worker_done = WM_APP + 2;
constexpr int metrics_bytes = 504;

// A progress window on a thread of its own. The test is its worker, and the user in front of it.
class RunningWindow {
 public:
  explicit RunningWindow(Window::Behaviour behaviour = {}) {
    std::promise<bool> created;
    std::future<bool> is_created = created.get_future();
    thread_ = std::thread([this, behaviour, &created] {
      auto window = std::make_unique<Window>();
      window_ = window.get();
      const bool ok = window->create(GetModuleHandleW(nullptr), behaviour);
      created.set_value(ok);
      if (!ok) return;
      result_ = window->run([this](Ui&) { return work_result_.get_future().get(); });
    });
    EXPECT_TRUE(is_created.get());
    parts_ = test::wait_for_progress_window();
  }
  RunningWindow(const RunningWindow&) = delete;
  RunningWindow& operator=(const RunningWindow&) = delete;
  ~RunningWindow() { finish(0); }

  // Ends the worker with this result and returns what run returned.
  int32_t finish(int32_t result) {
    if (thread_.joinable()) {
      work_result_.set_value(result);
      thread_.join();
    }
    return result_;
  }

  Ui& ui() { return *window_; }
  const ProgressWindow& parts() const { return parts_; }
  HWND handle() const { return parts_.window; }

  // What the timer does.
  void refresh() const { SendMessageW(handle(), WM_TIMER, 1, 0); }
  void close() const { SendMessageW(handle(), WM_CLOSE, 0, 0); }

  std::wstring status() const { return test::text_of(parts_.status_text); }
  std::wstring detail() const { return test::text_of(parts_.detail_text); }
  std::wstring button_text() const { return test::text_of(parts_.cancel_button); }
  bool button_enabled() const { return IsWindowEnabled(parts_.cancel_button) != 0; }
  LRESULT bar_position() const { return SendMessageW(parts_.progress_bar, PBM_GETPOS, 0, 0); }
  bool has_marquee() const { return (GetWindowLongPtrW(parts_.progress_bar, GWL_STYLE) & PBS_MARQUEE) != 0; }

  void set_progress(ProgressMode mode, uint64_t total, uint64_t done) {
    ui().start_progress(mode, total);
    ui().progress_done = done;
    refresh();
  }

  // Asks from the worker's side while the test goes on.
  std::future<uint32_t> ask(const std::wstring& text, uint32_t style) {
    return std::async(std::launch::async, [this, text, style] { return ui().message_box(text, style); });
  }

 private:
  Window* window_ = nullptr;
  std::promise<int32_t> work_result_;
  std::thread thread_;
  ProgressWindow parts_;
  int32_t result_ = -1000;
};

LONG width_of(const RECT& rect) { return rect.right - rect.left; }
LONG height_of(const RECT& rect) { return rect.bottom - rect.top; }

void expect_place(HWND control, int x, int y, int width, int height, UINT dpi) {
  const int scale = static_cast<int>(dpi);
  const RECT place = test::place_of(control);
  EXPECT_EQ(place.left, MulDiv(x, scale, 96));
  EXPECT_EQ(place.top, MulDiv(y, scale, 96));
  EXPECT_EQ(width_of(place), MulDiv(width, scale, 96));
  EXPECT_EQ(height_of(place), MulDiv(height, scale, 96));
}

void expect_layout(const ProgressWindow& parts, UINT dpi) {
  expect_place(parts.status_text, 18, 16, 444, 24, dpi);
  expect_place(parts.detail_text, 18, 44, 444, 20, dpi);
  expect_place(parts.progress_bar, 18, 72, 444, 16, dpi);
  expect_place(parts.cancel_button, 362, 102, 100, 28, dpi);
}

HFONT font_handle(HWND control) { return reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)); }

LOGFONTW font_of(HWND control) {
  LOGFONTW font{};
  EXPECT_NE(GetObjectW(font_handle(control), sizeof(font), &font), 0);
  return font;
}

void expect_fonts(const ProgressWindow& parts, UINT dpi) {
  NONCLIENTMETRICSW metrics{};
  static_assert(sizeof(metrics) == metrics_bytes);
  metrics.cbSize = sizeof(metrics);
  ASSERT_TRUE(SystemParametersInfoForDpi(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0, dpi));
  const LOGFONTW& normal = metrics.lfMessageFont;
  for (HWND control : {parts.detail_text, parts.cancel_button}) {
    const LOGFONTW font = font_of(control);
    EXPECT_STREQ(font.lfFaceName, normal.lfFaceName);
    EXPECT_EQ(font.lfHeight, normal.lfHeight);
    EXPECT_EQ(font.lfWeight, normal.lfWeight);
  }
  const LOGFONTW bold = font_of(parts.status_text);
  EXPECT_STREQ(bold.lfFaceName, normal.lfFaceName);
  EXPECT_EQ(bold.lfHeight, normal.lfHeight * 118 / 100);
  EXPECT_EQ(bold.lfWeight, 600);
  EXPECT_LT(bold.lfHeight, normal.lfHeight);  // both are negative
}

TEST(Window, IsAPlainWindowOfFixedSize) {
  RunningWindow window;
  EXPECT_EQ(test::text_of(window.handle()), L"KVX Launcher");
  const LONG_PTR style = GetWindowLongPtrW(window.handle(), GWL_STYLE);
  EXPECT_EQ(style & (WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX), WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX);
  EXPECT_EQ(style & (WS_THICKFRAME | WS_MAXIMIZEBOX), 0);
  EXPECT_EQ(GetWindowLongPtrW(window.handle(), GWL_EXSTYLE) & (WS_EX_TOPMOST | WS_EX_TOOLWINDOW), 0);
  EXPECT_TRUE(IsWindowVisible(window.handle()));
  WNDCLASSEXW window_class{};
  window_class.cbSize = sizeof(window_class);
  ASSERT_NE(GetClassInfoExW(GetModuleHandleW(nullptr), L"KVXLauncherWindow", &window_class), 0);
  EXPECT_EQ(window_class.style, 0U);
  EXPECT_EQ(window_class.hbrBackground, reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1));
  EXPECT_EQ(window_class.hCursor, LoadCursorW(nullptr, IDC_ARROW));
}

TEST(Window, HasFourControls) {
  RunningWindow window;
  const ProgressWindow& parts = window.parts();
  constexpr LONG_PTR text_style = WS_CHILD | WS_VISIBLE | SS_LEFTNOWORDWRAP | SS_ENDELLIPSIS;
  constexpr LONG_PTR type_and_ellipsis = SS_TYPEMASK | SS_ELLIPSISMASK | WS_CHILD | WS_VISIBLE;
  // One line that ends in an ellipsis where it is too long.
  EXPECT_EQ(GetWindowLongPtrW(parts.status_text, GWL_STYLE) & type_and_ellipsis, text_style);
  EXPECT_EQ(GetWindowLongPtrW(parts.detail_text, GWL_STYLE) & type_and_ellipsis, text_style);
  EXPECT_EQ(GetWindowLongPtrW(parts.progress_bar, GWL_STYLE) & (WS_CHILD | WS_VISIBLE | PBS_SMOOTH),
            WS_CHILD | WS_VISIBLE | PBS_SMOOTH);
  EXPECT_EQ(SendMessageW(parts.progress_bar, PBM_GETRANGE, TRUE, 0), 0);
  EXPECT_EQ(SendMessageW(parts.progress_bar, PBM_GETRANGE, FALSE, 0), 10000);
  EXPECT_EQ(GetWindowLongPtrW(parts.cancel_button, GWL_STYLE) & (WS_CHILD | WS_VISIBLE | WS_TABSTOP),
            WS_CHILD | WS_VISIBLE | WS_TABSTOP);
  EXPECT_EQ(GetDlgCtrlID(parts.cancel_button), 2);
  EXPECT_EQ(window.button_text(), L"Cancel");
  EXPECT_FALSE(window.button_enabled());
  EXPECT_EQ(window.status(), L"Starting...");
  EXPECT_EQ(window.detail(), L"");
}

// Hidden, because a window manager moves and sizes a shown window about for a moment.
TEST(Window, IsLaidOutAndCentredAtItsDpi) {
  RunningWindow window({.hidden = true});
  const UINT dpi = GetDpiForWindow(window.handle());
  expect_layout(window.parts(), dpi);
  expect_fonts(window.parts(), dpi);
  RECT client{};
  GetClientRect(window.handle(), &client);
  EXPECT_EQ(client.right, MulDiv(480, static_cast<int>(dpi), 96));
  EXPECT_EQ(client.bottom, MulDiv(146, static_cast<int>(dpi), 96));
  RECT outer{};
  RECT work{};
  GetWindowRect(window.handle(), &outer);
  SystemParametersInfoW(SPI_GETWORKAREA, 0, &work, 0);
  EXPECT_EQ(outer.left, work.left + (width_of(work) - width_of(outer)) / 2);
  EXPECT_EQ(outer.top, work.top + (height_of(work) - height_of(outer)) / 2);
}

TEST(Window, IsLaidOutAnewAt144Dpi) {
  RunningWindow window({.hidden = true});
  const HFONT old_fonts[] = {font_handle(window.parts().status_text), font_handle(window.parts().detail_text)};
  RECT suggested = {30, 40, 30 + 760, 40 + 280};
  SendMessageW(window.handle(), WM_DPICHANGED, MAKEWPARAM(144, 144), reinterpret_cast<LPARAM>(&suggested));
  RECT outer{};
  GetWindowRect(window.handle(), &outer);
  EXPECT_TRUE(EqualRect(&outer, &suggested));
  expect_layout(window.parts(), 144);
  expect_place(window.parts().cancel_button, 543, 153, 150, 42, 96);  // 1.5 times 362, 102, 100, 28
  expect_fonts(window.parts(), 144);
  EXPECT_EQ(font_handle(window.parts().detail_text), font_handle(window.parts().cancel_button));
  for (HFONT old_font : old_fonts) {
    EXPECT_NE(font_handle(window.parts().status_text), old_font);
    EXPECT_NE(font_handle(window.parts().detail_text), old_font);
  }
}

TEST(Window, IsNeverShownWhenHidden) {
  RunningWindow window({.hidden = true});
  window.ui().show_status(L"Working", L"");
  EXPECT_TRUE(wait_until([&] { return window.status() == L"Working"; }));  // the timer runs all the same
  EXPECT_FALSE(IsWindowVisible(window.handle()));
}

TEST(Window, CannotBeCreatedWhenItsClassCannotBeRegistered) {
  WNDCLASSW taken{};
  taken.lpfnWndProc = DefWindowProcW;
  taken.hInstance = GetModuleHandleW(nullptr);
  taken.lpszClassName = L"KVXLauncherWindow";
  ASSERT_NE(RegisterClassW(&taken), 0);
  {
    Window window;
    EXPECT_FALSE(window.create(GetModuleHandleW(nullptr), {}));
    EXPECT_EQ(test::find_window(L"KVXLauncherWindow"), nullptr);
  }
  UnregisterClassW(L"KVXLauncherWindow", GetModuleHandleW(nullptr));
}

LRESULT CALLBACK refuse_every_window(int code, WPARAM wparam, LPARAM lparam) {
  return code == HCBT_CREATEWND ? 1 : CallNextHookEx(nullptr, code, wparam, lparam);
}

TEST(Window, CannotBeCreatedWhenTheSystemRefusesTheWindow) {
  HHOOK hook = SetWindowsHookExW(WH_CBT, refuse_every_window, nullptr, GetCurrentThreadId());
  ASSERT_NE(hook, nullptr);
  Window window;
  EXPECT_FALSE(window.create(GetModuleHandleW(nullptr), {}));
  EXPECT_EQ(test::find_window(L"KVXLauncherWindow"), nullptr);
  UnhookWindowsHookEx(hook);
}

TEST(Window, ReturnsWhatTheWorkerReturned) {
  for (const int32_t result : {0, 10, 50, 99, -1}) {
    RunningWindow window({.hidden = true});
    HWND handle = window.handle();
    EXPECT_EQ(window.finish(result), result);
    EXPECT_FALSE(IsWindow(handle));
  }
}

TEST(Window, TakesItsResultFromTheMessageThatTheWorkerIsDone) {
  RunningWindow window({.hidden = true});
  PostMessageW(window.handle(), message_worker_done, 42, 0);  // it then waits for the worker before it goes
  EXPECT_EQ(window.finish(7), 42);
}

TEST(Window, ShowsWhatTheWorkerSetByItself) {
  RunningWindow window({.hidden = true});
  window.ui().show_status(L"Checking files", L"please wait");
  window.ui().allow_cancel(true);
  EXPECT_TRUE(wait_until([&] {
    return window.status() == L"Checking files" && window.detail() == L"please wait" && window.button_enabled();
  }));
  window.ui().show_status(L"Done", L"");
  window.ui().allow_cancel(false);
  EXPECT_TRUE(
      wait_until([&] { return window.status() == L"Done" && window.detail().empty() && !window.button_enabled(); }));
}

TEST(Window, RefreshesAtAnyTimer) {
  RunningWindow window({.hidden = true});
  window.ui().show_status(L"Now", L"");
  SendMessageW(window.handle(), WM_TIMER, 77, 0);
  EXPECT_EQ(window.status(), L"Now");
}

std::atomic<int> text_changes{0};
std::atomic<int> enablings{0};
std::atomic<int> closings{0};
std::atomic<int> markers{0};
constexpr UINT marker_message = WM_APP + 100;
std::atomic<WNDPROC> counted_procedure{nullptr};

LRESULT CALLBACK count_changes(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_SETTEXT) ++text_changes;
  if (message == WM_ENABLE) ++enablings;
  if (message == marker_message) ++markers;
  const LRESULT result = CallWindowProcW(counted_procedure, window, message, wparam, lparam);
  if (message == WM_CLOSE) ++closings;
  return result;
}

// Counts what reaches a window from now on.
void count_on(HWND control) {
  closings = 0;
  text_changes = 0;
  enablings = 0;
  counted_procedure = reinterpret_cast<WNDPROC>(GetWindowLongPtrW(control, GWLP_WNDPROC));
  SetWindowLongPtrW(control, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(count_changes));
}

// Returns when a counted window has handled what was posted to it, and what it posted to itself meanwhile.
void let_posted_messages_pass(HWND window) {
  for (int round = 0; round < 2; ++round) {
    const int before = markers;
    PostMessageW(window, marker_message, 0, 0);
    EXPECT_TRUE(wait_until([before] { return markers > before; }));
  }
}

TEST(Window, SetsATextOnlyWhenItIsAnother) {
  RunningWindow window({.hidden = true});
  for (HWND control : {window.parts().status_text, window.parts().detail_text}) {
    const bool is_status = control == window.parts().status_text;
    const auto show = [&](const std::wstring& text) {
      window.ui().show_status(is_status ? text : L"same", is_status ? L"same" : text);
      window.refresh();
    };
    show(L"first");
    count_on(control);
    for (int i = 0; i < 5; ++i) window.refresh();
    show(L"first");
    EXPECT_EQ(text_changes, 0);
    show(L"firsT");
    EXPECT_EQ(text_changes, 1);
    show(L"firsT and more");
    EXPECT_EQ(text_changes, 2);
    show(L"");
    EXPECT_EQ(text_changes, 3);
    show(std::wstring(1024, L'x'));
    EXPECT_EQ(text_changes, 4);
    window.refresh();
    EXPECT_EQ(text_changes, 4);
  }
}

TEST(Window, EnablesCancelOnlyWhenThatChanges) {
  RunningWindow window({.hidden = true});
  count_on(window.parts().cancel_button);
  window.refresh();
  EXPECT_EQ(enablings, 0);
  window.ui().allow_cancel(true);
  for (int i = 0; i < 3; ++i) window.refresh();
  EXPECT_TRUE(window.button_enabled());
  EXPECT_EQ(enablings, 1);
  window.ui().allow_cancel(false);
  for (int i = 0; i < 3; ++i) window.refresh();
  EXPECT_FALSE(window.button_enabled());
  EXPECT_EQ(enablings, 2);
}

TEST(Window, IgnoresCancelWhileItIsNotAllowed) {
  RunningWindow window;
  count_on(window.handle());
  PostMessageW(window.handle(), WM_KEYDOWN, VK_ESCAPE, 0);
  PostMessageW(window.parts().cancel_button, BM_CLICK, 0, 0);  // disabled
  PostMessageW(window.handle(), WM_COMMAND, IDCANCEL, 0);      // posts a close in its turn
  PostMessageW(window.handle(), WM_SYSCOMMAND, SC_CLOSE, 0);
  window.close();
  let_posted_messages_pass(window.handle());
  EXPECT_GE(closings, 3);
  window.ui().allow_cancel(true);
  window.refresh();
  window.ui().allow_cancel(false);
  window.close();  // the flag counts, not what the button still shows
  EXPECT_FALSE(window.ui().cancel_requested);
  EXPECT_EQ(window.button_text(), L"Cancel");
  EXPECT_TRUE(IsWindow(window.handle()));
}

TEST(Window, CancelsByButtonByEscapeAndByClosing) {
  const struct {
    const char* name;
    UINT message;
    WPARAM wparam;
  } ways[] = {
      {"button", WM_COMMAND, IDCANCEL},
      {"Escape", WM_KEYDOWN, VK_ESCAPE},
      {"close", WM_CLOSE, 0},
      {"title bar", WM_SYSCOMMAND, SC_CLOSE},
  };
  for (const auto& way : ways) {
    RunningWindow window;
    window.ui().allow_cancel(true);
    window.refresh();
    PostMessageW(window.handle(), way.message, way.wparam, 0);
    EXPECT_TRUE(wait_until([&] { return window.ui().cancel_requested.load(); })) << way.name;
    EXPECT_TRUE(wait_until([&] { return window.button_text() == L"Cancelling..." && !window.button_enabled(); }))
        << way.name;
    EXPECT_TRUE(IsWindow(window.handle())) << way.name;  // the worker ends the run
    EXPECT_EQ(window.finish(60), 60) << way.name;
  }
}

TEST(Window, CancelsByAPressOnTheButton) {
  RunningWindow window;
  window.ui().allow_cancel(true);
  window.refresh();
  PostMessageW(window.parts().cancel_button, BM_CLICK, 0, 0);
  EXPECT_TRUE(wait_until([&] { return window.ui().cancel_requested.load(); }));
}

TEST(Window, CancelsOnce) {
  RunningWindow window({.hidden = true});
  window.ui().allow_cancel(true);
  window.refresh();
  count_on(window.parts().cancel_button);
  window.close();
  EXPECT_TRUE(window.ui().cancel_requested);
  EXPECT_EQ(text_changes, 1);
  EXPECT_EQ(enablings, 1);
  window.ui().cancel_requested = false;  // to see whether it is set again
  window.close();
  SendMessageW(window.parts().cancel_button, BM_CLICK, 0, 0);
  window.ui().allow_cancel(true);
  window.refresh();
  window.close();
  EXPECT_FALSE(window.ui().cancel_requested);
  EXPECT_FALSE(window.button_enabled());  // for good, although cancelling is allowed
  EXPECT_EQ(window.button_text(), L"Cancelling...");
  EXPECT_EQ(text_changes, 1);
  EXPECT_EQ(enablings, 1);
}

TEST(Window, ShowsTheBarOfEachMode) {
  RunningWindow window({.hidden = true});
  window.refresh();
  EXPECT_TRUE(window.has_marquee());
  window.set_progress(ProgressMode::checking, 200, 50);
  EXPECT_FALSE(window.has_marquee());
  EXPECT_EQ(window.bar_position(), 2500);
  EXPECT_EQ(window.detail(), L"Checked 50 bytes of 200 bytes");
  window.set_progress(ProgressMode::files, 120, 7);
  EXPECT_FALSE(window.has_marquee());
  EXPECT_EQ(window.bar_position(), 583);
  EXPECT_EQ(window.detail(), L"File 7 of 120");
  window.ui().end_progress();
  window.ui().show_status(L"Busy", L"as given");
  window.refresh();
  EXPECT_TRUE(window.has_marquee());
  EXPECT_EQ(window.detail(), L"as given");
  window.set_progress(static_cast<ProgressMode>(9), 4, 1);
  EXPECT_FALSE(window.has_marquee());
  EXPECT_EQ(window.bar_position(), 2500);
  EXPECT_EQ(window.detail(), L"as given");
}

TEST(Window, ShowsNoMoreThanTheTotalAndNothingOfNothing) {
  RunningWindow window({.hidden = true});
  const struct {
    ProgressMode mode;
    uint64_t total;
    uint64_t done;
    int position;
    const wchar_t* detail;
  } cases[] = {
      {ProgressMode::checking, 100, 101, 10000, L"Checked 100 bytes of 100 bytes"},
      {ProgressMode::transfer, 100, 5000, 10000, L"100 bytes of 100 bytes"},
      {ProgressMode::files, 3, 4, 10000, L"File 3 of 3"},
      {ProgressMode::checking, 0, 0, 0, L"Checked 0 bytes of 0 bytes"},
      {ProgressMode::transfer, 0, 0, 0, L"0 bytes of 0 bytes"},
      {ProgressMode::files, 0, 0, 0, L"File 0 of 0"},
      {ProgressMode::files, 0, 9, 0, L"File 0 of 0"},
  };
  for (const auto& item : cases) {
    window.set_progress(item.mode, item.total, item.done);
    EXPECT_EQ(window.bar_position(), item.position);
    EXPECT_EQ(window.detail(), item.detail);
  }
}

TEST(Window, MeasuresTheRateOfOneTransferOnly) {
  test::TestClock clock;
  RunningWindow window({.hidden = true});
  clock.set_tick_count_ms(1000);
  window.set_progress(ProgressMode::transfer, 10000, 0);
  const auto refresh_at = [&](uint32_t tick_ms, uint64_t done) {
    // The counter first: the window's own timer may refresh in between, at the old time.
    window.ui().progress_done = done;
    clock.set_tick_count_ms(tick_ms);
    window.refresh();
    return window.detail();
  };
  EXPECT_EQ(refresh_at(1500, 1000), L"1000 bytes of 10 KB");  // half a second is too short
  EXPECT_EQ(refresh_at(2000, 2000), L"2 KB of 10 KB   -   2 KB/s   -   about 4 s left");
  window.set_progress(ProgressMode::checking, 10000, 2000);
  EXPECT_EQ(window.detail(), L"Checked 2 KB of 10 KB");
  window.set_progress(ProgressMode::transfer, 10000, 0);
  EXPECT_EQ(refresh_at(2400, 1000), L"1000 bytes of 10 KB");  // from scratch
  EXPECT_EQ(refresh_at(3000, 1000), L"1000 bytes of 10 KB   -   1000 bytes/s   -   about 9 s left");
}

TEST(Window, DrawsItsTextsOnTheWindowsBackground) {
  RunningWindow window({.hidden = true});
  HDC device = CreateCompatibleDC(nullptr);
  SetBkMode(device, OPAQUE);
  SetTextColor(device, RGB(1, 2, 3));
  const LRESULT brush = SendMessageW(window.handle(), WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(device),
                                     reinterpret_cast<LPARAM>(window.parts().status_text));
  EXPECT_EQ(reinterpret_cast<HBRUSH>(brush), GetSysColorBrush(COLOR_WINDOW));
  EXPECT_EQ(GetBkMode(device), TRANSPARENT);
  EXPECT_EQ(GetTextColor(device), GetSysColor(COLOR_WINDOWTEXT));
  DeleteDC(device);
}

TEST(WindowPrompt, IsAMessageBoxOfTheProgressWindow) {
  const struct {
    uint32_t style;
    std::vector<uint32_t> buttons;
    uint32_t press;
    LPCWSTR icon;
  } cases[] = {
      {style_error, {IDOK}, IDOK, IDI_ERROR},
      {style_information, {IDOK}, IDOK, IDI_INFORMATION},
      {style_question, {IDYES, IDNO}, IDYES, IDI_QUESTION},
      {style_question, {IDYES, IDNO}, IDNO, IDI_QUESTION},
      {style_retry, {IDRETRY, IDCANCEL}, IDRETRY, IDI_WARNING},
      {style_retry, {IDRETRY, IDCANCEL}, IDCANCEL, IDI_WARNING},
      {style_confirm, {IDOK, IDCANCEL}, IDOK, IDI_WARNING},
      {style_confirm, {IDOK, IDCANCEL}, IDCANCEL, IDI_WARNING},
  };
  RunningWindow window;
  for (const auto& item : cases) {
    const std::wstring text = L"Question of style " + std::to_wstring(item.style) + L".\n\nContinue?";
    std::future<uint32_t> answer = window.ask(text, item.style);
    const MessageBoxWindow box = test::wait_for_message_box();
    EXPECT_EQ(box.text, text);
    EXPECT_EQ(box.caption, L"KVX Launcher");
    EXPECT_EQ(box.owner, window.handle());
    EXPECT_EQ(box.buttons, item.buttons);
    EXPECT_EQ(box.default_button, item.buttons[0]);
    EXPECT_EQ(box.icon, LoadIconW(nullptr, item.icon));
    box.press(item.press);
    EXPECT_EQ(answer.get(), item.press);
    EXPECT_FALSE(test::has_message_box());
  }
}

TEST(WindowPrompt, ComesWithTheStatusOfItsMoment) {
  RunningWindow window;
  window.ui().show_status(L"Installing", L"");
  window.ui().start_progress(ProgressMode::files, 4);
  window.ui().progress_done = 2;
  std::future<uint32_t> answer = window.ask(L"Retry?", style_retry);
  const MessageBoxWindow box = test::wait_for_message_box();
  EXPECT_EQ(window.status(), L"Installing");
  EXPECT_EQ(window.detail(), L"File 2 of 4");
  box.press(IDRETRY);
  EXPECT_EQ(answer.get(), button_retry);
}

TEST(WindowPrompt, KeepsTheWindowRefreshedWhileItIsOpen) {
  RunningWindow window;
  std::future<uint32_t> answer = window.ask(L"Continue?", style_confirm);
  const MessageBoxWindow box = test::wait_for_message_box();
  window.ui().show_status(L"Meanwhile", L"");
  EXPECT_TRUE(wait_until([&] { return window.status() == L"Meanwhile"; }));
  box.press(IDOK);
  EXPECT_EQ(answer.get(), button_ok);
}

TEST(WindowPrompt, AppearsWithoutAnOwnerWhenTheWindowIsHidden) {
  RunningWindow window({.hidden = true});
  std::future<uint32_t> answer = window.ask(L"Is anybody there?", style_question);
  const MessageBoxWindow box = test::wait_for_message_box();
  EXPECT_EQ(box.text, L"Is anybody there?");
  EXPECT_EQ(box.caption, L"KVX Launcher");
  EXPECT_EQ(box.owner, nullptr);
  EXPECT_TRUE(wait_until([&] { return GetForegroundWindow() == box.window; }));
  EXPECT_FALSE(IsWindowVisible(window.handle()));
  box.press(IDNO);
  EXPECT_EQ(answer.get(), static_cast<uint32_t>(IDNO));
}

TEST(WindowPrompt, IsAnsweredAtOnceWhenUnattended) {
  for (const bool hidden : {false, true}) {
    RunningWindow window({.unattended = true, .hidden = hidden});
    for (const uint32_t style : {style_error, style_information, style_question, style_retry, style_confirm}) {
      // On the calling thread: the window's own thread is not asked, so nothing can be on the screen afterwards.
      EXPECT_EQ(window.ui().message_box(L"?", style), unattended_answer(style));
      EXPECT_FALSE(test::has_message_box());
    }
    EXPECT_EQ(IsWindowVisible(window.handle()) != 0, !hidden);
  }
}

}  // namespace
}  // namespace kvx
