// Runs that end well.
#include <windows.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundations/display_format.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/signing_keys.h"

namespace kvx::test {
namespace {

using testing::UnorderedElementsAre;

class EndsWell : public InBothWays {
 protected:
  Prompt first_install_question(uint64_t download, uint64_t needed, const std::wstring& note = L"") const {
    return question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n" + folder().path() +
                           L"\n\nDownload: " + format_size(download) + L"\nFree disk space needed: " +
                           format_size(needed) + note + L"\n\nContinue?");
  }

  static uint64_t size_of(const ReleaseBuilder& release) {
    uint64_t size = 0;
    for (const ReleaseBuilder::File& file : release.files()) size += file.content.size();
    return size;
  }

  std::string started_line() const { return "started " + to_utf8(folder().path()) + "\\bin\\game.exe (pid *)"; }

  DWORD attributes_of_records() const { return GetFileAttributesW(in_folder(L".kvx_patch").c_str()); }

  // What a run says that finds nothing to do.
  std::vector<std::string> up_to_date_log() const {
    return {"manifest: * bytes, signature OK (key primary)",
            "manifest: version 1.0 serial 1, 2 files, 0 removals, exe bin/game.exe", "installation matches version 1.0",
            started_line()};
  }

  std::map<std::string, std::string> state_with_channel(const std::string& version, const std::string& serial,
                                                        const std::string& channel) const {
    std::map<std::string, std::string> state = installed_state(version, serial, channel);
    state["channel"] = channel;
    return state;
  }

  // Other content, but the size and last-write time that the launcher remembers.
  void given_damage_that_only_reading_shows(const std::string& name) const {
    const std::wstring path = folder().file(name);
    const FileHandle before(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        OPEN_EXISTING, 0, nullptr));
    FILETIME written{};
    ASSERT_TRUE(GetFileTime(before.get(), nullptr, nullptr, &written));
    std::string content = folder().read(name);
    std::reverse(content.begin(), content.end());
    const FileHandle file(
        CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    DWORD count = 0;
    ASSERT_TRUE(WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &count, nullptr));
    ASSERT_TRUE(SetFileTime(file.get(), nullptr, nullptr, &written));
  }
};
KVX_TELL_IN_BOTH_WAYS(EndsWell);

TEST_P(EndsWell, AFirstInstallAsksAndStartsTheGame) {
  const ReleaseBuilder release = first_release().arg("first one").arg("tr\\ailing\\");
  given_published(release);
  when_started();
  then_asks(first_install_question(size_of(release), size_of(release)), IDYES);
  then_ends(0, launched, "updated to 1.0");
  const std::string bytes = std::to_string(size_of(release));
  then_the_log_says({"manifest: " + std::to_string(release.json().size()) + " bytes, signature OK (key primary)",
                     "manifest: version 1.0 serial 1, 2 files, 0 removals, exe bin/game.exe",
                     "update to 1.0: 2 files to replace (2 unique, " + bytes + " bytes, 0 already staged), 0 to remove",
                     "disk: * bytes free, " + bytes + " needed", "downloaded + verified *", "downloaded + verified *",
                     "update to 1.0 complete", started_line()});
  then_game_is(files_of(release));
  then_game_was_started_with({"first one", "tr\\ailing\\"});
  then_staged_is({});
  then_state_is(installed_state("1.0", "1"));
}

TEST_P(EndsWell, AFirstInstallLeavesItsRecordsInAHiddenFolder) {
  const ReleaseBuilder release = first_release();
  given_published(release);
  when_started();
  then_asks(first_install_question(size_of(release), size_of(release)), IDYES);
  then_ends(0, launched, "updated to 1.0");
  EXPECT_THAT(folder().records(),
              UnorderedElementsAre("blobs", "dl", "hashcache.txt", "installed_manifest.json", "installed_manifest.sig",
                                   "last_result.txt", "launcher.lock", "launcher.log", "state.txt"));
  EXPECT_EQ(attributes_of_records(), DWORD{FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN});
  EXPECT_EQ(folder().read(".kvx_patch/installed_manifest.json"), release.json());
  EXPECT_EQ(folder().read(".kvx_patch/launcher.lock"), std::to_string(run().id()) + "\n");
}

