#include "launcher/updater.h"

#include <windows.h>

#include <gmock/gmock.h>

#include "foundations/error_text.h"
#include "foundations/text.h"
#include "tests/launcher/updater_fixture.h"
#include "tests/support/signing_keys.h"
#include "tests/support/test_clock.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

using test::allow_cancel_event;
using test::not_installed_prompt;
using test::prompt_event;
using test::ReleaseBuilder;
using test::result_text;
using test::status_event;
using testing::ElementsAre;

class UpdaterFrame : public test::UpdaterFixture {
 protected:
  void expect_no_trace() const {
    EXPECT_FALSE(test::exists(staged(L"launcher.log")));
    EXPECT_FALSE(test::exists(staged(L"last_result.txt")));
    EXPECT_TRUE(server.requests().empty());
  }

  test::TestClock clock;
};

TEST_F(UpdaterFrame, EndsWhenItsOwnFolderIsUnknown) {
  environment.find_layout = [](InstallLayout&) { return false; };
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::could_not_start);
  EXPECT_THAT(ui.events(), ElementsAre(prompt_event(L"The launcher could not determine its own folder.", style_error)));
  expect_no_trace();
}

TEST_F(UpdaterFrame, EndsWhenTheStagingFolderCannotBeMade) {
  test::write_text(installed(L".kvx_patch"), "a file has its name");
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::install_failed);
  EXPECT_THAT(ui.events(),
              ElementsAre(prompt_event(
                  L"KVX cannot be installed or updated in this folder because it is not writable:\n" + folder.path() +
                      L"\n\nPlease move KVXLauncher.exe into a folder where you can save files (for example "
                      L"Documents\\KVX) and start it again.",
                  style_error)));
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(UpdaterFrame, EndsWhenTheLockFileCannotBeMade) {
  test::write_text(staged(L"launcher.lock\\inside"), "a folder has its name");
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::install_failed);
  EXPECT_THAT(ui.events(),
              ElementsAre(prompt_event(
                  L"KVX cannot be updated in this folder because it is not writable:\n" + folder.path(), style_error)));
  expect_no_trace();
}

TEST_F(UpdaterFrame, LeavesTheFolderToALauncherThatIsAlreadyRunning) {
  test::write_text(staged(L"last_result.txt"), "the other one's");
  InstanceLock other;
  ASSERT_EQ(other.acquire(staged(L"launcher.lock")), InstanceLock::Result::acquired);
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::already_running);
  EXPECT_EQ(clock.total_slept_ms(), 2000U);
  EXPECT_THAT(ui.events(), ElementsAre(prompt_event(L"KVX Launcher is already running.", style_information)));
  EXPECT_EQ(result(), "the other one's");
  EXPECT_FALSE(test::exists(staged(L"launcher.log")));
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(UpdaterFrame, HoldsTheLockUntilTheResultIsWritten) {
  ui.answer(button_ok);
  InstanceLock other;
  {
    Updater updater(options, ui, environment);
    const RunOutcome outcome = updater.run();
    EXPECT_EQ(other.acquire(staged(L"launcher.lock")), InstanceLock::Result::held_by_another);
    EXPECT_FALSE(test::exists(staged(L"last_result.txt")));
    updater.write_result(outcome);
    EXPECT_EQ(other.acquire(staged(L"launcher.lock")), InstanceLock::Result::acquired);
  }
  other.release();
  EXPECT_EQ(test::read_text(staged(L"launcher.lock")), std::to_string(GetCurrentProcessId()) + "\n");
  EXPECT_TRUE(test::exists(staged(L"dl")));
  EXPECT_TRUE(test::exists(staged(L"blobs")));
}

TEST_F(UpdaterFrame, HidesTheStagingFolder) {
  const std::wstring staging = installed(L"staging");
  environment.find_layout = [&, find = environment.find_layout](InstallLayout& out) {
    const bool found = find(out);
    out.staging_dir = staging;  // Wine shows every name with a leading dot as hidden
    return found;
  };
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::no_update_information);
  EXPECT_EQ(GetFileAttributesW(staging.c_str()), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN));
}

TEST_F(UpdaterFrame, OpensEveryLogWithItsVersionAndItsWay) {
  const struct {
    bool self_updated;
    bool repair;
    const char* end;
  } cases[] = {{false, false, ""},
               {true, false, " (after self-update)"},
               {false, true, " --repair"},
               {true, true, " (after self-update) --repair"}};
  for (const auto& item : cases) {
    options.self_updated = item.self_updated;
    options.repair = item.repair;
    ui.answer(button_ok);
    EXPECT_EQ(run(), RunOutcome::no_update_information);
    const std::vector<std::string> lines = log();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0], log_header(item.end));
    EXPECT_EQ(lines[1], log_server());
  }
  EXPECT_TRUE(test::exists(staged(L"launcher.prev.log")));
}

