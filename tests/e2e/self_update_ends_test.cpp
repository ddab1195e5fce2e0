// The launcher replaces itself by a newer build, or keeps itself when that does not work.
#include <windows.h>

#include <gtest/gtest.h>

#include "foundations/display_format.h"
#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/e2e/update_texts.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

std::string program_bytes(const char* path) { return read_text(full_path(to_wide(build_path(path)))); }

const std::string& this_launcher() {
  static const std::string bytes = program_bytes(KVX_LAUNCHER_PROGRAM);
  return bytes;
}

const std::string& next_launcher() {
  static const std::string bytes = program_bytes(KVX_NEXT_LAUNCHER_PROGRAM);
  return bytes;
}

constexpr char signature_ok[] = "manifest: * bytes, signature OK (key primary)";

std::string comparison_of(const std::string& own_version, const std::string& own, const std::string& named_version,
                          const std::string& named) {
  return "launcher: running " + own_version + " (" + sha256_hex(own) + "), manifest names " + named_version + " (" +
         sha256_hex(named) + ")";
}

std::string comparison(const std::string& named_version, const std::string& named) {
  return comparison_of("1.0.0", this_launcher(), named_version, named);
}

class SelfUpdate : public InBothWays {
 protected:
  // Version 1.1 of the game beside an installed 1.0.
  static ReleaseBuilder second_release() {
    return ReleaseBuilder()
        .version("1.1")
        .serial(2)
        .file("bin/game.exe", game_program())
        .file("data/a.txt", "a of 1.1");
  }

  std::string program_in_place() const { return sha256_hex(read_text(folder().launcher())); }

  // The log of an update to 1.1 in which this was said of the launcher.
  static std::vector<std::string> log_of_the_update(const std::vector<std::string>& of_the_launcher) {
    std::vector<std::string> lines = {signature_ok};
    lines.insert(lines.end(), of_the_launcher.begin(), of_the_launcher.end());
    lines.insert(lines.end(),
                 {"manifest: version 1.1 serial 2, 2 files, 0 removals, exe bin/game.exe",
                  "update to 1.1: 1 files to replace (1 unique, 8 bytes, 0 already staged), 0 to remove",
                  "disk: * bytes free, 8 needed", verified_line("a of 1.1"), "update to 1.1 complete", "started *"});
    return lines;
  }

  // The whole log of a launcher that removes the previous one.
  void then_it_removes_the_previous_launcher_and_says(const std::wstring& previous_name,
                                                      const std::vector<std::string>& lines) const {
    std::vector<std::string> all = {"removed previous launcher " + to_utf8(in_folder(previous_name)),
                                    "channel=live server=" + to_utf8(server_.base_url())};
    all.insert(all.end(), lines.begin(), lines.end());
    then_the_log_says_only(all);
  }

  // The launcher stayed what it was, and the game was updated all the same.
  void then_the_run_went_on(const Files& files, const std::vector<std::string>& of_the_launcher) {
    then_ends(0, launched, "updated to 1.1");
    then_the_log_says(log_of_the_update(of_the_launcher));
    EXPECT_EQ(program_in_place(), sha256_hex(this_launcher()));
    then_game_is(files);
    then_staged_is({});
    then_state_is(installed_state("1.1", "2"));
  }
};
KVX_TELL_IN_BOTH_WAYS(SelfUpdate);

TEST_P(SelfUpdate, HandsOverToTheNewLauncherWhichFinishesTheUpdate) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  given_a_hand_over_is_awaited();
  const TempFolder elsewhere;
  when_started_through(folder().launcher(), elsewhere.path(),
                       LR"(--channel=live --repair -- "two words" "a \"quoted\" one" "ends in \\" plain\ "" --test)");
  then_ends(50, not_launched, "launcher updated to 1.0.1");
  const uint32_t old_process = run().id();

  when_the_new_launcher_asks();
  EXPECT_EQ(run().command_line(),
            quote_argument(folder().launcher()) + L" --self-updated --wait-pid=" + std::to_wstring(old_process) +
                L" --base-url=" + server_.base_url() + (is_silent() ? L" --unattended --hidden" : L"") +
                LR"( --channel=live --repair -- "two words" "a \"quoted\" one" "ends in \\" plain\ "" --test)");
  EXPECT_EQ(run().working_folder(), in_folder(L""));
  when_the_server_answers();
  then_ends(0, launched, "updated to 1.1");
  std::vector<std::string> log = log_of_the_update({comparison_of("1.0.1", next_launcher(), "1.0.1", next_launcher())});
  log.insert(log.begin() + 3, "checking 2 installed files (" + std::to_string(game_program().size() + 8) + " bytes)");
  then_it_removes_the_previous_launcher_and_says(L"KVXLauncher.old.exe", log);
  EXPECT_EQ(program_in_place(), sha256_hex(next_launcher()));
  then_game_is(files_of(release));  // no old and no new launcher beside it
  then_staged_is({});
  EXPECT_EQ(server_.requests_for(blob_url_path(next_launcher())).size(), 1U);
  EXPECT_EQ(server_.requests().back().header("User-Agent"), "KVXLauncher/1.0.1");
}

