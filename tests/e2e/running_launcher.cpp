#include "tests/e2e/running_launcher.h"

#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "foundations/text.h"
#include "tests/e2e/foreign_process.h"

namespace kvx::test {
namespace {

// Long enough for the longest waits of the program itself, which are ten seconds.
constexpr uint32_t limit_ms = 60000;
// The last waits of a download that fails are minutes.
constexpr uint32_t end_limit_ms = 240000;

BOOL CALLBACK note_shown_window(HWND window, LPARAM parameter) {
  auto& [process_id, shown] = *reinterpret_cast<std::pair<DWORD, bool>*>(parameter);
  DWORD owner = 0;
  GetWindowThreadProcessId(window, &owner);
  if (owner == process_id && IsWindowVisible(window) != 0) shown = true;
  return TRUE;
}

bool shows_a_window(DWORD process_id) {
  std::pair<DWORD, bool> search{process_id, false};
  EnumWindows(note_shown_window, reinterpret_cast<LPARAM>(&search));
  return search.second;
}

}  // namespace

RunningLauncher::RunningLauncher(const std::wstring& program, const std::wstring& arguments,
                                 const std::wstring& working_folder) {
  std::wstring command_line = quote_argument(program) + L" " + arguments;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  if (CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, working_folder.c_str(),
                     &startup, &started) == 0) {
    ADD_FAILURE() << to_utf8(program) << " did not start: error " << GetLastError();
    return;
  }
  CloseHandle(started.hThread);
  process_.reset(started.hProcess);
  id_ = started.dwProcessId;
}

RunningLauncher::RunningLauncher(uint32_t process_id)
    : process_(OpenProcess(PROCESS_ALL_ACCESS, FALSE, process_id)), id_(process_id) {
  EXPECT_TRUE(process_) << "no process " << process_id;
}

RunningLauncher::~RunningLauncher() { kill(); }

bool RunningLauncher::runs() const { return process_ && WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT; }

std::wstring RunningLauncher::command_line() const { return command_line_of(process_.get()); }

std::wstring RunningLauncher::working_folder() const { return working_folder_of(process_.get()); }

bool RunningLauncher::wait_while_it_runs(const std::function<bool()>& condition) const {
  bool held = false;
  return wait_until([&] { return (held = condition()) || !runs(); }, limit_ms) && held;
}

const ProgressWindow& RunningLauncher::window() {
  if (window_.window == nullptr) {
    // Its controls are told apart by their places, which a look at a moment of its making may have got wrong.
    static_cast<void>(wait_for_progress_window(id_));
    window_ = wait_for_progress_window(id_);
  }
  return window_;
}

bool RunningLauncher::window_is_shown() { return IsWindowVisible(window().window) != 0; }

void RunningLauncher::wait_for_status(const std::wstring& text) {
  HWND control = window().status_text;
  ASSERT_TRUE(wait_while_it_runs([&] { return text_of(control) == text; }))
      << "the window never said \"" << to_utf8(text) << "\" but \"" << to_utf8(text_of(control)) << "\"";
}

void RunningLauncher::wait_for_detail(const std::wstring& pattern) {
  HWND control = window().detail_text;
  ASSERT_TRUE(wait_while_it_runs([&] { return fits_pattern(to_utf8(text_of(control)), to_utf8(pattern)); }))
      << "the window never said \"" << to_utf8(pattern) << "\" but \"" << to_utf8(text_of(control)) << "\"";
}

void RunningLauncher::wait_until_cancel_is(bool enabled) {
  HWND button = window().cancel_button;
  ASSERT_TRUE(wait_while_it_runs([&] { return (IsWindowEnabled(button) != 0) == enabled; }))
      << "Cancel never became " << (enabled ? "enabled" : "disabled");
}

void RunningLauncher::press_cancel() {
  wait_until_cancel_is(true);
  PostMessageW(window().cancel_button, BM_CLICK, 0, 0);
}

void RunningLauncher::close_window() { PostMessageW(window().window, WM_SYSCOMMAND, SC_CLOSE, 0); }

void RunningLauncher::wait_until_cancelling() {
  HWND button = window().cancel_button;
  const auto says_so = [&] { return text_of(button) == L"Cancelling..." && IsWindowEnabled(button) == 0; };
  ASSERT_TRUE(wait_until([&] { return says_so() || !runs(); }, limit_ms))
      << "the button says \"" << to_utf8(text_of(button)) << "\"";
}

void RunningLauncher::change_dpi(uint16_t dpi) {
  HWND moved = window().window;
  RECT place{};
  RECT client{};
  GetWindowRect(moved, &place);
  GetClientRect(moved, &client);
  const auto before = static_cast<int>(GetDpiForWindow(moved));
  place.right += MulDiv(client.right, dpi, before) - client.right;
  place.bottom += MulDiv(client.bottom, dpi, before) - client.bottom;
  send_dpi_change(moved, dpi, place);
}

Prompt RunningLauncher::wait_for_prompt() {
  if (!wait_while_it_runs([this] { return has_message_box(id_); })) {
    ADD_FAILURE() << (runs() ? "no prompt came" : "the launcher ended without a prompt");
    return {};
  }
  box_ = wait_for_message_box(id_);
  return read_prompt(box_, id_);
}

void RunningLauncher::answer(uint32_t button) {
  HWND window = box_.window;
  if (window == nullptr) return;  // there was none, and the test has failed
  box_.press(button);
  box_ = {};
  ASSERT_TRUE(wait_until([&] { return IsWindow(window) == 0; })) << "the prompt stayed";
}

std::optional<uint32_t> RunningLauncher::wait_for_end(bool silent) {
  bool shown = false;
  const auto ended_or_asks = [&] {
    shown = shown || (silent && shows_a_window(id_));
    return !runs() || has_message_box(id_);
  };
  if (!wait_until(ended_or_asks, end_limit_ms)) ADD_FAILURE() << "the launcher did not end";
  EXPECT_FALSE(shown) << "a silent launcher showed a window";
  if (runs() && has_message_box(id_)) {
    ADD_FAILURE() << "a prompt that the story does not know: " << read_prompt(wait_for_message_box(id_), id_);
    kill();
    return std::nullopt;
  }
  DWORD code = 0;
  if (runs() || GetExitCodeProcess(process_.get(), &code) == 0) return std::nullopt;
  return code;
}

void RunningLauncher::kill() {
  if (!runs()) return;
  TerminateProcess(process_.get(), 1);
  WaitForSingleObject(process_.get(), limit_ms);
}

}  // namespace kvx::test
