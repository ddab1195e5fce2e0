#include "ui/window.h"

#include <commctrl.h>

#include <algorithm>
#include <utility>

#include "foundations/clock.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

constexpr wchar_t class_name[] = L"KVXLauncherWindow";
constexpr wchar_t caption[] = L"KVX Launcher";
constexpr int icon_resource = 1;
constexpr int cancel_button_id = IDCANCEL;

constexpr UINT message_prompt = WM_APP + 1;
constexpr UINT message_worker_done = WM_APP + 2;

constexpr UINT_PTR refresh_timer = 1;
constexpr UINT refresh_interval_ms = 200;
constexpr WPARAM marquee_step_ms = 30;

constexpr DWORD window_style = WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;
constexpr DWORD text_style = WS_CHILD | WS_VISIBLE | SS_LEFTNOWORDWRAP | SS_ENDELLIPSIS;

// At 96 DPI.
constexpr int client_width = 480;
constexpr int client_height = 146;
struct ControlPlace {
  int x;
  int y;
  int width;
  int height;
};
constexpr ControlPlace status_text_place = {18, 16, 444, 24};
constexpr ControlPlace detail_text_place = {18, 44, 444, 20};
constexpr ControlPlace progress_bar_place = {18, 72, 444, 16};
constexpr ControlPlace cancel_button_place = {362, 102, 100, 28};

HICON load_icon(HINSTANCE instance, int width, int height, UINT flags) {
  return static_cast<HICON>(LoadImageW(instance, MAKEINTRESOURCEW(icon_resource), IMAGE_ICON, width, height, flags));
}

// Leaves an unchanged text alone, so that the window does not flicker.
void set_text_if_different(HWND control, const std::wstring& text) {
  constexpr int longest_read = 1024;
  wchar_t current[longest_read + 1];
  const int length = GetWindowTextW(control, current, longest_read + 1);
  if (text != std::wstring_view(current, static_cast<size_t>(length))) SetWindowTextW(control, text.c_str());
}

LRESULT paint_static_control(HDC device) {
  SetBkMode(device, TRANSPARENT);
  SetTextColor(device, GetSysColor(COLOR_WINDOWTEXT));
  return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_WINDOW));
}

}  // namespace

// Lives on the worker's stack while the main thread asks the user.
struct Window::PromptRequest {
  const std::wstring& text;
  uint32_t style = 0;
  uint32_t answer = button_cancel;
};

Window::~Window() {
  if (window_ != nullptr) DestroyWindow(window_);
  if (instance_ != nullptr) UnregisterClassW(class_name, instance_);
}

bool Window::create(HINSTANCE instance, Behaviour behaviour) {
  behaviour_ = behaviour;
  const INITCOMMONCONTROLSEX controls = {sizeof(controls), ICC_STANDARD_CLASSES | ICC_PROGRESS_CLASS};
  InitCommonControlsEx(&controls);
  instance_ = instance;
  if (!register_class()) {
    instance_ = nullptr;  // the class is not ours to unregister
    return false;
  }
  CreateWindowExW(0, class_name, caption, window_style, CW_USEDEFAULT, CW_USEDEFAULT, 200, 100, nullptr, nullptr,
                  instance, this);  // WM_NCCREATE keeps the handle
  if (window_ == nullptr) return false;
  dpi_ = GetDpiForWindow(window_);
  create_controls();
  create_fonts();
  lay_out();
  size_and_centre();
  if (!behaviour_.hidden) {
    ShowWindow(window_, SW_SHOWNORMAL);
    UpdateWindow(window_);
  }
  SetTimer(window_, refresh_timer, refresh_interval_ms, nullptr);
  return true;
}

int32_t Window::run(Work work) {
  worker_.start([this, body = std::move(work), window = window_] {
    const int32_t result = body(*this);
    worker_result_.store(result);
    worker_is_done_.store(true);
    PostMessageW(window, message_worker_done, static_cast<WPARAM>(result), 0);
  });
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    if (IsDialogMessageW(window_, &message) != 0) continue;
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  if (worker_.joinable()) worker_.join();
  return result_;
}

void Window::show_status(const std::wstring& title, const std::wstring& detail) {
  const std::scoped_lock guard(lock_);
  title_text_ = title;
  detail_given_ = detail;
}

uint32_t Window::message_box(const std::wstring& text, uint32_t style) {
  if (behaviour_.unattended) return unattended_answer(style);
  PromptRequest request{text, style};
  SendMessageW(window_, message_prompt, 0, reinterpret_cast<LPARAM>(&request));
  return request.answer;
}

