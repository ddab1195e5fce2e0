// A launcher that a test started, or that a launcher handed over to: its windows, its end. Whatever is waited for has a
// limit; when it passes, or the launcher ends before, the test fails.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "foundations/system_handles.h"
#include "tests/e2e/prompt.h"
#include "tests/support/window_driver.h"

namespace kvx::test {

class RunningLauncher {
 public:
  // `arguments` is what follows the program's name on the command line.
  RunningLauncher(const std::wstring& program, const std::wstring& arguments, const std::wstring& working_folder);
  // The launcher that another one started; waits for it.
  explicit RunningLauncher(uint32_t process_id);
  RunningLauncher(const RunningLauncher&) = delete;
  RunningLauncher& operator=(const RunningLauncher&) = delete;
  ~RunningLauncher();  // kills it if it still runs

  [[nodiscard]] uint32_t id() const { return id_; }
  [[nodiscard]] bool runs() const;
  [[nodiscard]] std::wstring command_line() const;
  [[nodiscard]] std::wstring working_folder() const;

  [[nodiscard]] const ProgressWindow& window();
  [[nodiscard]] bool window_is_shown();
  void wait_for_status(const std::wstring& text);
  void wait_for_detail(const std::wstring& pattern);
  void wait_until_cancel_is(bool enabled);
  // Through the button, as a mouse or keyboard does; through the title bar's close button.
  void press_cancel();
  void close_window();
  // The button says that it was pressed and cannot be pressed again, or the launcher has already ended.
  void wait_until_cancelling();
  // Says that the window is on a monitor of this DPI now; the suggested place leaves the frame as it is.
  void change_dpi(uint16_t dpi);

  [[nodiscard]] Prompt wait_for_prompt();
  // Presses a button of the prompt that is shown, and returns when the prompt is gone.
  void answer(uint32_t button);

  // The exit code. A prompt that comes meanwhile fails the test and ends the launcher; with `silent`, so does any
  // window.
  std::optional<uint32_t> wait_for_end(bool silent = false);
  void kill();

 private:
  [[nodiscard]] bool wait_while_it_runs(const std::function<bool()>& condition) const;

  KernelHandle process_;
  uint32_t id_ = 0;
  ProgressWindow window_;
  MessageBoxWindow box_;
};

}  // namespace kvx::test
