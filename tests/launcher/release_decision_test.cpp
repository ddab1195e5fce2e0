#include <windows.h>

#include <gmock/gmock.h>

#include "foundations/display_format.h"
#include "foundations/files.h"
#include "foundations/text.h"
#include "manifest/json.h"
#include "tests/launcher/updater_fixture.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/signing_keys.h"
#include "tests/support/test_clock.h"
#include "tests/support/test_process.h"
#include "tests/support/window_driver.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

using test::allow_cancel_event;
using test::not_installed_prompt;
using test::prompt_event;
using test::ReleaseBuilder;
using test::result_text;
using test::status_event;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class ReleaseDecision : public test::UpdaterFixture {
 protected:
  // A run with a user of its own.
  RunOutcome run_with(test::ScriptedUi& user) {
    Updater updater(options, user, environment);
    const RunOutcome outcome = updater.run();
    updater.write_result(outcome);
    return outcome;
  }

  static ReleaseBuilder release() { return ReleaseBuilder().version("1.1").serial(7).file("bin/game.exe", "game 1.1"); }

  static const std::string& installed_state() {
    static const std::string text =
        "complete=1\ninstalled.channel=live\ninstalled.serial=7\ninstalled.version=1.1\nserial.live=7\n";
    return text;
  }

  std::wstring first_install_question(const std::string& version, uint64_t download, uint64_t needed,
                                      bool other_files) const {
    return L"KVX is not installed in this folder yet.\n\nInstall KVX " + to_wide(version) + L" into:\n" +
           folder.path() + L"\n\nDownload: " + format_size(download) + L"\nFree disk space needed: " +
           format_size(needed) +
           (other_files ? L"\n\nNote: this folder already contains other files. It is best to put KVXLauncher.exe into "
                          L"its own empty folder first (for example Documents\\KVX)."
                        : L"") +
           L"\n\nContinue?";
  }

  test::TestClock clock;
};

std::string json_error(const std::string& text) {
  JsonDocument document;
  std::string error;
  EXPECT_FALSE(parse_json(text, document, error));
  return error;
}

TEST_F(ReleaseDecision, RefusesAManifestThatMustNotBeUsed) {
  const auto changed = [](const char* name, const char* json) { return release().member(name, json).json(); };
  const std::string not_for_kvx = "The update information from the server is not for KVX.";
  const struct {
    std::string document;
    std::string message;
  } cases[] = {
      {"{\"product\":",
       "The update information from the server could not be read (" + json_error("{\"product\":") + ")."},
      {"[1]", "The update information from the server could not be read (manifest is not a JSON object)."},
      {"\"KVX\"", "The update information from the server could not be read (manifest is not a JSON object)."},
      {"{}", not_for_kvx},
      {changed("product", "\"kvx\""), not_for_kvx},
      {changed("product", "7"), not_for_kvx},
      {changed("product", "null"), not_for_kvx},
      {changed("channel", "1"), not_for_kvx},
      {changed("channel", "null"), not_for_kvx},
      {changed("serial", "\"5\""), not_for_kvx},
      {changed("serial", "7.0"), not_for_kvx},
      {changed("serial", "null"), not_for_kvx},
      {changed("channel", "\"beta\""), "The update information from the server is for channel \"beta\", not \"live\"."},
      {changed("channel", "\"Live\""), "The update information from the server is for channel \"Live\", not \"live\"."},
      {changed("launcher", "[]"), "The update information is invalid (\"launcher\" must be an object)."},
      {changed("launcher", "{\"version\":\"2.0\"}"), "The update information is invalid (missing \"sha256\")."},
      {changed("format", "2"),
       "The update information from the server was rejected (manifest format 2 is not supported by this launcher)."},
      {changed("files", "[]"), "The update information from the server was rejected (missing \"files\")."},
      // What comes first is what is told.
      {release().member("serial", "\"5\"").member("format", "2").json(), not_for_kvx},
      {release().member("channel", "\"beta\"").member("launcher", "[]").json(),
       "The update information from the server is for channel \"beta\", not \"live\"."},
      {release().member("launcher", "[]").member("format", "2").json(),
       "The update information is invalid (\"launcher\" must be an object)."},
  };
  const std::string old_state = "installed.version=1.0\nserial.live=7\n";
  for (const auto& item : cases) {
    test::write_text(staged(L"state.txt"), old_state);
    test::write_text(staged(L"blobs\\staged"), "kept");
    publish_document(item.document);
    test::ScriptedUi user;
    user.answer(button_ok);
    EXPECT_EQ(run_with(user), RunOutcome::unusable_manifest) << item.message;
    EXPECT_THAT(user.prompts(), ElementsAre(not_installed_prompt(to_wide(item.message))));
    EXPECT_EQ(result(), result_text(21, 0, item.message));
    EXPECT_EQ(state(), old_state);
    EXPECT_TRUE(test::exists(staged(L"blobs\\staged")));
  }
}

