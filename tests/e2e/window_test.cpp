// What the window shows in each phase of a run, and how it is handled.
#include <windows.h>
#include <commctrl.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

#include "foundations/display_format.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "tests/e2e/foreign_process.h"
#include "tests/e2e/story.h"
#include "tests/e2e/update_texts.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"

namespace kvx::test {
namespace {

constexpr int bar_range = 10000;

LONG_PTR style_of(HWND window) { return GetWindowLongPtrW(window, GWL_STYLE); }

LRESULT bar_position(const ProgressWindow& window) { return SendMessageW(window.progress_bar, PBM_GETPOS, 0, 0); }

bool has_marquee(const ProgressWindow& window) { return (style_of(window.progress_bar) & PBS_MARQUEE) != 0; }

bool is_enabled(HWND control) { return IsWindowEnabled(control) != 0; }

// A place in client coordinates at 96 DPI, as it is at another one.
RECT scaled(int x, int y, int width, int height, UINT dpi) {
  const auto at = [dpi](int length) { return MulDiv(length, static_cast<int>(dpi), USER_DEFAULT_SCREEN_DPI); };
  return {at(x), at(y), at(x) + at(width), at(y) + at(height)};
}

std::vector<LONG> numbers(const RECT& place) { return {place.left, place.top, place.right, place.bottom}; }

void expect_layout(const ProgressWindow& window, UINT dpi) {
  EXPECT_EQ(numbers(place_of(window.status_text)), numbers(scaled(18, 16, 444, 24, dpi)));
  EXPECT_EQ(numbers(place_of(window.detail_text)), numbers(scaled(18, 44, 444, 20, dpi)));
  EXPECT_EQ(numbers(place_of(window.progress_bar)), numbers(scaled(18, 72, 444, 16, dpi)));
  EXPECT_EQ(numbers(place_of(window.cancel_button)), numbers(scaled(362, 102, 100, 28, dpi)));
  // The window manager may make it another size for a moment.
  const std::vector<LONG> client = numbers(scaled(0, 0, 480, 146, dpi));
  static_cast<void>(wait_until([&] { return numbers(client_area_of(window.window)) == client; }));
  EXPECT_EQ(numbers(client_area_of(window.window)), client);
}

// The place on the screen of a window of this size in its middle.
RECT centred(LONG width, LONG height) {
  RECT work{};
  SystemParametersInfoW(SPI_GETWORKAREA, 0, &work, 0);
  const LONG left = work.left + (work.right - work.left - width) / 2;
  const LONG top = work.top + (work.bottom - work.top - height) / 2;
  return {left, top, left + width, top + height};
}

void expect_centred(HWND window) {
  RECT place{};
  const auto is_centred = [&] {
    GetWindowRect(window, &place);
    return numbers(place) == numbers(centred(place.right - place.left, place.bottom - place.top));
  };
  EXPECT_TRUE(wait_until(is_centred)) << place.left << ", " << place.top;
}

void expect_fonts(const ProgressWindow& window, UINT dpi) {
  NONCLIENTMETRICSW metrics{};
  metrics.cbSize = sizeof(metrics);
  ASSERT_TRUE(SystemParametersInfoForDpi(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0, dpi));
  const LOGFONTW& normal = metrics.lfMessageFont;
  for (HWND control : {window.detail_text, window.cancel_button}) {
    const LOGFONTW font = font_of(control);
    EXPECT_STREQ(font.lfFaceName, normal.lfFaceName);
    EXPECT_EQ(font.lfHeight, normal.lfHeight);
    EXPECT_EQ(font.lfWeight, normal.lfWeight);
  }
  const LOGFONTW bold = font_of(window.status_text);
  EXPECT_EQ(bold.lfHeight, normal.lfHeight * 118 / 100);
  EXPECT_EQ(bold.lfWeight, FW_SEMIBOLD);
}

class WindowOfARun : public Story {
 protected:
  // Runs that connect, but get no answer before the gate opens.
  void given_a_slow_server(const Gate& gate) {
    const std::string document = first_release().json();
    server_.script("manifest.json",
                   {ScriptedResponse().wait_for(gate).then(status_line(200) + "Connection: close\r\nContent-Length: " +
                                                           std::to_string(document.size()) + "\r\n\r\n" + document)});
  }

