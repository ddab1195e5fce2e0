// The progress window: a status line, a detail line, a progress bar and a Cancel button, refreshed every 200 ms from
// what the worker has set. Created, run and destroyed on the main thread; the operations of Ui are for the worker.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "ui/progress_text.h"
#include "ui/ui.h"
#include "ui/worker_thread.h"

namespace kvx {

struct FontHandleTraits {
  using value_type = HFONT;
  static value_type none() { return nullptr; }
  static void close(value_type value) { DeleteObject(value); }
};
using FontHandle = UniqueHandle<FontHandleTraits>;

class Window final : public Ui {
 public:
  // The worker's body; its result becomes the result of run.
  using Work = std::function<int32_t(Ui& ui)>;

  struct Behaviour {
    bool unattended = false;  // answer every prompt at once, without showing it
    bool hidden = false;      // never show the window
  };

  Window() = default;
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window() override;

  // False when the window class cannot be registered or the window cannot be created.
  [[nodiscard]] bool create(HINSTANCE instance, Behaviour behaviour);

  // Starts the worker thread, pumps messages until the worker is done, joins it and returns what it returned.
  [[nodiscard]] int32_t run(Work work);

  void show_status(const std::wstring& title, const std::wstring& detail) override;
  [[nodiscard]] uint32_t message_box(const std::wstring& text, uint32_t style) override;
  void allow_cancel(bool allowed) override;

 private:
  struct PromptRequest;

  static LRESULT CALLBACK window_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  LRESULT handle_message(UINT message, WPARAM wparam, LPARAM lparam);

  bool register_class();
  void create_controls();
  void create_fonts();
  void lay_out();
  void size_and_centre();
  [[nodiscard]] int scaled(int length_at_96_dpi) const;

  void refresh();
  void show_progress(const ProgressCounters& progress);
  void set_marquee(bool on);
  void enable_cancel_button(bool enabled);

  void on_timer();
  void on_close();
  void on_prompt(PromptRequest& request);
  void on_worker_done(int32_t result);
  void on_dpi_changed(UINT dpi, const RECT& suggested);

  HINSTANCE instance_ = nullptr;
  HWND window_ = nullptr;
  HWND status_text_ = nullptr;
  HWND detail_text_ = nullptr;
  HWND progress_bar_ = nullptr;
  HWND cancel_button_ = nullptr;
  FontHandle normal_font_;
  FontHandle bold_font_;
  UINT dpi_ = USER_DEFAULT_SCREEN_DPI;
  Behaviour behaviour_;
  bool marquee_on_ = false;
  ProgressMode last_mode_ = ProgressMode::busy;
  TransferRate rate_;

  std::mutex lock_;  // guards the four fields below
  std::wstring title_text_ = L"Starting...";
  std::wstring detail_given_;
  bool cancel_allowed_ = false;
  bool cancelling_ = false;

  WorkerThread worker_;
  std::atomic<int32_t> worker_result_{0};
  std::atomic<bool> worker_is_done_{false};
  int32_t result_ = 0;
};

}  // namespace kvx
