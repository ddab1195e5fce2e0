#include <windows.h>

#include <gmock/gmock.h>

#include "foundations/child_process.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "tests/launcher/updater_fixture.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/test_clock.h"
#include "tests/support/test_process.h"
#include "tests/support/window_driver.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

using test::allow_cancel_event;
using test::prompt_event;
using test::ReleaseBuilder;
using test::result_text;
using test::status_event;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class UpdatePhases : public test::UpdaterFixture {
 protected:
  UpdatePhases() { test::write_text(staged(L"state.txt"), old_state); }

  static ReleaseBuilder release() {
    return ReleaseBuilder().version("1.1").serial(7).file("bin/game.exe", "game 1.1").file("copy.exe", "game 1.1");
  }
  std::string blob_path() const { return test::blob_url_path("game 1.1"); }

  std::wstring not_downloaded(const std::string& reason) const {
    return L"The update could not be downloaded:\n" + to_wide(reason) +
           L"\n\nThe installed files were not changed. Please try again later.";
  }

  const std::string old_state = "installed.version=1.0\nserial.live=6\n";
  test::TestClock clock;
};

TEST_F(UpdatePhases, InstallsAFirstReleaseAndStartsIt) {
  DeleteFileW(staged(L"state.txt").c_str());
  const std::string program = test::test_program_bytes();
  const ReleaseBuilder first =
      ReleaseBuilder().version("1.1").serial(7).file("bin/game.exe", program).file("copy.exe", program).arg("-x");
  publish(first);
  options.no_launch = false;
  environment.free_space = [](const std::wstring&) { return uint64_t{1} << 40; };
  ui.answer(button_yes);
  EXPECT_EQ(run(), RunOutcome::success);

  const std::vector<test::UiEvent> events = ui.events();
  ASSERT_EQ(events.size(), 8U);
  EXPECT_EQ(events[0], allow_cancel_event(true));
  EXPECT_EQ(events[1], status_event(L"Connecting to the update server..."));
  EXPECT_EQ(events[2].style, style_question);
  EXPECT_EQ(events[3], status_event(L"Downloading KVX 1.1..."));
  EXPECT_EQ(events[4], allow_cancel_event(false));
  EXPECT_EQ(events[5], status_event(L"Waiting for KVX to close..."));
  EXPECT_EQ(events[6], status_event(L"Installing the update..."));
  EXPECT_EQ(events[7], status_event(L"Starting KVX..."));
  EXPECT_EQ(ui.progress_mode.load(), ProgressMode::busy);

  const std::string size = std::to_string(program.size());
  EXPECT_THAT(
      log(),
      ElementsAre(log_header(), log_server(),
                  "manifest: " + std::to_string(first.json().size()) + " bytes, signature OK (key primary)",
                  "manifest: version 1.1 serial 7, 2 files, 0 removals, exe bin/game.exe",
                  "update to 1.1: 2 files to replace (1 unique, " + size + " bytes, 0 already staged), 0 to remove",
                  "disk: 1099511627776 bytes free, " + size + " needed",
                  "downloaded + verified " + test::sha256_hex(program) + " (" + size + " bytes)",
                  "update to 1.1 complete", StartsWith("started " + to_utf8(installed(L"bin\\game.exe")) + " (pid "),
                  "exit code 0 (launched=1)"));
  EXPECT_EQ(state(),
            "complete=1\ninstalled.channel=live\ninstalled.serial=7\ninstalled.version=1.1\nserial.live=7\n"
            "updating.serial=7\n");
  EXPECT_EQ(test::read_text(staged(L"installed_manifest.json")), first.json());
  EXPECT_EQ(result(), result_text(0, 1, "updated to 1.1"));
  EXPECT_EQ(test::read_text(installed(L"copy.exe")), program);
  EXPECT_FALSE(test::exists(blob(program)));
  ASSERT_TRUE(test::wait_until([&] { return test::exists(installed(L"started.txt")); }));
  EXPECT_THAT(test::read_text(installed(L"started.txt")),
              StartsWith("directory=" + to_utf8(folder.path()) + "\nargument=-x\n"));
}

TEST_F(UpdatePhases, UpdatesAnInstallationWithoutStartingItWithNoLaunch) {
  test::write_text(installed(L"old.pak"), "old");
  publish(release().remove("old.pak").remove("gone.pak"));
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_EQ(ui.progress_total.load(), 4U);  // of the install: two files, two removals
  EXPECT_THAT(ui.prompts(), IsEmpty());
  EXPECT_THAT(
      ui.statuses(),
      ElementsAre(status_event(L"Connecting to the update server..."), status_event(L"Downloading update 1.1..."),
                  status_event(L"Waiting for KVX to close..."), status_event(L"Installing the update...")));
  EXPECT_THAT(log(), AllOf(Contains("update to 1.1: 2 files to replace (1 unique, 8 bytes, 0 already staged), 1 to "
                                    "remove"),
                           Contains("--no-launch: not starting bin/game.exe")));
  EXPECT_FALSE(test::exists(installed(L"old.pak")));
  EXPECT_EQ(result(), result_text(0, 0, "updated to 1.1"));
}