TEST_F(UpdaterFrame, RefusesAChannelNameThatIsNone) {
  for (const std::wstring& channel :
       {std::wstring(33, L'a'), std::wstring(L"Live"), std::wstring(L"be.ta"), std::wstring(L"a b"),
        std::wstring(L"a/b"), std::wstring(L"\u00E4"), std::wstring(L"../x")}) {
    test::ScriptedUi user;
    user.answer(button_ok);
    options.channel = channel;
    Updater updater(options, user, environment);
    EXPECT_EQ(updater.run(), RunOutcome::could_not_start) << to_utf8(channel);
    updater.write_result(RunOutcome::could_not_start);
    EXPECT_THAT(user.events(), ElementsAre(prompt_event(L"Invalid channel name: " + channel, style_error)));
    EXPECT_EQ(result(), result_text(99, 0, ""));
    EXPECT_THAT(log(), ElementsAre(log_header(), "exit code 99 (launched=0)"));
    EXPECT_FALSE(test::exists(staged(L"state.txt")));
  }
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(UpdaterFrame, RefusesAStoredChannelNameThatIsNone) {
  test::write_text(staged(L"state.txt"), "channel=Not Good\n");
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::could_not_start);
  EXPECT_THAT(ui.events(), ElementsAre(prompt_event(L"Invalid channel name: Not Good", style_error)));
}

TEST_F(UpdaterFrame, UsesTheGivenChannelElseTheStoredOneElseLive) {
  const std::string longest(32, 'x');
  const struct {
    const char* stored;
    std::string given;
    std::string used;
    std::string stored_after;
  } cases[] = {
      {nullptr, "", "live", ""},
      {"", "live", "live", "channel=live\n"},
      {"complete=1\n", "", "live", "complete=1\n"},
      {"channel=beta\n", "", "beta", "channel=beta\n"},
      {"channel=beta\ncomplete=1\n", "test", "test", "channel=test\ncomplete=1\n"},
      {"channel=beta\n", "live", "live", "channel=live\n"},
      {nullptr, "live-2_test", "live-2_test", "channel=live-2_test\n"},
      {nullptr, longest, longest, "channel=" + longest + "\n"},
      // The same channel again: the file is not written again, or its line ends would change.
      {"channel=beta\r\n", "beta", "beta", "channel=beta\r\n"},
  };
  for (const auto& item : cases) {
    DeleteFileW(staged(L"state.txt").c_str());
    if (item.stored != nullptr) test::write_text(staged(L"state.txt"), item.stored);
    options.channel = to_wide(item.given);
    test::ScriptedUi user;
    user.answer(button_ok);
    Updater updater(options, user, environment);
    updater.write_result(updater.run());
    const std::string prefix = item.used == "live" ? "/" : "/" + item.used + "/";
    EXPECT_EQ(server.requests().back().target, prefix + "manifest.json");
    EXPECT_EQ(log()[1], log_server(item.used));
    EXPECT_THAT(user.prompts(),
                ElementsAre(not_installed_prompt(L"No game version is published on the update server for channel \"" +
                                                 to_wide(item.used) + L"\".")));
    if (item.stored_after.empty()) {
      EXPECT_FALSE(test::exists(staged(L"state.txt")));
    } else {
      EXPECT_EQ(state(), item.stored_after);
    }
  }
}

TEST_F(UpdaterFrame, RefusesAServerAddressThatIsNone) {
  const struct {
    const wchar_t* given;
    const wchar_t* used;
    const wchar_t* reason;
  } cases[] = {
      {L"http://example.com/patch/", L"http://example.com/patch/",
       L"plain HTTP is only allowed for a local test server (127.0.0.1 / localhost)"},
      {L"ftp://127.0.0.1", L"ftp://127.0.0.1/", L"unsupported URL scheme"},
      {L"nonsense", L"nonsense/", L"invalid URL"},
  };
  for (const auto& item : cases) {
    options.base_url = item.given;
    test::ScriptedUi user;
    user.answer(button_ok);
    Updater updater(options, user, environment);
    const RunOutcome outcome = updater.run();
    updater.write_result(outcome);
    EXPECT_EQ(outcome, RunOutcome::could_not_start);
    EXPECT_THAT(user.events(), ElementsAre(prompt_event(L"Invalid update server address:\n" + std::wstring(item.used) +
                                                            L"\n(" + item.reason + L")",
                                                        style_error)));
    EXPECT_EQ(result(), result_text(99, 0, ""));
    EXPECT_THAT(log(), ElementsAre(log_header(), "exit code 99 (launched=0)"));
  }
}

TEST_F(UpdaterFrame, AppendsTheFinalSlashOfTheServerAddress) {
  server.serve("patch/x/manifest.json", "unsigned");
  server.serve("patch/x/manifest.sig", "nothing");
  options.base_url = server.url("patch/x");
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::untrusted_manifest);
  EXPECT_EQ(log()[1], "channel=live server=" + to_utf8(server.url("patch/x/")));
  EXPECT_EQ(server.requests()[0].target, "/patch/x/manifest.json");
}

