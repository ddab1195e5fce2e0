// The worker's only view of the user. The progress window implements it; tests implement it by script.
//
// The worker calls the operations and writes the progress fields; the user-interface thread reads the fields and sets
// `cancel_requested`. Every operation may be called from any thread but the user-interface thread. It outlives the
// worker.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace kvx {

// What the progress fields count, and so how they are shown.
enum class ProgressMode : uint32_t {
  busy,      // nothing: work of unknown length
  checking,  // bytes of installed files
  transfer,  // bytes to download
  files,     // files to install
};

class Ui {
 public:
  Ui() = default;
  Ui(const Ui&) = delete;
  Ui& operator=(const Ui&) = delete;
  virtual ~Ui() = default;

  // The status line and, in busy mode, the detail line. They reach the screen a moment later.
  virtual void show_status(const std::wstring& title, const std::wstring& detail) = 0;

  // Asks or tells the user, and blocks until the answer. `style` is a Win32 message-box style, the result its button.
  [[nodiscard]] virtual uint32_t message_box(const std::wstring& text, uint32_t style) = 0;

  // Whether the user may cancel from now on. A cancel that came before shows in `cancel_requested` afterwards.
  virtual void allow_cancel(bool allowed) = 0;

  // Enters a mode. The mode is stored last, so that it is never seen with another phase's total.
  void start_progress(ProgressMode mode, uint64_t total) {
    progress_total.store(total);
    progress_done.store(0);
    progress_mode.store(mode);
  }
  void end_progress() { progress_mode.store(ProgressMode::busy); }

  std::atomic<bool> cancel_requested{false};  // never goes back to false
  std::atomic<ProgressMode> progress_mode{ProgressMode::busy};
  std::atomic<uint64_t> progress_total{0};
  std::atomic<uint64_t> progress_done{0};
};

}  // namespace kvx