TEST_F(UpdatePhases, InstallsARemovalAlone) {
  install_files(release());
  test::write_text(installed(L"old.pak"), "old");
  publish(release().remove("old.pak"));
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_FALSE(test::exists(installed(L"old.pak")));
  EXPECT_EQ(result(), result_text(0, 0, "updated to 1.1"));
}

TEST_F(UpdatePhases, ShowsTheDownloadAsATransferFromItsBeginning) {
  publish(release());
  ui.progress_done = 99;
  ProgressMode mode = ProgressMode::busy;
  uint64_t total = 0;
  uint64_t done = 99;
  server.on_request(blob_path(), [&](const test::RecordedRequest&) {
    mode = ui.progress_mode;
    total = ui.progress_total;
    done = ui.progress_done;
  });
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_EQ(mode, ProgressMode::transfer);
  EXPECT_EQ(total, 8U);
  EXPECT_EQ(done, 0U);
}

TEST_F(UpdatePhases, TellsWhyTheDownloadFailedAndChangesNothing) {
  test::write_text(installed(L"bin\\game.exe"), "game 1.0");
  publish(release());
  server.remove(blob_path());
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::download_failed);
  const std::string reason = "a required file is missing on the update server (HTTP 404)";
  EXPECT_THAT(ui.prompts(), ElementsAre(prompt_event(not_downloaded(reason), style_error)));
  EXPECT_THAT(log(), Contains("download failed: " + reason));
  EXPECT_EQ(result(), result_text(30, 0, reason));
  EXPECT_EQ(ui.progress_mode.load(), ProgressMode::busy);
  EXPECT_EQ(state(), old_state);
  EXPECT_EQ(test::read_text(installed(L"bin\\game.exe")), "game 1.0");
}

TEST_F(UpdatePhases, KeepsWhatWasDownloadedAtACancelAndResumesItLater) {
  // Twice as much as the program reads at once, and the rest.
  constexpr size_t first_bytes = 2097152;
  const std::string content(3000000, 'g');
  publish(ReleaseBuilder().version("1.1").serial(7).file("bin/game.exe", content));
  const std::string path = test::blob_url_path(content);
  test::ScriptedUi user;
  server.script(path,
                {test::ScriptedResponse(test::status_line(200) + "Content-Length: 3000000\r\nConnection: close\r\n\r\n")
                     .then(content.substr(0, first_bytes))
                     .call([&] {
                       EXPECT_TRUE(test::wait_until([&] { return user.progress_done == first_bytes; }));
                       user.cancel_requested = true;
                     })
                     .then(content.substr(first_bytes))});
  Updater updater(options, user, environment);
  const RunOutcome outcome = updater.run();
  updater.write_result(outcome);
  EXPECT_EQ(outcome, RunOutcome::cancelled);
  EXPECT_THAT(user.prompts(), IsEmpty());
  EXPECT_EQ(user.progress_mode.load(), ProgressMode::busy);
  EXPECT_EQ(result(), result_text(60, 0, ""));
  EXPECT_THAT(log(), Not(Contains(StartsWith("download failed"))));
  EXPECT_TRUE(test::read_text(partial_blob(content)) == content.substr(0, first_bytes));
  EXPECT_EQ(state(), old_state);

  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_EQ(server.requests_for(path).back().header("Range"), "bytes=2097152-");
  EXPECT_THAT(log(),
              Contains("update to 1.1: 1 files to replace (1 unique, 3000000 bytes, 2097152 already staged), 0 to "
                       "remove"));
  EXPECT_TRUE(test::read_text(installed(L"bin\\game.exe")) == content);
  EXPECT_FALSE(test::exists(partial_blob(content)));
}

TEST_F(UpdatePhases, EndsAtACancelThatComesJustBeforeTheInstall) {
  publish(release());
  ui.on_allow_cancel([this](bool allowed) {
    if (!allowed) ui.cancel_requested = true;
  });
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_THAT(ui.prompts(), IsEmpty());
  EXPECT_THAT(ui.statuses(), Not(Contains(status_event(L"Waiting for KVX to close..."))));
  EXPECT_EQ(ui.progress_mode.load(), ProgressMode::busy);
  EXPECT_EQ(result(), result_text(60, 0, ""));
  EXPECT_EQ(state(), old_state);
  EXPECT_TRUE(test::exists(blob("game 1.1")));
  EXPECT_FALSE(test::exists(installed(L"bin")));
}

bool opens(const std::wstring& path) {
  return static_cast<bool>(
      FileHandle(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)));
}