TEST_F(ReleaseDecision, RefusesToManageTheLauncherItself) {
  publish_document(release().file("KVXLAUNCHER.exe", "another").json());
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::unusable_manifest);
  ASSERT_EQ(ui.prompts().size(), 1U);
  EXPECT_THAT(to_utf8(ui.prompts()[0].text),
              StartsWith("The update information from the server was rejected (rejected path \"KVXLAUNCHER.exe\": "));
}

TEST_F(ReleaseDecision, RefusesAnOlderSerialAndTakesAnEqualOne) {
  const struct {
    const char* state;
    int64_t serial;
    const char* accepted;  // null: not refused
  } cases[] = {
      {"serial.live=7\n", 6, "7"},
      {"serial.live=7\n", 7, nullptr},
      {"serial.live=7\n", 8, nullptr},
      {"serial.live=9223372036854775807\n", 9223372036854775806, "9223372036854775807"},
      {"", 0, nullptr},
      {"serial.live=\n", 0, nullptr},
      {"serial.live=-5\n", 0, nullptr},
      {"serial.beta=100\n", 1, nullptr},  // another channel's
      {"installed.serial=100\n", 1, nullptr},
  };
  for (const auto& item : cases) {
    const ReleaseBuilder offered = ReleaseBuilder().version("99.0").serial(item.serial).file("bin/game.exe", "game");
    if (item.accepted == nullptr) {
      install_files(offered);
    } else {
      DeleteFileW(installed(L"bin\\game.exe").c_str());
    }
    publish(offered);
    test::write_text(staged(L"state.txt"), item.state);
    test::ScriptedUi user;
    if (item.accepted == nullptr) {
      EXPECT_EQ(run_with(user), RunOutcome::success) << item.state << item.serial;
      EXPECT_THAT(user.prompts(), IsEmpty());
    } else {
      user.answer(button_ok);
      EXPECT_EQ(run_with(user), RunOutcome::unusable_manifest) << item.state << item.serial;
      EXPECT_THAT(user.prompts(), ElementsAre(not_installed_prompt(
                                      L"The update server offered an older release than the one already installed.")));
      EXPECT_THAT(log(), Contains("manifest serial " + std::to_string(item.serial) + " is older than the accepted " +
                                  item.accepted));
      EXPECT_EQ(state(), item.state);
    }
  }
}

TEST_F(ReleaseDecision, FindsAnInstallationUpToDate) {
  install_files(release());
  publish(release().member("notes", "\"many fixes\""));
  test::write_text(staged(L"state.txt"), installed_state());
  test::write_text(staged(L"blobs\\left"), "x");
  test::write_text(staged(L"dl\\left.part"), "x");
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_THAT(ui.events(), ElementsAre(allow_cancel_event(true), status_event(L"Connecting to the update server..."),
                                       status_event(L"Checking installed files..."), allow_cancel_event(false),
                                       status_event(L"KVX 1.1 is up to date.")));
  EXPECT_THAT(log(),
              ElementsAre(log_header(), log_server(), StartsWith("manifest: "),
                          "manifest: version 1.1 serial 7, 1 files, 0 removals, exe bin/game.exe", "notes: many fixes",
                          "checking 1 installed files (8 bytes)", "installation matches version 1.1",
                          "--no-launch: not starting bin/game.exe", "exit code 0 (launched=0)"));
  EXPECT_EQ(result(), result_text(0, 0, "up to date 1.1"));
  EXPECT_FALSE(test::exists(staged(L"blobs\\left")));
  EXPECT_FALSE(test::exists(staged(L"dl\\left.part")));
  EXPECT_EQ(state(), installed_state());
}