void Window::allow_cancel(bool allowed) {
  const std::scoped_lock guard(lock_);
  cancel_allowed_ = allowed;
}

bool Window::register_class() {
  WNDCLASSEXW window_class{};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = window_procedure;
  window_class.hInstance = instance_;
  window_class.hIcon = load_icon(instance_, 0, 0, LR_DEFAULTSIZE | LR_SHARED);
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);  // the documented form of a system colour
  window_class.lpszClassName = class_name;
  window_class.hIconSm = load_icon(instance_, GetSystemMetrics(SM_CXSMICON), GetSystemMetrics(SM_CYSMICON), LR_SHARED);
  return RegisterClassExW(&window_class) != 0;
}

void Window::create_controls() {
  const auto create = [this](const wchar_t* control_class, const wchar_t* text, DWORD style, int id) {
    // The identifier of a child takes the place of a menu.
    return CreateWindowExW(0, control_class, text, style, 0, 0, 10, 10, window_, reinterpret_cast<HMENU>(INT_PTR{id}),
                           instance_, nullptr);
  };
  status_text_ = create(L"STATIC", L"Starting...", text_style, 0);
  detail_text_ = create(L"STATIC", L"", text_style, 0);
  progress_bar_ = create(PROGRESS_CLASSW, L"", WS_CHILD | WS_VISIBLE | PBS_SMOOTH, 0);
  SendMessageW(progress_bar_, PBM_SETRANGE32, 0, progress_bar_range);
  cancel_button_ = create(L"BUTTON", L"Cancel", WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_DISABLED, cancel_button_id);
}

void Window::create_fonts() {
  constexpr int bold_size_percent = 118;
  NONCLIENTMETRICSW metrics{};
  metrics.cbSize = sizeof(metrics);
  SystemParametersInfoForDpi(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0, dpi_);
  LOGFONTW bold = metrics.lfMessageFont;
  bold.lfHeight = bold.lfHeight * bold_size_percent / 100;
  bold.lfWeight = FW_SEMIBOLD;

  normal_font_.reset(CreateFontIndirectW(&metrics.lfMessageFont));
  bold_font_.reset(CreateFontIndirectW(&bold));
  const auto set_font = [](HWND control, const FontHandle& font) {
    SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(font.get()), TRUE);
  };
  set_font(status_text_, bold_font_);
  set_font(detail_text_, normal_font_);
  set_font(cancel_button_, normal_font_);
}

int Window::scaled(int length_at_96_dpi) const {
  return MulDiv(length_at_96_dpi, static_cast<int>(dpi_), USER_DEFAULT_SCREEN_DPI);
}

void Window::lay_out() {
  const auto place = [this](HWND control, const ControlPlace& at) {
    MoveWindow(control, scaled(at.x), scaled(at.y), scaled(at.width), scaled(at.height), TRUE);
  };
  place(status_text_, status_text_place);
  place(detail_text_, detail_text_place);
  place(progress_bar_, progress_bar_place);
  place(cancel_button_, cancel_button_place);
}

void Window::size_and_centre() {
  RECT outer = {0, 0, scaled(client_width), scaled(client_height)};
  AdjustWindowRectExForDpi(&outer, window_style, FALSE, 0, dpi_);
  const int width = outer.right - outer.left;
  const int height = outer.bottom - outer.top;
  RECT work{};
  SystemParametersInfoW(SPI_GETWORKAREA, 0, &work, 0);
  const int left = work.left + (work.right - work.left - width) / 2;
  const int top = work.top + (work.bottom - work.top - height) / 2;
  SetWindowPos(window_, nullptr, left, top, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
}

LRESULT CALLBACK Window::window_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_NCCREATE) {
    auto* self = static_cast<Window*>(reinterpret_cast<CREATESTRUCTW*>(lparam)->lpCreateParams);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    self->window_ = window;
  }
  auto* self = reinterpret_cast<Window*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  return self == nullptr ? DefWindowProcW(window, message, wparam, lparam)
                         : self->handle_message(message, wparam, lparam);
}