TEST_F(UpdaterFrame, FallsBackToTheInstalledGameWithoutANetwork) {
  environment.open_session = [](HttpSession&, const std::wstring& user_agent, std::string& error) {
    EXPECT_EQ(user_agent, L"KVXLauncher/1.0.0");
    error = "no network here";
    return false;
  };
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::no_update_information);
  const std::wstring message = L"The network could not be initialised (no network here).";
  EXPECT_THAT(ui.events(), ElementsAre(not_installed_prompt(message)));  // cancelling is not allowed yet
  EXPECT_EQ(result(), result_text(10, 0, to_utf8(message)));
}

TEST_F(UpdaterFrame, OffersNoInstalledGameAfterACancel) {
  test::write_text(installed(L"KVX.exe"), "game");
  environment.open_session = [this](HttpSession&, const std::wstring&, std::string& error) {
    ui.cancel_requested = true;
    error = "no network here";
    return false;
  };
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_TRUE(ui.prompts().empty());
  EXPECT_EQ(result(), result_text(60, 0, ""));
}

TEST_F(UpdaterFrame, FallsBackToTheInstalledGameWhenTheServerCannotBeReached) {
  server.stop();
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::no_update_information);
  const std::vector<test::UiEvent> events = ui.events();
  ASSERT_EQ(events.size(), 3U);
  EXPECT_EQ(events[0], allow_cancel_event(true));
  EXPECT_EQ(events[1], status_event(L"Connecting to the update server..."));
  const std::string reason = "send: could not connect to the server";
  const std::wstring message = L"Could not connect to the update server.\n(" + to_wide(reason) + L")";
  EXPECT_EQ(events[2], not_installed_prompt(message));
  EXPECT_EQ(result(), result_text(10, 0, to_utf8(message)));
  EXPECT_EQ(clock.total_slept_ms(), 1500U);
}

TEST_F(UpdaterFrame, FallsBackToTheInstalledGameWhenNothingIsPublished) {
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::no_update_information);
  const std::wstring message = L"No game version is published on the update server for channel \"live\".";
  EXPECT_THAT(ui.events(), ElementsAre(allow_cancel_event(true), status_event(L"Connecting to the update server..."),
                                       not_installed_prompt(message)));
  EXPECT_THAT(
      log(),
      ElementsAre(log_header(), log_server(), "no usable update information (code 10): " + to_utf8(message),
                  "installed manifest unusable: installed_manifest.json cannot be read", "exit code 10 (launched=0)"));
  EXPECT_EQ(result(), result_text(10, 0, to_utf8(message)));
  EXPECT_EQ(server.requests()[0].header("User-Agent"), "KVXLauncher/1.0.0");
}

TEST_F(UpdaterFrame, FallsBackToTheInstalledGameWhenTheSignatureIsBad) {
  const std::string document = ReleaseBuilder().file("KVX.exe", "new").json();
  server.serve("manifest.json", document);
  server.serve("manifest.sig", test::sign_manifest(document + " "));
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::untrusted_manifest);
  const std::wstring message =
      L"The update information from the server failed the security check (signature does not match the manifest) and "
      L"was ignored.";
  EXPECT_THAT(ui.prompts(), ElementsAre(not_installed_prompt(message)));
  EXPECT_EQ(result(), result_text(20, 0, to_utf8(message)));
}

TEST_F(UpdaterFrame, EndsAtACancelDuringTheManifestFetchWhateverItBrought) {
  publish(ReleaseBuilder().file("KVX.exe", "new"));
  const char* last_requests[] = {"manifest.sig", "manifest.json"};
  for (const char* path : last_requests) {
    test::ScriptedUi user;
    server.on_request(path, [&](const test::RecordedRequest&) { user.cancel_requested = true; });
    Updater updater(options, user, environment);
    const RunOutcome outcome = updater.run();
    updater.write_result(outcome);
    EXPECT_EQ(outcome, RunOutcome::cancelled);
    EXPECT_TRUE(user.prompts().empty());
    EXPECT_EQ(result(), result_text(60, 0, ""));
    server.on_request(path, [](const test::RecordedRequest&) {});
  }
}

TEST_F(UpdaterFrame, GoesOnWhenTheProcessToWaitForIsGone) {
  options.wait_pid = 0x7FFFFFFC;  // no process has it
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::no_update_information);
}

TEST_F(UpdaterFrame, RemovesAPreviousLauncherAndSaysSo) {
  test::write_text(installed(L"KVXLauncher.old.exe"), "old");
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::no_update_information);
  EXPECT_FALSE(test::exists(installed(L"KVXLauncher.old.exe")));
  EXPECT_EQ(log()[1], "removed previous launcher " + to_utf8(installed(L"KVXLauncher.old.exe")));
}

TEST_F(UpdaterFrame, WaitsBetweenTriesUntilAStopIsRequested) {
  Updater updater(options, ui, environment);
  EXPECT_TRUE(updater.wait_or_stop(1500));
  EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>(15, 100));
  clock.on_sleep([&](uint32_t slept_ms) {
    if (slept_ms == 1500 + 200) ui.cancel_requested = true;
  });
  EXPECT_FALSE(updater.wait_or_stop(32000));
  EXPECT_EQ(clock.total_slept_ms(), 1500U + 300U);
}

}  // namespace
}  // namespace kvx