TEST_P(SelfUpdate, SaysInItsLogWhatItDidBeforeTheHandOver) {
  given_installed(first_release());
  given_published(second_release().launcher("1.0.1", next_launcher()));
  given_a_hand_over_is_awaited();
  when_started(L"--no-launch");
  then_ends(50, not_launched, "launcher updated to 1.0.1");
  when_the_new_launcher_takes_over();
  then_ends(0, not_launched, "updated to 1.1");
  then_game_was_not_started();
  const std::vector<std::string> log = folder().previous_log();
  ASSERT_EQ(log.size(), 7U);
  EXPECT_EQ(log[3], comparison("1.0.1", next_launcher()));
  EXPECT_EQ(log[4], verified_line(next_launcher()));
  EXPECT_EQ(log[5], "self-update: launcher 1.0.1 installed, handing over to pid " + std::to_string(run().id()));
  EXPECT_EQ(log[6], "exit code 50 (launched=0)");
}

TEST_P(SelfUpdate, ComesBeforeTheQuestionOfAFirstInstall) {
  const ReleaseBuilder release = first_release().launcher("1.0.1", next_launcher());
  given_published(release);
  given_a_hand_over_is_awaited();
  when_started();
  then_ends(50, not_launched, "launcher updated to 1.0.1");
  when_the_new_launcher_takes_over();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*"), IDYES);
  then_ends(0, launched, "updated to 1.0");
  then_game_is(files_of(release));
}

TEST_P(SelfUpdate, KeepsTheNameThatThePlayerGaveTheLauncher) {
  use_folder(std::make_unique<PlayerFolder>(L"Start KVX.exe"));
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  given_a_hand_over_is_awaited();
  when_started();
  then_ends(50, not_launched, "launcher updated to 1.0.1");
  when_the_new_launcher_takes_over();
  then_ends(0, launched, "updated to 1.1");
  then_it_removes_the_previous_launcher_and_says(
      L"Start KVX.old.exe", log_of_the_update({comparison_of("1.0.1", next_launcher(), "1.0.1", next_launcher())}));
  EXPECT_EQ(program_in_place(), sha256_hex(next_launcher()));
  then_game_is(files_of(release));
}

TEST_P(SelfUpdate, HandsOverInAFolderWithBlanksAndForeignLetters) {
  const std::wstring name = L"Z\u00FCnde KVX \u0416\u6F22";
  use_folder(std::make_unique<PlayerFolder>(name + L".exe", L"Meine Spiele (neu)\\J\u00F6rg \u0416\u6F22"));
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  given_a_hand_over_is_awaited();
  when_started(L"-- \u00FC\u6F22");
  then_ends(50, not_launched, "launcher updated to 1.0.1");
  const uint32_t old_process = run().id();
  when_the_new_launcher_asks();
  EXPECT_EQ(run().command_line(), L'"' + folder().launcher() + L"\" --self-updated --wait-pid=" +
                                      std::to_wstring(old_process) + L" --base-url=" + server_.base_url() +
                                      (is_silent() ? L" --unattended --hidden" : L"") + L" -- \u00FC\u6F22");
  EXPECT_EQ(run().working_folder(), in_folder(L""));
  when_the_server_answers();
  then_ends(0, launched, "updated to 1.1");
  then_it_removes_the_previous_launcher_and_says(
      name + L".old.exe", log_of_the_update({comparison_of("1.0.1", next_launcher(), "1.0.1", next_launcher())}));
  EXPECT_EQ(program_in_place(), sha256_hex(next_launcher()));
  then_game_is(files_of(release));
  then_state_is(installed_state("1.1", "2"));
}