TEST_F(ReleaseDecision, WritesCopiesThatAreNotThoseOfTheInstalledReleaseAgain) {
  install_files(release());
  publish(release());
  const std::string document = release().json();
  const std::string signature = test::sign_manifest(document);  // one of many that are valid
  server.serve("manifest.sig", signature);
  struct Case {
    std::string manifest;
    std::string signature;
  };
  for (const Case& c : {Case{"", ""}, Case{document, "another"}, Case{"another", signature}, Case{document + " ", ""},
                        Case{document, signature}}) {
    test::write_text(staged(L"state.txt"), installed_state());
    test::write_text(staged(L"installed_manifest.json"), c.manifest);
    test::write_text(staged(L"installed_manifest.sig"), c.signature);
    EXPECT_EQ(run(), RunOutcome::success);
    EXPECT_EQ(test::read_text(staged(L"installed_manifest.json")), document);
    EXPECT_EQ(test::read_text(staged(L"installed_manifest.sig")), signature);
  }
}

TEST_F(ReleaseDecision, RecordsAMatchingInstallationThatTheStateDoesNotKnow) {
  const std::string states[] = {
      "",
      "complete=0\ninstalled.channel=live\ninstalled.serial=7\ninstalled.version=1.1\nserial.live=7\n",
      "installed.channel=live\ninstalled.serial=7\ninstalled.version=1.1\nserial.live=7\n",
      "complete=1\ninstalled.channel=live\ninstalled.serial=6\ninstalled.version=1.0\nserial.live=6\n",
      "complete=1\ninstalled.serial=07\n",
  };
  install_files(release());
  publish(release());
  for (const std::string& before : states) {
    test::write_text(staged(L"state.txt"), before);
    DeleteFileW(staged(L"installed_manifest.json").c_str());
    DeleteFileW(staged(L"installed_manifest.sig").c_str());
    test::ScriptedUi user;
    EXPECT_EQ(run_with(user), RunOutcome::success);
    EXPECT_EQ(state(), installed_state()) << before;
    EXPECT_EQ(test::read_text(staged(L"installed_manifest.json")), release().json());
    EXPECT_EQ(test::read_text(staged(L"installed_manifest.sig")).size(), 80U);
  }
}

TEST_F(ReleaseDecision, StartsAnUpToDateGameWithTheManifestsArguments) {
  const ReleaseBuilder current =
      ReleaseBuilder().serial(7).file("bin/game.exe", test::test_program_bytes()).arg("a b").arg("-c");
  install_files(current);
  publish(current);
  options.no_launch = false;
  EXPECT_EQ(run(), RunOutcome::success);
  ASSERT_TRUE(test::wait_until([&] { return test::exists(installed(L"started.txt")); }));
  EXPECT_THAT(test::read_text(installed(L"started.txt")),
              StartsWith("directory=" + to_utf8(folder.path()) + "\nargument=a b\nargument=-c\n"));
  EXPECT_EQ(result(), result_text(0, 1, "up to date 1.0"));
}

TEST_F(ReleaseDecision, AsksBeforeAFirstInstallAndMentionsOtherFiles) {
  publish(release().min_free_disk(5000));
  const struct {
    const wchar_t* extra;  // null: none
    const wchar_t* self;
    bool noted;
  } cases[] = {
      {nullptr, L"KVXLauncher.exe", false},
      {nullptr, L"kvxLAUNCHER.EXE", false},
      {L"KVXLauncher.new.exe", L"KVXLauncher.new.exe", false},  // beside the KVXLauncher.exe that it restores
      {L"Start.exe", L"Start.exe", true},
      {L"photo.jpg", L"KVXLauncher.exe", true},
      {L"folder\\deep\\photo.jpg", L"KVXLauncher.exe", true},
  };
  test::write_text(installed(L".KVX_Patch\\x"), "");
  ASSERT_THAT(list_folder(folder.path()), Contains(L".KVX_Patch"));
  for (const auto& item : cases) {
    if (item.extra != nullptr) test::write_text(installed(item.extra), "x");
    environment.find_layout = [&](InstallLayout& out) {
      out = make_install_layout(installed(item.self));
      return true;
    };
    test::ScriptedUi user;
    user.answer(static_cast<uint32_t>(IDNO));
    EXPECT_EQ(run_with(user), RunOutcome::cancelled);
    EXPECT_THAT(user.prompts(),
                ElementsAre(prompt_event(first_install_question("1.1", 8, 5008, item.noted), style_question)));
    EXPECT_EQ(result(), result_text(60, 0, ""));
    if (item.extra != nullptr) {
      const std::wstring top = std::wstring(item.extra).substr(0, std::wstring(item.extra).find(L'\\'));
      test::remove_tree(installed(top));
      DeleteFileW(installed(top).c_str());
    }
  }
  EXPECT_FALSE(test::exists(installed(L"bin")));
  EXPECT_TRUE(server.requests_for(test::blob_url_path("game 1.1")).empty());
}