TEST_P(EndsWell, TheFolderOfTheRecordsIsHiddenAnewAtEveryStart) {
  given_installed(first_release());
  // Wine counts a name that begins with a dot as hidden in any case, but not as a system file.
  ASSERT_TRUE(SetFileAttributesW(in_folder(L".kvx_patch").c_str(), FILE_ATTRIBUTE_SYSTEM));
  when_started();
  then_ends(0, launched, "up to date 1.0");
  EXPECT_EQ(attributes_of_records(), DWORD{FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN});
}

TEST_P(EndsWell, AFirstInstallBesideOtherFilesAdvisesAnEmptyFolder) {
  for (const std::string other : {"readme.txt", "My pictures/beach.jpg", "KVXLauncher.txt"}) {
    SCOPED_TRACE(other);
    use_folder(std::make_unique<PlayerFolder>());
    const ReleaseBuilder release = first_release();
    given_published(release);
    folder().write(other, "the player's");
    when_started();
    then_asks(first_install_question(
                  size_of(release), size_of(release),
                  L"\n\nNote: this folder already contains other files. It is best to put KVXLauncher.exe into its own "
                  L"empty folder first (for example Documents\\KVX)."),
              IDYES);
    then_ends(0, launched, "updated to 1.0");
    Files expected = files_of(release);
    expected[other] = "the player's";
    then_game_is(expected);
  }
}

TEST_P(EndsWell, AFirstInstallNamesTheSpaceThatTheReleaseAsksFor) {
  constexpr uint64_t beside_the_download = 5 * 1024 * 1024;
  const ReleaseBuilder release = first_release().min_free_disk(beside_the_download);
  given_published(release);
  when_started();
  then_asks(first_install_question(size_of(release), size_of(release) + beside_the_download), IDYES);
  then_ends(0, launched, "updated to 1.0");
  then_the_log_has({"disk: * bytes free, " + std::to_string(size_of(release) + beside_the_download) + " needed"});
}

TEST_P(EndsWell, AContentThatIsNeededTwiceIsCountedAndFetchedOnce) {
  const ReleaseBuilder release =
      first_release().file("data/b.txt", "a of 1.0").file("b/c.txt", "a of 1.0").file("d.txt", "");
  given_published(release);
  when_started();
  const uint64_t once = game_program().size() + 8;
  then_asks(first_install_question(once, once), IDYES);
  then_ends(0, launched, "updated to 1.0");
  then_the_log_has({"update to 1.0: 5 files to replace (3 unique, " + std::to_string(once) +
                    " bytes, 0 already staged), 0 to remove"});
  then_game_is(files_of(release));
  EXPECT_EQ(server_.requests_for(blob_url_path("a of 1.0")).size(), 1U);
}

TEST_P(EndsWell, NoQuestionIsAskedWhereTheGameOrItsRecordIsFound) {
  struct Case {
    const char* name;
    const char* file;
    std::string content;
  };
  for (const Case& c : {Case{"the game's program alone", "bin/game.exe", "of some other version"},
                        Case{"a record alone", ".kvx_patch/state.txt", "installed.version=0.9\n"}}) {
    SCOPED_TRACE(c.name);
    use_folder(std::make_unique<PlayerFolder>());
    const ReleaseBuilder release = first_release();
    given_published(release);
    folder().write(c.file, c.content);
    when_started();
    then_ends(0, launched, "updated to 1.0");
    then_game_is(files_of(release));
    then_state_is(installed_state("1.0", "1"));
  }
}