LRESULT Window::handle_message(UINT message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case WM_TIMER: on_timer(); return 0;
    case WM_COMMAND:
      if (LOWORD(wparam) == cancel_button_id) PostMessageW(window_, WM_CLOSE, 0, 0);
      return 0;
    case WM_CLOSE: on_close(); return 0;
    case message_prompt: on_prompt(*reinterpret_cast<PromptRequest*>(lparam)); return 0;
    case message_worker_done: on_worker_done(static_cast<int32_t>(wparam)); return 0;
    case WM_CTLCOLORSTATIC: return paint_static_control(reinterpret_cast<HDC>(wparam));
    case WM_DPICHANGED: on_dpi_changed(HIWORD(wparam), *reinterpret_cast<const RECT*>(lparam)); return 0;
    case WM_DESTROY:
      normal_font_.reset();
      bold_font_.reset();
      PostQuitMessage(result_);
      return 0;
    case WM_NCDESTROY: return DefWindowProcW(std::exchange(window_, nullptr), message, wparam, lparam);
    default: return DefWindowProcW(window_, message, wparam, lparam);
  }
}

void Window::refresh() {
  std::wstring title;
  std::wstring detail_given;
  bool cancel_enabled = false;
  {
    const std::scoped_lock guard(lock_);
    title = title_text_;
    detail_given = detail_given_;
    cancel_enabled = cancel_allowed_ && !cancelling_;
  }
  ProgressCounters progress;
  progress.mode = progress_mode.load();
  progress.total = progress_total.load();
  progress.done = std::min(progress_done.load(), progress.total);
  const uint32_t now = tick_count_ms();
  if (progress.mode != last_mode_) {
    rate_.clear();
    last_mode_ = progress.mode;
  }
  show_progress(progress);
  if (progress.mode == ProgressMode::transfer) rate_.add_sample(now, progress.done);
  set_text_if_different(status_text_, title);
  set_text_if_different(detail_text_, progress_detail(progress, detail_given, rate_.bytes_per_second()));
  enable_cancel_button(cancel_enabled);
}

void Window::show_progress(const ProgressCounters& progress) {
  const bool busy = progress.mode == ProgressMode::busy;
  if (busy != marquee_on_) set_marquee(busy);
  if (!busy) SendMessageW(progress_bar_, PBM_SETPOS, static_cast<WPARAM>(progress_position(progress)), 0);
}

void Window::set_marquee(bool on) {
  const LONG_PTR style = GetWindowLongPtrW(progress_bar_, GWL_STYLE);
  if (on) {
    SetWindowLongPtrW(progress_bar_, GWL_STYLE, style | PBS_MARQUEE);
    SendMessageW(progress_bar_, PBM_SETMARQUEE, TRUE, marquee_step_ms);
  } else {
    SendMessageW(progress_bar_, PBM_SETMARQUEE, FALSE, 0);
    SetWindowLongPtrW(progress_bar_, GWL_STYLE, style & ~LONG_PTR{PBS_MARQUEE});
  }
  marquee_on_ = on;
}

void Window::enable_cancel_button(bool enabled) {
  if ((IsWindowEnabled(cancel_button_) != 0) != enabled) EnableWindow(cancel_button_, enabled ? TRUE : FALSE);
}

void Window::on_timer() {
  // A full message queue takes no message, and the worker's last one is not sent twice.
  if (worker_is_done_.load()) {
    on_worker_done(worker_result_.load());
  } else {
    refresh();
  }
}

// The window stays: the worker ends the run.
void Window::on_close() {
  {
    const std::scoped_lock guard(lock_);
    if (!cancel_allowed_ || cancelling_) return;
    cancelling_ = true;
    cancel_requested = true;  // under the lock: a worker that forbids to cancel sees it afterwards
  }
  SetWindowTextW(cancel_button_, L"Cancelling...");
  EnableWindow(cancel_button_, FALSE);
}

void Window::on_prompt(PromptRequest& request) {
  refresh();
  HWND owner = behaviour_.hidden ? nullptr : window_;
  const UINT style = behaviour_.hidden ? request.style | MB_SETFOREGROUND : request.style;
  request.answer = static_cast<uint32_t>(MessageBoxW(owner, request.text.c_str(), caption, style));
}

void Window::on_worker_done(int32_t result) {
  result_ = result;
  if (worker_.joinable()) worker_.join();
  KillTimer(window_, refresh_timer);
  DestroyWindow(window_);
}

void Window::on_dpi_changed(UINT dpi, const RECT& suggested) {
  dpi_ = dpi;
  SetWindowPos(window_, nullptr, suggested.left, suggested.top, suggested.right - suggested.left,
               suggested.bottom - suggested.top, SWP_NOZORDER | SWP_NOACTIVATE);
  create_fonts();
  lay_out();
}

}  // namespace kvx