TEST_F(ReleaseDecision, IsNotAFirstInstallWhereAGameOrItsRecordIs) {
  publish(release());
  // The game's program, though of another release.
  test::write_text(installed(L"bin\\game.exe"), "another release");
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_THAT(ui.prompts(), IsEmpty());
  EXPECT_THAT(ui.statuses(), Contains(status_event(L"Downloading update 1.1...")));
  // No program, but a record of one, even an empty one.
  DeleteFileW(installed(L"bin\\game.exe").c_str());
  test::write_text(staged(L"state.txt"), "installed.version=\n");
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_THAT(ui.prompts(), IsEmpty());
}

TEST_F(ReleaseDecision, AsksForDiskSpaceUntilThereIsEnough) {
  publish(release().min_free_disk(uint64_t{3} << 30));
  test::write_text(staged(L"state.txt"), "installed.version=1.0\n");
  const uint64_t needed = (uint64_t{3} << 30) + 8;
  const uint64_t free_later[] = {1000, needed - 1, needed};
  size_t asked = 0;
  environment.free_space = [&](const std::wstring& where) {
    EXPECT_EQ(where, folder.path());
    return free_later[asked++];
  };
  ui.answer(button_retry);
  ui.answer(button_retry);
  EXPECT_EQ(run(), RunOutcome::success);
  const auto question = [](const wchar_t* available) {
    return prompt_event(std::wstring(L"Not enough free disk space for the update.\n\nNeeded: 3.00 GB\nAvailable: ") +
                            available + L"\n\nFree some space, then press Retry.",
                        style_retry);
  };
  EXPECT_THAT(ui.prompts(), ElementsAre(question(L"1000 bytes"), question(L"3.00 GB")));
  const std::vector<std::string> lines = log();
  for (const uint64_t free : free_later) {
    EXPECT_THAT(lines,
                Contains("disk: " + std::to_string(free) + " bytes free, " + std::to_string(needed) + " needed"));
  }
}

TEST_F(ReleaseDecision, EndsWhenTheUserGivesUpOnDiskSpace) {
  publish(release().min_free_disk(100));
  test::write_text(staged(L"state.txt"), "installed.version=1.0\n");
  environment.free_space = [](const std::wstring&) { return uint64_t{107}; };
  ui.answer(button_cancel);
  EXPECT_EQ(run(), RunOutcome::disk_full);
  EXPECT_EQ(result(), result_text(31, 0, "not enough disk space"));
  EXPECT_EQ(ui.prompts().size(), 1U);
  EXPECT_TRUE(server.requests_for(test::blob_url_path("game 1.1")).empty());
}

TEST_F(ReleaseDecision, AsksForNoDiskSpaceAfterACancel) {
  publish(release());
  test::write_text(staged(L"state.txt"), "installed.version=1.0\n");
  environment.free_space = [this](const std::wstring&) {
    ui.cancel_requested = true;
    return uint64_t{0};
  };
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_THAT(ui.prompts(), IsEmpty());
  EXPECT_EQ(result(), result_text(60, 0, ""));
}

TEST_F(ReleaseDecision, NeedsLessDiskSpaceForWhatIsStaged) {
  publish(release().file("data.pak", std::string(2000, 'd')).min_free_disk(100));
  test::write_text(staged(L"state.txt"), "installed.version=1.0\n");
  test::write_text(blob("game 1.1"), "game 1.1");
  test::write_text(partial_blob(std::string(2000, 'd')), std::string(500, 'd'));
  environment.free_space = [](const std::wstring&) { return uint64_t{1600}; };
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_THAT(ui.prompts(), IsEmpty());
  EXPECT_THAT(log(), Contains("update to 1.1: 2 files to replace (2 unique, 2008 bytes, 508 already staged), 0 to "
                              "remove"));
  EXPECT_THAT(log(), Contains("disk: 1600 bytes free, 1600 needed"));
}