TEST_P(EndsWell, AnUpdateFetchesWhatChangedAndNothingElse) {
  given_installed(first_release().file("data/same.txt", "the same").file("old/gone.txt", "of 1.0 only"));
  const ReleaseBuilder release = ReleaseBuilder()
                                     .version("1.1")
                                     .serial(2)
                                     .file("bin/game.exe", game_program())
                                     .file("data/a.txt", "a of 1.1")
                                     .file("data/same.txt", "the same")
                                     .file("new/c.txt", "three times")
                                     .file("new/deeper/d.txt", "three times")
                                     .file("e.txt", "three times")
                                     .remove("old/gone.txt")
                                     .remove("old/never/there.txt");
  given_published(release);
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.1 serial 2, 6 files, 2 removals, exe bin/game.exe",
                     "update to 1.1: 4 files to replace (2 unique, 19 bytes, 0 already staged), 1 to remove",
                     "disk: * bytes free, 19 needed", "downloaded + verified *", "downloaded + verified *",
                     "removed old/gone.txt", "update to 1.1 complete", started_line()});
  for (const std::string content : {"a of 1.1", "three times"}) {
    then_the_log_has(
        {"downloaded + verified " + sha256_hex(content) + " (" + std::to_string(content.size()) + " bytes)"});
  }
  EXPECT_THAT(requests(), UnorderedElementsAre("manifest.json", "manifest.sig", blob_url_path("a of 1.1"),
                                               blob_url_path("three times")));
  Files expected = files_of(release);
  expected["old/"] = "";  // the folder stays
  then_game_is(expected);
  then_staged_is({});
  then_state_is(installed_state("1.1", "2"));
  EXPECT_EQ(folder().read(".kvx_patch/installed_manifest.json"), release.json());
}

TEST_P(EndsWell, AReleaseThatOnlyRemovesDownloadsNothing) {
  given_installed(first_release().file("old.txt", "of 1.0 only"));
  const ReleaseBuilder release = first_release().version("1.1").serial(2).remove("old.txt");
  given_published(release);
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.1 serial 2, 2 files, 1 removals, exe bin/game.exe",
                     "update to 1.1: 0 files to replace (0 unique, 0 bytes, 0 already staged), 1 to remove",
                     "disk: * bytes free, 0 needed", "removed old.txt", "update to 1.1 complete", started_line()});
  then_requests_are({"manifest.json", "manifest.sig"});
  then_game_is(files_of(release));
}

TEST_P(EndsWell, AnInstallationThatMatchesIsLeftAlone) {
  const ReleaseBuilder release = first_release();
  given_installed(release);
  const std::string state = "# a line that no launcher writes\n" + folder().read(".kvx_patch/state.txt");
  folder().write(".kvx_patch/state.txt", state);
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_says(up_to_date_log());
  then_game_is(files_of(release));
  then_game_was_started_with({});
  then_requests_are({"manifest.json", "manifest.sig"});
  EXPECT_EQ(folder().read(".kvx_patch/state.txt"), state);
  EXPECT_EQ(folder().previous_log().front(), folder().log().front());
}

TEST_P(EndsWell, AnInstallationThatMatchesIsRecordedWhenItsRecordSaysSomethingElse) {
  const ReleaseBuilder release = first_release();
  given_installed(release);
  const std::string whole = "installed.channel=live\ninstalled.serial=1\ninstalled.version=1.0\nserial.live=1\n";
  for (const std::string& state :
       {whole + "complete=0\n", whole + "complete=\n", whole + "complete=01\n", whole,
        whole + "complete=1\ninstalled.serial=0\n", std::string("complete=1\n"), std::string()}) {
    SCOPED_TRACE(state);
    folder().write(".kvx_patch/state.txt", state);
    folder().write(".kvx_patch/installed_manifest.json", "{}");
    folder().write(".kvx_patch/installed_manifest.sig", "of something else");
    when_started();
    then_ends(0, launched, "up to date 1.0");
    then_the_log_says(up_to_date_log());
    then_state_is({{"complete", "1"},
                   {"installed.channel", "live"},
                   {"installed.serial", "1"},
                   {"installed.version", "1.0"},
                   {"serial.live", "1"}});
    EXPECT_EQ(folder().read(".kvx_patch/installed_manifest.json"), release.json());
    EXPECT_EQ(folder().read(".kvx_patch/installed_manifest.sig").size(), 80U);
  }
}

TEST_P(EndsWell, ANewReleaseOfTheSameFilesIsOnlyRecorded) {
  given_installed(first_release());
  const ReleaseBuilder release = first_release().version("1.0.1").serial(5);
  given_published(release);
  when_started();
  then_ends(0, launched, "up to date 1.0.1");
  std::map<std::string, std::string> expected = installed_state("1.0.1", "5");
  expected["updating.serial"] = "1";
  then_state_is(expected);
  EXPECT_EQ(folder().read(".kvx_patch/installed_manifest.json"), release.json());
}