  void then_it_says(const std::wstring& status, const std::wstring& detail_pattern) {
    run().wait_for_status(status);
    run().wait_for_detail(detail_pattern);
  }

  void then_it_is_busy() {
    HWND bar = run().window().progress_bar;
    EXPECT_TRUE(wait_until([bar] { return (style_of(bar) & PBS_MARQUEE) != 0; }));
  }

  void then_the_bar_is_at(uint64_t done, uint64_t total) {
    EXPECT_FALSE(has_marquee(run().window()));
    EXPECT_EQ(bar_position(run().window()), static_cast<LRESULT>(done * bar_range / total));
  }

  // What the line below says was checked: "Checked 1.25 GB of ...".
  double checked_bytes() {
    std::wistringstream words(text_of(run().window().detail_text));
    std::wstring word;
    std::wstring unit;
    double count = 0;
    words >> word >> count >> unit;
    EXPECT_EQ(word, L"Checked");
    for (const auto& [name, bytes] : {std::pair(L"GB", 1ULL << 30), {L"MB", 1ULL << 20}, {L"KB", 1ULL << 10}}) {
      if (unit == name) return count * static_cast<double>(bytes);
    }
    return count;
  }

  void press_key(HWND control, int virtual_key) {
    const auto key = static_cast<WPARAM>(virtual_key);
    PostMessageW(control, WM_KEYDOWN, key, 0);
    PostMessageW(control, WM_KEYUP, key, LPARAM{3} << 30);
  }

  HWND focused_control() {
    GUITHREADINFO info{};
    info.cbSize = sizeof(info);
    GetGUIThreadInfo(GetWindowThreadProcessId(run().window().window, nullptr), &info);
    return info.hwndFocus;
  }

  // Goes to the button and presses it. To be tried again, because a window of another program may come to the front at
  // any moment and take the focus along.
  bool cancels_with_keys(int virtual_key) {
    constexpr uint32_t patience_ms = 1000;
    HWND button = run().window().cancel_button;
    press_key(run().window().window, VK_TAB);
    if (!wait_until([&] { return focused_control() == button; }, patience_ms)) return false;
    press_key(button, virtual_key);
    return wait_until([&] { return text_of(button) == L"Cancelling..."; }, patience_ms);
  }

  static const std::string& long_content() {
    static const std::string content(1'000'000, 'x');
    return content;
  }

