// The built launcher as its user has it: its command line, its window, its files and its exit code.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundations/text.h"
#include "launcher/instance_lock.h"
#include "tests/launcher/test_process.h"
#include "tests/support/release_builder.h"
#include "tests/support/scripted_server.h"
#include "tests/support/signing_keys.h"
#include "tests/support/temp_folder.h"
#include "tests/support/window_driver.h"

namespace kvx {
namespace {

using test::ReleaseBuilder;
using test::TestProcess;
using test::wait_until;
using testing::StartsWith;

class LauncherProgram : public testing::Test {
 protected:
  LauncherProgram() { test::copy_program(to_wide(KVX_LAUNCHER_PROGRAM), launcher_); }

  void publish(const ReleaseBuilder& release) {
    release.publish_blobs(server_);
    server_.serve("manifest.sig", test::sign_manifest(release.json()));
    server_.serve("manifest.json", release.json());
  }

  std::wstring command_line(const std::wstring& options) const {
    return L"--base-url=" + server_.base_url() + L" " + options;
  }

  std::string result() const { return test::read_text(folder_ / L".kvx_patch\\last_result.txt"); }

  static std::string result_text(const std::string& code, const std::string& launched, const std::string& message) {
    return "code=" + code + "\nlaunched=" + launched + "\nlauncher=1.0.0\nmessage=" + message + "\n";
  }

  test::TempFolder folder_;
  test::ScriptedServer server_;
  const std::wstring launcher_ = folder_ / L"KVXLauncher.exe";
};

TEST_F(LauncherProgram, InstallsAndStartsTheGameInSilence) {
  publish(ReleaseBuilder().version("1.1").file("bin/game.exe", test::test_program_bytes()).arg("first one"));
  const TestProcess process(launcher_, command_line(L"--unattended --hidden"), folder_.path());
  HWND shown = nullptr;
  bool box = false;
  EXPECT_TRUE(wait_until([&] {
    HWND window = test::find_window(L"KVXLauncherWindow", process.id());
    if (window != nullptr && IsWindowVisible(window) != 0) shown = window;
    box = box || test::has_message_box(process.id());
    return !process.runs();
  }));
  EXPECT_EQ(process.wait(), 0U);
  EXPECT_EQ(shown, nullptr);
  EXPECT_FALSE(box);
  EXPECT_EQ(result(), result_text("0", "1", "updated to 1.1"));
  ASSERT_TRUE(wait_until([&] { return test::exists(folder_ / L"started.txt"); }));
  EXPECT_THAT(test::read_text(folder_ / L"started.txt"),
              StartsWith("directory=" + to_utf8(folder_.path()) + "\nargument=first one\n"));
}

TEST_F(LauncherProgram, ShowsItsWindowAndEndsWithTheCodeOfItsRun) {
  const test::Gate gate;
  server_.always("manifest.json", test::ScriptedResponse().wait_for(gate).then("HTTP/1.1 404 Not Found\r\n"
                                                                               "Content-Length: 0\r\n"
                                                                               "Connection: close\r\n\r\n"));
  const TestProcess process(launcher_, command_line(L"--channel=live"), folder_.path());
  const test::ProgressWindow window = test::wait_for_progress_window(process.id());
  EXPECT_TRUE(wait_until([&] { return IsWindowVisible(window.window) != 0; }));
  EXPECT_TRUE(wait_until([&] { return test::text_of(window.status_text) == L"Connecting to the update server..."; }));
  EXPECT_TRUE(wait_until([&] { return IsWindowEnabled(window.cancel_button) != 0; }));
  gate.open();
  const test::MessageBoxWindow box = test::wait_for_message_box(process.id());
  EXPECT_EQ(box.text,
            L"No game version is published on the update server for channel \"live\".\n\nKVX is not installed in this "
            L"folder yet, so it cannot be started.\nPlease check your internet connection and try again later.");
  EXPECT_EQ(box.owner, window.window);
  EXPECT_TRUE(process.runs());
  box.press(IDOK);
  EXPECT_EQ(process.wait(), 10U);
  EXPECT_EQ(result(),
            result_text("10", "0", "No game version is published on the update server for channel \"live\"."));
}

TEST_F(LauncherProgram, IsCancelledByItsButton) {
  const test::Gate gate;
  server_.always("manifest.json", test::ScriptedResponse().wait_for(gate).then("HTTP/1.1 404 Not Found\r\n"
                                                                               "Content-Length: 0\r\n"
                                                                               "Connection: close\r\n\r\n"));
  const TestProcess process(launcher_, command_line(L""), folder_.path());
  const test::ProgressWindow window = test::wait_for_progress_window(process.id());
  EXPECT_TRUE(wait_until([&] { return IsWindowEnabled(window.cancel_button) != 0; }));
  PostMessageW(window.cancel_button, BM_CLICK, 0, 0);
  EXPECT_TRUE(wait_until([&] { return test::text_of(window.cancel_button) == L"Cancelling..."; }));
  EXPECT_TRUE(process.runs());
  gate.open();
  EXPECT_EQ(process.wait(), 60U);
  EXPECT_EQ(result(), result_text("60", "0", ""));
}

TEST_F(LauncherProgram, RefusesToRunTwiceInOneFolder) {
  const test::Gate gate;
  server_.always("manifest.json", test::ScriptedResponse().wait_for(gate).then("HTTP/1.1 404 Not Found\r\n"
                                                                               "Content-Length: 0\r\n"
                                                                               "Connection: close\r\n\r\n"));
  test::write_text(folder_ / L".kvx_patch\\last_result.txt", "of an earlier run");
  const TestProcess first(launcher_, command_line(L"--unattended --hidden"), folder_.path());
  ASSERT_TRUE(gate.wait_until_reached());
  const TestProcess second(launcher_, command_line(L"--unattended --hidden"), folder_.path());
  EXPECT_EQ(second.wait(), 41U);
  EXPECT_EQ(result(), "of an earlier run");
  gate.open();
  EXPECT_EQ(first.wait(), 10U);
  EXPECT_THAT(result(), StartsWith("code=10\n"));
  EXPECT_EQ(test::read_text(folder_ / L".kvx_patch\\launcher.lock"), std::to_string(first.id()) + "\n");
}

// Only Wine runs programs of the system around it, and only there can a program be without a display.
bool runs_under_wine() { return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

TEST_F(LauncherProgram, EndsWithoutAWorkerWhenItsWindowCannotBeCreated) {
  if (!runs_under_wine()) GTEST_SKIP() << "there is always a display";
  // The exit code comes in a file, since a program of the other system cannot be waited for.
  test::write_text(folder_ / L"run.sh",
                   "unset DISPLAY WAYLAND_DISPLAY\n"
                   "wine=$(command -v /usr/lib/wine/wine64 || command -v wine64 || command -v wine)\n"
                   "\"$wine\" ./KVXLauncher.exe --unattended --hidden \"$1\"\n"
                   "echo $? >code.tmp && mv code.tmp code.txt\n");
  const TestProcess shell(L"Z:\\bin\\sh", L"run.sh --base-url=" + server_.base_url(), folder_.path());
  ASSERT_TRUE(wait_until([&] { return test::exists(folder_ / L"code.txt"); }));
  EXPECT_EQ(test::read_text(folder_ / L"code.txt"), "99\n");
  EXPECT_FALSE(test::exists(folder_ / L".kvx_patch"));
  EXPECT_TRUE(server_.requests().empty());
}

}  // namespace
}  // namespace kvx