TEST_P(EndsWell, WhatAnEarlierDownloadLeftIsClearedWhenAllIsUpToDate) {
  given_installed(first_release());
  folder().write(".kvx_patch/blobs/" + sha256_hex("left over"), "left over");
  folder().write(".kvx_patch/dl/" + sha256_hex("unfinished") + ".part", "unfin");
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_staged_is({});
}

TEST_P(EndsWell, WithNoLaunchEverythingIsDoneButTheStart) {
  const ReleaseBuilder release = first_release();
  given_published(release);
  when_started(L"--no-launch");
  then_asks(first_install_question(size_of(release), size_of(release)), IDYES);
  then_ends(0, not_launched, "updated to 1.0");
  then_the_log_has({"update to 1.0 complete", "--no-launch: not starting bin/game.exe"});
  then_game_is(files_of(release));

  when_started(L"--no-launch");
  then_ends(0, not_launched, "up to date 1.0");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.0 serial 1, 2 files, 0 removals, exe bin/game.exe",
                     "installation matches version 1.0", "--no-launch: not starting bin/game.exe"});
  then_game_was_not_started();
}

TEST_P(EndsWell, ARepairReadsEveryFileAndFindsDamageThatAStartDoesNotSee) {
  const ReleaseBuilder release = first_release();
  given_installed(release);
  given_damage_that_only_reading_shows("data/a.txt");
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_says(up_to_date_log());
  EXPECT_EQ(folder().read("data/a.txt"), "0.1 fo a");

  when_started(L"--repair");
  then_ends(0, launched, "updated to 1.0");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.0 serial 1, 2 files, 0 removals, exe bin/game.exe",
                     "checking 2 installed files (" + std::to_string(size_of(release)) + " bytes)",
                     "update to 1.0: 1 files to replace (1 unique, 8 bytes, 0 already staged), 0 to remove",
                     "disk: * bytes free, 8 needed", "downloaded + verified " + sha256_hex("a of 1.0") + " (8 bytes)",
                     "update to 1.0 complete", started_line()});
  then_requests_are({"manifest.json", "manifest.sig", blob_url_path("a of 1.0")});
  then_game_is(files_of(release));
}

TEST_P(EndsWell, WithoutACacheEveryFileIsReadOnceAndThenKnownAgain) {
  const ReleaseBuilder release = first_release();
  given_installed(release);
  folder().write(".kvx_patch/hashcache.txt", "no line of a cache\n");
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_has({"checking 2 installed files (" + std::to_string(size_of(release)) + " bytes)",
                    "installation matches version 1.0"});
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_says(up_to_date_log());
}

TEST_P(EndsWell, AFileOfAnotherTimeIsReadAndAFileOfAnotherSizeIsReplacedUnread) {
  const ReleaseBuilder release = first_release().file("data/b.txt", "b of 1.0");
  given_installed(release);
  folder().write("data/a.txt", "A OF 1.0");
  folder().write("data/b.txt", "b of 1.0 and more");
  when_started();
  then_ends(0, launched, "updated to 1.0");
  then_the_log_has({"checking 1 installed files (8 bytes)",
                    "update to 1.0: 2 files to replace (2 unique, 16 bytes, 0 already staged), 0 to remove"});
  then_game_is(files_of(release));
}

TEST_P(EndsWell, AChannelGivenOnceIsRemembered) {
  for (const auto& [option, channel] :
       {std::pair<std::wstring, std::string>{L"--channel=beta_2-x", "beta_2-x"},
        {L"--test", "test"},
        {L"--channel=beta --test", "test"},
        {L"--test --channel=abcdefghijklmnopqrstuvwxyz012345", "abcdefghijklmnopqrstuvwxyz012345"}}) {
    SCOPED_TRACE(channel);
    use_folder(std::make_unique<PlayerFolder>());
    given_installed(first_release().serial(7));
    const ReleaseBuilder other =
        first_release().file("data/b.txt", "b of 2.0").channel(channel).version("2.0").serial(3);
    given_published(other);
    std::map<std::string, std::string> state = state_with_channel("2.0", "3", channel);
    state["serial.live"] = "7";

    when_started(option);
    then_ends(0, launched, "updated to 2.0");
    then_the_log_says(
        {"manifest: * bytes, signature OK (key primary)", "manifest: version 2.0 serial 3, *",
         "update to 2.0: 1 files *", "disk: *", "downloaded + verified *", "update to 2.0 complete", started_line()},
        channel);
    then_requests_are({channel + "/manifest.json", channel + "/manifest.sig", blob_url_path("b of 2.0")});
    then_state_is(state);

    for (const std::wstring no_channel : {L"", L"--channel="}) {
      when_started(no_channel);
      then_ends(0, launched, "up to date 2.0");
      then_requests_are({channel + "/manifest.json", channel + "/manifest.sig"});
      then_state_is(state);
    }

    when_started(L"--channel=live");
    then_ends(0, launched, "up to date 1.0");
    state["channel"] = "live";
    state["installed.channel"] = "live";
    state["installed.serial"] = "7";
    state["installed.version"] = "1.0";
    then_state_is(state);
  }
}