  static ReleaseBuilder long_update() {
    return ReleaseBuilder()
        .version("1.1")
        .serial(2)
        .file("bin/game.exe", game_program())
        .file("data/a.txt", long_content());
  }
};

TEST_F(WindowOfARun, IsASmallOneOfFixedSizeInTheMiddleOfTheScreen) {
  given_installed(first_release());
  const PlayerFolder elsewhere;
  copy_test_program(elsewhere.file("other.exe"));
  WaitingProgram other(elsewhere.file("other.exe"));
  when_started(L"--wait-pid=" + std::to_wstring(other.id()));  // so that it stays what it is at first
  const ProgressWindow window = run().window();
  EXPECT_TRUE(wait_until([&] { return run().window_is_shown(); }));
  then_it_is_busy();
  EXPECT_EQ(find_window(L"KVXLauncherWindow", run().id()), window.window);
  EXPECT_EQ(text_of(window.window), L"KVX Launcher");
  EXPECT_EQ(style_of(window.window) & (WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | WS_THICKFRAME | WS_MAXIMIZEBOX),
            WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX);

  EXPECT_EQ(text_of(window.status_text), L"Starting...");
  EXPECT_EQ(text_of(window.detail_text), L"");
  EXPECT_EQ(text_of(window.cancel_button), L"Cancel");
  EXPECT_FALSE(is_enabled(window.cancel_button));
  EXPECT_EQ(SendMessageW(window.progress_bar, PBM_GETRANGE, FALSE, 0), bar_range);
  EXPECT_EQ(style_of(window.progress_bar) & PBS_SMOOTH, PBS_SMOOTH);
  for (HWND text : {window.status_text, window.detail_text}) {
    EXPECT_EQ(style_of(text) & (SS_TYPEMASK | SS_ELLIPSISMASK), SS_LEFTNOWORDWRAP | SS_ENDELLIPSIS);
  }
  expect_layout(window, GetDpiForWindow(window.window));
  expect_fonts(window, GetDpiForWindow(window.window));

  expect_centred(window.window);
  other.end();
  then_ends(0, launched, "up to date 1.0");
}

// ---- phase by phase

TEST_F(WindowOfARun, SaysThatItConnects) {
  given_installed(first_release());
  const Gate gate;
  given_a_slow_server(gate);
  when_started();
  then_it_says(L"Connecting to the update server...", L"");
  run().wait_until_cancel_is(true);
  then_it_is_busy();
  gate.open();
  then_ends(0, launched, "up to date 1.0");
}

TEST_F(WindowOfARun, SaysHowFarTheDownloadOfAFirstInstallIsAndHowFast) {
  const ReleaseBuilder release = ReleaseBuilder().file("bin/game.exe", long_content());
  given_published(release);
  constexpr uint64_t come = 300'000;
  constexpr size_t piece = 5'000;
  constexpr DWORD piece_ms = 100;
  const Gate nothing_came;
  const Gate some_came;
  const KernelHandle seen(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  ScriptedResponse response(status_line(200) + "Connection: close\r\nContent-Length: 1000000\r\n\r\n");
  response.wait_for(nothing_came).then(long_content().substr(0, come)).wait_for(some_came);
  // The rest comes slowly until the window was seen to say how fast.
  for (size_t at = come; at < long_content().size(); at += piece) {
    response.then(long_content().substr(at, piece)).call([event = seen.get()] {
      WaitForSingleObject(event, piece_ms);
    });
  }
  server_.script(blob_url_path(long_content()), {response});
  when_started(L"--no-launch");
  static_cast<void>(run().wait_for_prompt());
  EXPECT_EQ(text_of(run().window().status_text), L"Connecting to the update server...");
  run().answer(IDYES);
  then_it_says(L"Downloading KVX 1.0...", L"0 bytes of 977 KB");
  EXPECT_TRUE(is_enabled(run().window().cancel_button));
  then_the_bar_is_at(0, 1000000);
  nothing_came.open();
  then_it_says(L"Downloading KVX 1.0...", L"293 KB of 977 KB*");
  then_the_bar_is_at(come, 1000000);
  EXPECT_TRUE(is_enabled(run().window().cancel_button));
  some_came.open();
  then_it_says(L"Downloading KVX 1.0...", L"* KB of 977 KB   -   * KB/s   -   about * left");
  SetEvent(seen.get());
  then_ends(0, not_launched, "updated to 1.0");
}

TEST_F(WindowOfARun, CountsWhatAnEarlierRunDownloaded) {
  given_installed(first_release());
  const ReleaseBuilder release = long_update().file("data/b.txt", std::string(500'000, 'y'));
  given_published(release);
  folder().write(".kvx_patch/blobs/" + sha256_hex(std::string(500'000, 'y')), std::string(500'000, 'y'));
  folder().write(".kvx_patch/dl/" + sha256_hex(long_content()) + ".part", long_content().substr(0, 250'000));
  const Gate gate;
  server_.script(blob_url_path(long_content()),
                 {ScriptedResponse(status_line(206) + "Connection: close\r\nContent-Length: 750000\r\n"
                                                      "Content-Range: bytes 250000-999999/1000000\r\n\r\n")
                      .wait_for(gate)
                      .then(long_content().substr(250'000))});
  when_started();
  ASSERT_TRUE(gate.wait_until_reached());
  then_it_says(L"Downloading update 1.1...", L"732 KB of 1.4 MB*");
  then_the_bar_is_at(1, 2);
  gate.open();
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(release));
}

TEST_F(WindowOfARun, SaysHowFarTheCheckIs) {
  given_installed(first_release());
  constexpr uint64_t size = 20'000'000'000;  // long enough for all that is looked at meanwhile
  folder().write_zeros("data/big.bin", size);
  const auto entry = [](const std::string& name, uint64_t bytes, const std::string& digest) {
    return "{\"path\":\"" + name + "\",\"size\":" + std::to_string(bytes) + ",\"sha256\":\"" + digest + "\"}";
  };
  given_published(
      first_release().member("files", "[" + entry("bin/game.exe", game_program().size(), sha256_hex(game_program())) +
                                          "," + entry("data/big.bin", size, std::string(64, '0')) + "]"));
  when_started();
  then_it_says(L"Checking installed files...", L"Checked *B of " + format_size(size));
  EXPECT_TRUE(is_enabled(run().window().cancel_button));
  EXPECT_FALSE(has_marquee(run().window()));
  EXPECT_TRUE(wait_until([this] { return bar_position(run().window()) >= bar_range / 100; }));
  // The bar and the text are set together, so that the bar lies between the texts before and after the look at it.
  const double before = checked_bytes();
  const auto shown = static_cast<double>(bar_position(run().window()));
  const double after = checked_bytes();
  constexpr double rounding = 4;  // 0.005 GB in the text, and less than one in the bar
  EXPECT_GE(shown, before / size * bar_range - rounding);
  EXPECT_LE(shown, after / size * bar_range + rounding);
  run().press_cancel();
  then_ends(60, not_launched, "");
}

TEST_F(WindowOfARun, SaysThatItWaitsForTheGameAndWhichFileItInstalls) {
  given_installed(first_release().file("old.txt", "of 1.0 only"));
  const ReleaseBuilder release = ReleaseBuilder()
                                     .version("1.1")
                                     .serial(2)
                                     .file("bin/game.exe", game_program())
                                     .file("data/a.txt", "a of 1.1")
                                     .file("data/b.txt", "b of 1.1")
                                     .file("data/c.txt", "c of 1.1")
                                     .remove("old.txt");
  given_published(release);
  WaitingProgram game(folder().file("bin/game.exe"));
  when_started();
  EXPECT_TRUE(fits(run().wait_for_prompt(),
                   retry_prompt(L"KVX is still running:\n" + in_folder(L"bin\\game.exe") +
                                L"\n\nPlease close the game, then press Retry to install the update.")));
  EXPECT_EQ(text_of(run().window().status_text), L"Waiting for KVX to close...");
  EXPECT_EQ(text_of(run().window().detail_text), L"");
  EXPECT_FALSE(is_enabled(run().window().cancel_button));
  EXPECT_TRUE(has_marquee(run().window()));
  game.end();

  // Files go in by the order of their digests; the removal comes last.
  const std::string held = "a of 1.1";
  uint64_t before = 0;
  for (const std::string other : {"b of 1.1", "c of 1.1"}) before += sha256_hex(other) < sha256_hex(held) ? 1U : 0U;
  FileLock lock(folder().file("data/a.txt"));
  run().answer(IDRETRY);
  static_cast<void>(run().wait_for_prompt());
  EXPECT_EQ(text_of(run().window().status_text), L"Installing the update...");
  EXPECT_EQ(text_of(run().window().detail_text), L"File " + std::to_wstring(before) + L" of 4");
  EXPECT_FALSE(is_enabled(run().window().cancel_button));
  then_the_bar_is_at(before, 4);
  lock.release();
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(release));
}

TEST_F(WindowOfARun, SaysThatTheGameIsUpToDate) {
  given_installed(first_release());
  // What cannot be deleted keeps the run from going on at once: some seconds for each file.
  std::vector<std::unique_ptr<FileLock>> locks;
  for (const std::string number : {"1", "2", "3", "4", "5"}) {
    folder().write(".kvx_patch/dl/left over " + number, "");
    locks.push_back(std::make_unique<FileLock>(folder().file(".kvx_patch/dl/left over " + number)));
  }
  when_started();
  when_it_has_logged("installation matches version 1.0");
  ASSERT_TRUE(DeleteFileW(folder().file("bin/game.exe").c_str()));
  locks.clear();
  const Prompt shown = run().wait_for_prompt();
  EXPECT_TRUE(fits(shown, error_prompt(L"The game program was not found:\n" + in_folder(L"bin\\game.exe")))) << shown;
  EXPECT_EQ(text_of(run().window().status_text), L"KVX 1.0 is up to date.");
  EXPECT_EQ(text_of(run().window().detail_text), L"");
  EXPECT_FALSE(is_enabled(run().window().cancel_button));
  run().answer(IDOK);
  then_ends(70, not_launched, "up to date 1.0");
}

TEST_F(WindowOfARun, SaysThatItStartsTheGame) {
  const ReleaseBuilder release = ReleaseBuilder().file("bin/game.exe", "no program");
  given_installed(release);
  when_started();
  const Prompt shown = run().wait_for_prompt();
  EXPECT_TRUE(fits(shown, error_prompt(L"KVX could not be started:\n*"))) << shown;
  EXPECT_EQ(text_of(run().window().status_text), L"Starting KVX...");
  EXPECT_EQ(text_of(run().window().detail_text), L"");
  EXPECT_FALSE(is_enabled(run().window().cancel_button));
  run().answer(IDOK);
  then_ends(70, not_launched, "up to date 1.0");
}

// ---- how it is handled

TEST_F(WindowOfARun, IsLaidOutAnewOnAMonitorOfAnotherDpi) {
  given_installed(first_release());
  const Gate gate;
  given_a_slow_server(gate);
  when_started();
  run().wait_until_cancel_is(true);
  const ProgressWindow window = run().window();
  expect_layout(window, GetDpiForWindow(window.window));
  run().change_dpi(144);
  EXPECT_EQ(numbers(place_of(window.status_text)), numbers({27, 24, 693, 60}));
  EXPECT_EQ(numbers(place_of(window.cancel_button)), numbers({543, 153, 693, 195}));
  expect_layout(window, 144);
  expect_fonts(window, 144);
  gate.open();
  then_ends(0, launched, "up to date 1.0");
}

TEST_F(WindowOfARun, GoesToTheTaskBarAndComesBack) {
  given_installed(first_release());
  const Gate gate;
  given_a_slow_server(gate);
  when_started();
  run().wait_until_cancel_is(true);
  HWND window = run().window().window;
  PostMessageW(window, WM_SYSCOMMAND, SC_MINIMIZE, 0);
  EXPECT_TRUE(wait_until([window] { return IsIconic(window) != 0; }));
  PostMessageW(window, WM_SYSCOMMAND, SC_RESTORE, 0);
  EXPECT_TRUE(wait_until([window] {
    RECT client{};
    return IsIconic(window) == 0 && GetClientRect(window, &client) != 0 && client.bottom > 0;
  }));
  expect_layout(run().window(), GetDpiForWindow(window));
  PostMessageW(window, WM_SYSCOMMAND, SC_MINIMIZE, 0);
  EXPECT_TRUE(wait_until([window] { return IsIconic(window) != 0; }));
  gate.open();
  then_ends(0, launched, "up to date 1.0");  // it works on there
}

TEST_F(WindowOfARun, CanBeCancelledWithTheKeyboard) {
  given_installed(first_release());
  for (const int key : {VK_SPACE, VK_RETURN}) {
    SCOPED_TRACE(key);
    const Gate gate;
    given_a_slow_server(gate);
    when_started();
    run().wait_until_cancel_is(true);
    ASSERT_TRUE(wait_until([&] { return cancels_with_keys(key); }));
    then_ends(60, not_launched, "");
    gate.open();
  }
}

TEST_F(WindowOfARun, IsNeverShownWhenHiddenButStillAsks) {
  given_published(first_release());
  const Gate gate;
  server_.script(blob_url_path("a of 1.0"), {held_answer(gate, "a of 1.0")});
  when_started(L"--hidden");
  Prompt question = question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*");
  question.belongs_to_window = false;
  then_shows(question);
  EXPECT_FALSE(run().window_is_shown());
  run().answer(IDYES);
  ASSERT_TRUE(gate.wait_until_reached());
  then_it_says(L"Downloading KVX 1.0...", L"*");
  EXPECT_FALSE(run().window_is_shown());
  gate.open();
  then_ends(0, launched, "updated to 1.0");
  then_game_is(files_of(first_release()));
}

TEST_F(WindowOfARun, IsShownToAnUnattendedRunThatAsksNothing) {
  given_published(first_release());
  const Gate gate;
  given_a_slow_server(gate);
  when_started(L"--unattended");
  then_it_says(L"Connecting to the update server...", L"");
  EXPECT_TRUE(run().window_is_shown());
  gate.open();
  then_ends(0, launched, "updated to 1.0");  // and fails when a prompt is seen
  then_game_is(files_of(first_release()));
}

}  // namespace
}  // namespace kvx::test