TEST_P(SelfUpdate, IsNotRepeatedWhenTheDeliveredFileReportsALowerVersion) {
  given_installed(first_release());
  given_published(second_release().launcher("9.0", next_launcher()));
  given_a_hand_over_is_awaited();
  when_started();
  then_ends(50, not_launched, "launcher updated to 9.0");
  when_the_new_launcher_takes_over();
  then_ends(0, launched, "updated to 1.1");
  then_it_removes_the_previous_launcher_and_says(
      L"KVXLauncher.old.exe", log_of_the_update({comparison_of("1.0.1", next_launcher(), "9.0", next_launcher())}));
  EXPECT_EQ(server_.requests_for(blob_url_path(next_launcher())).size(), 1U);

  // The file is the named one already, also without the mark of a hand-over.
  when_the_new_launcher_is_started();
  then_ends(0, launched, "up to date 1.1");
  then_the_log_says({signature_ok, comparison_of("1.0.1", next_launcher(), "9.0", next_launcher()),
                     "manifest: version 1.1 serial 2, 2 files, 0 removals, exe bin/game.exe",
                     "installation matches version 1.1", "started *"});
  then_requests_are({"manifest.json", "manifest.sig"});
}

TEST_P(SelfUpdate, IsNotDoneTwiceInOneHandOver) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("9.0", next_launcher());
  given_published(release);
  when_started(L"--self-updated");
  then_the_run_went_on(files_of(release),
                       {comparison("9.0", next_launcher()),
                        "launcher was just updated but the manifest still names a newer one: not updating again"});
  EXPECT_TRUE(server_.requests_for(blob_url_path(next_launcher())).empty());
}

TEST_P(SelfUpdate, IsNotDoneForAVersionThatIsNotNewerNorForTheSameFile) {
  given_installed(first_release());
  for (const auto& [version, content] : {std::pair<std::string, std::string>{"1.0", next_launcher()},
                                         {"0.9.9", next_launcher()},
                                         {"1.0.0.0", next_launcher()},
                                         {"1.0.1", this_launcher()}}) {
    given_published(first_release().launcher(version, content));
    when_started();
    then_ends(0, launched, "up to date 1.0");
    then_the_log_says({signature_ok, comparison(version, content),
                       "manifest: version 1.0 serial 1, 2 files, 0 removals, exe bin/game.exe",
                       "installation matches version 1.0", "started *"});
    then_requests_are({"manifest.json", "manifest.sig"});
  }
}

TEST_P(SelfUpdate, ThatCannotBeDownloadedDoesNotStopTheUpdate) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  server_.remove(blob_url_path(next_launcher()));
  when_started();
  then_the_run_went_on(
      files_of(release),
      {comparison("1.0.1", next_launcher()),
       "launcher download failed (a required file is missing on the update server (HTTP 404)); continuing with the "
       "current launcher"});
}

TEST_P(SelfUpdate, WhoseFileCannotBePlacedDoesNotStopTheUpdate) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  folder().write("KVXLauncher.new.exe/in the way.txt", "a folder of that name");
  when_started();
  Files expected = files_of(release);
  expected["KVXLauncher.new.exe/in the way.txt"] = "a folder of that name";
  then_the_run_went_on(expected, {comparison("1.0.1", next_launcher()), verified_line(next_launcher()),
                                  "self-update: cannot place KVXLauncher.new.exe: " + error_text(ERROR_ACCESS_DENIED)});
}

TEST_P(SelfUpdate, WhoseOldFileCannotBeRenamedDoesNotStopTheUpdate) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  folder().write("KVXLauncher.old.exe/in the way.txt", "a folder of that name");
  when_started();
  Files expected = files_of(release);
  expected["KVXLauncher.old.exe/in the way.txt"] = "a folder of that name";
  then_the_run_went_on(expected,
                       {comparison("1.0.1", next_launcher()), verified_line(next_launcher()),
                        "self-update: cannot rename the running launcher: " + error_text(ERROR_ACCESS_DENIED)});
}

TEST_P(SelfUpdate, WhoseNewFileCannotBeMovedIntoPlaceIsUndone) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  // The old file is held until the new one is held too, so that only the last of the three moves fails.
  FileLock old_file(folder().launcher(), FILE_SHARE_READ);
  when_started();
  ASSERT_TRUE(wait_until([this] { return folder().has("KVXLauncher.new.exe"); }));
  FileLock new_file(in_folder(L"KVXLauncher.new.exe"), FILE_SHARE_READ);
  old_file.release();
  Files expected = files_of(release);
  expected["KVXLauncher.new.exe"] = next_launcher();  // what is held cannot be taken away
  then_the_run_went_on(
      expected, {comparison("1.0.1", next_launcher()), verified_line(next_launcher()),
                 "self-update: cannot move the new launcher into place: " + error_text(ERROR_SHARING_VIOLATION)});

  // The next start does it.
  new_file.release();
  server_.remove(blob_url_path(next_launcher()));
  when_started();
  then_ends(0, launched, "up to date 1.1");
  then_game_is(files_of(release));
}