TEST_P(EndsWell, OptionsThatAreNotKnownAndWordsThatAreNoneAreIgnored) {
  given_installed(first_release());
  when_started(
      L"--CHANNEL=beta -channel=beta channel=beta --no-launch=1 --wait-pid=soon -- --channel=beta --no-launch");
  then_ends(0, launched, "up to date 1.0");
  then_the_log_says(up_to_date_log());
  then_requests_are({"manifest.json", "manifest.sig"});
  then_game_was_started_with({});
  then_state_is(installed_state("1.0", "1"));
}

TEST_P(EndsWell, AServerAddressWithoutAFinalSlashGetsOne) {
  given_installed(first_release());
  const std::string document = first_release().json();
  server_.serve("patch/manifest.json", document);
  server_.serve("patch/manifest.sig", sign_manifest(document));
  when_started(L"--base-url=" + server_.base_url() + L"patch");
  then_ends(0, launched, "up to date 1.0");
  then_the_log_has({"channel=live server=" + to_utf8(server_.base_url()) + "patch/"});
  then_requests_are({"patch/manifest.json", "patch/manifest.sig"});
}

TEST_P(EndsWell, TheManifestIsAskedForPastAnyCacheAndTheFilesAreNot) {
  const ReleaseBuilder release = first_release();
  given_published(release);
  when_started(L"--no-launch");
  then_asks(first_install_question(size_of(release), size_of(release)), IDYES);
  then_ends(0, not_launched, "updated to 1.0");
  ASSERT_EQ(server_.requests().size(), 4U);
  for (const RecordedRequest& request : server_.requests()) {
    SCOPED_TRACE(request.target);
    const bool of_the_manifest = request.target.starts_with("/manifest.");
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.header("User-Agent"), "KVXLauncher/1.0.0");
    EXPECT_EQ(request.header("Cache-Control"), of_the_manifest ? std::optional<std::string>("no-cache") : std::nullopt);
    EXPECT_EQ(request.header("Pragma"), of_the_manifest ? std::optional<std::string>("no-cache") : std::nullopt);
    EXPECT_EQ(request.header("Range"), std::nullopt);
  }
}

TEST_P(EndsWell, NotesOfTheReleaseAreLogged) {
  given_installed(first_release());
  given_published(first_release().member("notes", "\"Faster 100% \\u00e9t\\u00e9\"").member("published", "\"today\""));
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)", "manifest: version 1.0 serial 1, *",
                     "notes: Faster 100% \xC3\xA9t\xC3\xA9", "installation matches version 1.0", started_line()});
}

TEST_P(EndsWell, AReleaseSignedWithTheBackupKeyIsAsGood) {
  given_installed(first_release());
  server_.serve("manifest.sig", sign_manifest(first_release().json(), SigningKey::backup));
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_has({"manifest: * bytes, signature OK (key backup)", "installation matches version 1.0"});
}

TEST_P(EndsWell, ALockFileThatACrashedLauncherLeftDoesNotCount) {
  given_installed(first_release());
  folder().write(".kvx_patch/launcher.lock", "4294967295 and much more\n");
  when_started();
  then_ends(0, launched, "up to date 1.0");
  EXPECT_EQ(folder().read(".kvx_patch/launcher.lock"), std::to_string(run().id()) + "\n");
}

}  // namespace
}  // namespace kvx::test