TEST_F(ReleaseDecision, EndsAtACancelDuringTheCheckOfInstalledFiles) {
  install_files(release());
  publish(release());
  ui.on_status([this](const test::UiEvent& status) {
    if (status.text == L"Checking installed files...") ui.cancel_requested = true;
  });
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_EQ(result(), result_text(60, 0, ""));
  EXPECT_THAT(ui.prompts(), IsEmpty());
}

TEST_F(ReleaseDecision, EndsAtACancelThatComesJustBeforeTheGameStarts) {
  install_files(release());
  publish(release());
  ui.on_allow_cancel([this](bool allowed) {
    if (!allowed) ui.cancel_requested = true;
  });
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_THAT(ui.statuses(), Not(Contains(status_event(L"KVX 1.1 is up to date."))));
  EXPECT_EQ(result(), result_text(60, 0, ""));
}

TEST_F(ReleaseDecision, EndsAtACancelWhileAHeldFileIsWaitedFor) {
  install_files(release());
  publish(release());
  const struct {
    const wchar_t* held;
    const char* state;
  } cases[] = {
      {L"blobs\\left", ""},                                              // of those that are cleared away
      {L"installed_manifest.json", "complete=1\ninstalled.serial=7\n"},  // a copy that needs repair
      {L"state.txt", "complete=0\n"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(to_utf8(item.held));
    test::write_text(staged(L"state.txt"), item.state);
    test::write_text(staged(item.held), item.held == std::wstring(L"state.txt") ? item.state : "left");
    const test::FileLock lock(staged(item.held), FILE_SHARE_READ);
    test::TestClock fresh;
    test::ScriptedUi user;
    fresh.on_sleep([&](uint32_t) { user.cancel_requested = true; });
    EXPECT_EQ(run_with(user), RunOutcome::cancelled);
    EXPECT_LE(fresh.total_slept_ms(), 1000U);
    EXPECT_THAT(user.prompts(), IsEmpty());
    EXPECT_EQ(result(), result_text(60, 0, ""));
  }
}

TEST_F(ReleaseDecision, HashesEveryFileAgainForARepair) {
  install_files(release());
  publish(release());
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_THAT(log(), Not(Contains(StartsWith("checking "))));
  options.repair = true;
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_THAT(log(), Contains("checking 1 installed files (8 bytes)"));
}

TEST_F(ReleaseDecision, HandsOverToANewerLauncherFirst) {
  // The rest of the manifest is not for this launcher; the new one will judge it.
  const ReleaseBuilder next = release().launcher("2.0", test::test_program_bytes()).member("format", "2");
  publish(next);
  options.channel = L"live";
  options.forwarded_options = {L"--unattended"};
  EXPECT_EQ(run(), RunOutcome::handed_over);
  EXPECT_EQ(result(), result_text(50, 0, "launcher updated to 2.0"));
  EXPECT_THAT(ui.prompts(), IsEmpty());
  ASSERT_TRUE(test::wait_until([&] { return test::exists(installed(L"started.txt")); }));
  EXPECT_THAT(test::read_text(installed(L"started.txt")),
              StartsWith("directory=" + to_utf8(folder.path()) + "\nargument=--self-updated\nargument=--wait-pid=" +
                         std::to_string(GetCurrentProcessId()) + "\nargument=--unattended\n"));
}

TEST_F(ReleaseDecision, EndsAtACancelDuringTheLaunchersDownload) {
  publish(release().launcher("2.0", "a newer launcher"));
  server.on_request(test::blob_url_path("a newer launcher"),
                    [this](const test::RecordedRequest&) { ui.cancel_requested = true; });
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_EQ(result(), result_text(60, 0, ""));
  EXPECT_EQ(test::read_text(installed(L"KVXLauncher.exe")), "this launcher");
}

TEST_F(ReleaseDecision, GoesOnWithThisLauncherWhenTheNewerOneCannotBeHad) {
  install_files(release());
  publish(release().launcher("2.0", "a newer launcher"));
  server.remove(test::blob_url_path("a newer launcher"));
  EXPECT_EQ(run(), RunOutcome::success);
  EXPECT_EQ(result(), result_text(0, 0, "up to date 1.1"));
  EXPECT_THAT(log(), Contains(StartsWith("launcher download failed (")));
}

}  // namespace
}  // namespace kvx