TEST_P(SelfUpdate, ToAFileThatIsNoProgramIsUndone) {
  given_installed(first_release());
  const std::string no_program = "this is no program";
  const ReleaseBuilder release = second_release().launcher("1.0.1", no_program);
  given_published(release);
  when_started();
  then_the_run_went_on(files_of(release), {comparison("1.0.1", no_program), verified_line(no_program),
                                           "self-update: cannot start the new launcher: *; rolling back"});
}

TEST_P(SelfUpdate, TakesAwayWhatAnEarlierOneLeft) {
  const ReleaseBuilder release = first_release();
  given_installed(release);
  folder().write("KVXLauncher.old.exe", "the previous launcher");
  folder().write("KVXLauncher.new.exe", "a launcher that never came into place");
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_has({"KVXLAUNCHER-VERSION:*", "removed previous launcher " + to_utf8(in_folder(L"KVXLauncher.old.exe")),
                    "channel=live *"});
  then_game_is(files_of(release));
}

TEST_P(SelfUpdate, TakesAwayAPreviousLauncherThatRunsOnForAMoment) {
  const ReleaseBuilder release = first_release();
  given_installed(release);
  const std::wstring previous = in_folder(L"KVXLauncher.old.exe");
  copy_test_program(previous);
  WaitingProgram old_launcher(previous);
  // The mark goes with the first try to delete the file.
  ASSERT_TRUE(SetFileAttributesW(previous.c_str(), FILE_ATTRIBUTE_READONLY));
  when_started();
  ASSERT_TRUE(wait_until([&] { return (GetFileAttributesW(previous.c_str()) & FILE_ATTRIBUTE_READONLY) == 0; }));
  EXPECT_TRUE(run().runs());
  EXPECT_TRUE(requests().empty());
  old_launcher.end();
  then_ends(0, launched, "up to date 1.0");
  then_it_removes_the_previous_launcher_and_says(
      L"KVXLauncher.old.exe", {signature_ok, "manifest: version 1.0 serial 1, 2 files, 0 removals, exe bin/game.exe",
                               "installation matches version 1.0", "started *"});
  then_game_is(files_of(release));
}

TEST_P(SelfUpdate, LeavesAPreviousLauncherThatIsHeldForTheNextStart) {
  const ReleaseBuilder release = first_release();
  given_installed(release);
  folder().write("KVXLauncher.old.exe", "the previous launcher");
  FileLock held(in_folder(L"KVXLauncher.old.exe"));
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_lacks("removed previous launcher *");
  held.release();
  EXPECT_TRUE(folder().has("KVXLauncher.old.exe"));
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_game_is(files_of(release));
}

class SelfUpdateWithAPerson : public Story {};

TEST_F(SelfUpdateWithAPerson, IsCancelledDuringItsDownload) {
  given_installed(first_release());
  const std::string& next = next_launcher();
  given_published(first_release().version("1.1").serial(2).launcher("1.0.1", next));
  const Gate gate;
  const std::string head =
      status_line(200) + "Connection: close\r\nContent-Length: " + std::to_string(next.size()) + "\r\n\r\n";
  server_.script(blob_url_path(next),
                 {ScriptedResponse(head + next.substr(0, 100000)).wait_for(gate).then(next.substr(100000, 1000))});
  when_started();
  run().wait_for_status(L"Updating the launcher...");
  ASSERT_TRUE(gate.wait_until_reached());
  run().wait_for_detail(L"* of " + format_size(next.size()) + L"*");
  run().press_cancel();
  then_ends(60, not_launched, "");
  gate.open();
  then_the_log_says({signature_ok, comparison("1.0.1", next)});
  then_requests_are({"manifest.json", "manifest.sig", blob_url_path(next)});
  then_game_is(files_of(first_release()));
  then_state_is(installed_state("1.0", "1"));
  then_game_was_not_started();
  EXPECT_EQ(sha256_hex(read_text(folder().launcher())), sha256_hex(this_launcher()));
  ASSERT_EQ(folder().staged().size(), 1U);
  EXPECT_TRUE(folder().staged()[0].starts_with("dl/" + sha256_hex(next) + ".part ")) << folder().staged()[0];
}

}  // namespace
}  // namespace kvx::test