// Makes `link` refer to the device that refuses every byte for want of space. Only Wine has one.
bool link_to_full_disk(const std::wstring& link) {
  using GetUnixName = char*(CDECL*)(const wchar_t*);
  const auto function = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name");
  if (function == nullptr) return false;
  char* unix_name = reinterpret_cast<GetUnixName>(reinterpret_cast<void*>(function))(link.c_str());
  if (unix_name == nullptr) return false;
  const std::wstring name = to_wide(unix_name);
  HeapFree(GetProcessHeap(), 0, unix_name);
  uint32_t process_id = 0;
  uint32_t error = 0;
  return start_program(L"Z:\\bin\\ln", L"ln -s /dev/full " + quote_argument(name), L"Z:\\", process_id, error) &&
         test::wait_until([&] { return opens(link); });
}

TEST_F(UpdatePhases, ReportsAFullDiskAsSuch) {
  publish(release());
  test::write_text(staged(L"dl\\x"), "");
  if (!link_to_full_disk(partial_blob("game 1.1"))) GTEST_SKIP() << "there is no device that is always full";
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::disk_full);
  EXPECT_THAT(ui.prompts(), ElementsAre(prompt_event(not_downloaded("the disk is full"), style_error)));
  EXPECT_EQ(result(), result_text(31, 0, "the disk is full"));
  EXPECT_EQ(state(), old_state);
}

TEST_F(UpdatePhases, DoesNotInstallWhileTheGameRuns) {
  test::copy_test_program(installed(L"bin\\server.exe"));
  test::WaitingProgram running(installed(L"bin\\server.exe"));
  publish(release());
  ui.on_prompt([](const test::UiEvent& prompt) { return unattended_answer(prompt.style); });
  EXPECT_EQ(run(), RunOutcome::game_running);
  EXPECT_THAT(ui.prompts(),
              ElementsAre(prompt_event(L"KVX is still running:\n" + installed(L"bin\\server.exe") +
                                           L"\n\nPlease close the game, then press Retry to install the update.",
                                       style_retry)));
  EXPECT_EQ(ui.statuses().back(), status_event(L"Waiting for KVX to close..."));
  EXPECT_THAT(ui.events(), Contains(allow_cancel_event(false)));
  EXPECT_EQ(ui.progress_mode.load(), ProgressMode::busy);
  EXPECT_EQ(result(), result_text(40, 0, "KVX is running"));
  EXPECT_EQ(state(), old_state);
  EXPECT_FALSE(test::exists(installed(L"bin\\game.exe")));
  EXPECT_TRUE(test::exists(blob("game 1.1")));
  running.end();
}

TEST_F(UpdatePhases, InstallsOnceTheGameIsClosed) {
  test::copy_test_program(installed(L"bin\\server.exe"));
  test::WaitingProgram running(installed(L"bin\\server.exe"));
  publish(release());
  ui.on_prompt([&](const test::UiEvent&) {
    running.end();
    return button_retry;
  });
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_EQ(ui.prompts().size(), 1U);
  EXPECT_EQ(test::read_text(installed(L"bin\\game.exe")), "game 1.1");
}

TEST_F(UpdatePhases, TellsWhyTheInstallFailedAndLeavesItUnfinished) {
  test::write_text(installed(L"copy.exe"), "old copy");
  publish(ReleaseBuilder().version("1.1").serial(7).file("copy.exe", "new copy!"));
  const test::FileLock held(installed(L"copy.exe"));
  ui.answer(button_cancel);
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::install_failed);
  const std::vector<test::UiEvent> prompts = ui.prompts();
  ASSERT_EQ(prompts.size(), 2U);
  EXPECT_EQ(prompts[0].style, style_retry);
  const std::string last_result = result();
  const std::string reason_start = "code=42\nlaunched=0\nlauncher=1.0.0\nmessage=";
  ASSERT_THAT(last_result, StartsWith(reason_start + "could not replace copy.exe: "));
  const std::string reason = last_result.substr(reason_start.size(), last_result.size() - reason_start.size() - 1);
  EXPECT_EQ(prompts[1], prompt_event(L"The update could not be installed:\n" + to_wide(reason) +
                                         L"\n\nStart the launcher again to finish the update.",
                                     style_error));
  EXPECT_EQ(ui.progress_mode.load(), ProgressMode::busy);
  EXPECT_EQ(state(), "complete=0\ninstalled.version=1.0\nserial.live=6\nupdating.serial=7\n");
  EXPECT_TRUE(test::exists(blob("new copy!")));
  EXPECT_FALSE(test::exists(staged(L"installed_manifest.json")));
}

TEST_F(UpdatePhases, ReportsAnUpdatedGameThatDoesNotStart) {
  publish(release());  // its program is no program
  options.no_launch = false;
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::game_not_started);
  EXPECT_EQ(result(), result_text(70, 0, "updated to 1.1"));
  EXPECT_THAT(state(), StartsWith("complete=1\n"));
}

}  // namespace
}  // namespace kvx
