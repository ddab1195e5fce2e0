// The launcher replaces itself by a newer build, or keeps itself when that does not work.
#include <gtest/gtest.h>

#include "foundations/display_format.h"
#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"

namespace kvx::test {
namespace {

std::string program_bytes(const char* path) { return read_text(full_path(to_wide(path))); }

class SelfUpdate : public InBothWays {
 protected:
  static const std::string& this_launcher() {
    static const std::string bytes = program_bytes(KVX_LAUNCHER_PROGRAM);
    return bytes;
  }

  static const std::string& next_launcher() {
    static const std::string bytes = program_bytes(KVX_NEXT_LAUNCHER_PROGRAM);
    return bytes;
  }

  // Version 1.1 of the game beside an installed 1.0.
  static ReleaseBuilder second_release() {
    return ReleaseBuilder()
        .version("1.1")
        .serial(2)
        .file("bin/game.exe", game_program())
        .file("data/a.txt", "a of 1.1");
  }

  static std::string comparison(const std::string& named_version, const std::string& named) {
    return "launcher: running 1.0.0 (" + sha256_hex(this_launcher()) + "), manifest names " + named_version + " (" +
           sha256_hex(named) + ")";
  }

  static std::string fetched(const std::string& content) {
    return "downloaded + verified " + sha256_hex(content) + " (" + std::to_string(content.size()) + " bytes)";
  }

  std::string program_in_place() const { return sha256_hex(read_text(folder().launcher())); }

  // The launcher stayed what it was, and the game was updated all the same.
  void then_the_run_went_on(const ReleaseBuilder& release) {
    then_ends(0, launched, "updated to 1.1");
    EXPECT_EQ(program_in_place(), sha256_hex(this_launcher()));
    then_game_is(files_of(release));
    then_state_is(installed_state("1.1", "2"));
  }
};
KVX_TELL_IN_BOTH_WAYS(SelfUpdate);

TEST_P(SelfUpdate, HandsOverToTheNewLauncherWhichFinishesTheUpdate) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  given_a_hand_over_is_awaited();
  when_started(LR"(--channel=live --repair -- "two words" "a \"quoted\" one" "ends in \\" plain\ "" --test)");
  then_ends(50, not_launched, "launcher updated to 1.0.1");
  const uint32_t old_process = run().id();

  when_the_new_launcher_takes_over();
  EXPECT_EQ(run().command_line(),
            quote_argument(folder().launcher()) + L" --self-updated --wait-pid=" + std::to_wstring(old_process) +
                L" --base-url=" + server_.base_url() + (is_silent() ? L" --unattended --hidden" : L"") +
                LR"( --channel=live --repair -- "two words" "a \"quoted\" one" "ends in \\" plain\ "" --test)");
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({"removed previous launcher " + to_utf8(in_folder(L"KVXLauncher.old.exe")), "channel=live server=*",
                    "launcher: running 1.0.1 (" + sha256_hex(next_launcher()) + "), manifest names 1.0.1 (" +
                        sha256_hex(next_launcher()) + ")",
                    "update to 1.1 complete"});
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
  EXPECT_EQ(run().wait_for_end(is_silent()), 0U);
  const std::vector<std::string> log = folder().previous_log();
  ASSERT_EQ(log.size(), 7U);
  EXPECT_EQ(log[3], comparison("1.0.1", next_launcher()));
  EXPECT_EQ(log[4], fetched(next_launcher()));
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
  then_the_log_has({"removed previous launcher " + to_utf8(in_folder(L"Start KVX.old.exe"))});
  EXPECT_EQ(program_in_place(), sha256_hex(next_launcher()));
  then_game_is(files_of(release));
}

TEST_P(SelfUpdate, IsNotRepeatedWhenTheDeliveredFileReportsALowerVersion) {
  given_installed(first_release());
  given_published(second_release().launcher("9.0", next_launcher()));
  given_a_hand_over_is_awaited();
  when_started();
  then_ends(50, not_launched, "launcher updated to 9.0");
  when_the_new_launcher_takes_over();
  then_ends(0, launched, "updated to 1.1");
  EXPECT_EQ(server_.requests_for(blob_url_path(next_launcher())).size(), 1U);

  // The file is the named one already, also without the mark of a hand-over.
  when_started();
  EXPECT_EQ(run().wait_for_end(is_silent()), 0U);
  EXPECT_EQ(server_.requests_for(blob_url_path(next_launcher())).size(), 1U);
}

TEST_P(SelfUpdate, IsNotDoneTwiceInOneHandOver) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("9.0", next_launcher());
  given_published(release);
  when_started(L"--self-updated");
  then_the_run_went_on(release);
  then_the_log_has({comparison("9.0", next_launcher()),
                    "launcher was just updated but the manifest still names a newer one: not updating again",
                    "manifest: version 1.1 serial 2, *"});
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
    then_the_log_says({"manifest: * bytes, signature OK (key primary)", comparison(version, content),
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
  then_the_run_went_on(release);
  then_the_log_has({comparison("1.0.1", next_launcher()),
                    "launcher download failed (a required file is missing on the update server (HTTP 404)); continuing "
                    "with the current launcher",
                    "manifest: version 1.1 serial 2, *"});
}

TEST_P(SelfUpdate, WhoseFileCannotBePlacedDoesNotStopTheUpdate) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  folder().write("KVXLauncher.new.exe/in the way.txt", "a folder of that name");
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({fetched(next_launcher()),
                    "self-update: cannot place KVXLauncher.new.exe: " + error_text(ERROR_ACCESS_DENIED),
                    "manifest: version 1.1 serial 2, *"});
  EXPECT_EQ(program_in_place(), sha256_hex(this_launcher()));
  Files expected = files_of(release);
  expected["KVXLauncher.new.exe/in the way.txt"] = "a folder of that name";
  then_game_is(expected);
}

TEST_P(SelfUpdate, WhoseOldFileCannotBeRenamedDoesNotStopTheUpdate) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release().launcher("1.0.1", next_launcher());
  given_published(release);
  folder().write("KVXLauncher.old.exe/in the way.txt", "a folder of that name");
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({fetched(next_launcher()),
                    "self-update: cannot rename the running launcher: " + error_text(ERROR_ACCESS_DENIED),
                    "manifest: version 1.1 serial 2, *"});
  EXPECT_EQ(program_in_place(), sha256_hex(this_launcher()));
  Files expected = files_of(release);
  expected["KVXLauncher.old.exe/in the way.txt"] = "a folder of that name";
  then_game_is(expected);
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
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({fetched(next_launcher()),
                    "self-update: cannot move the new launcher into place: " + error_text(ERROR_SHARING_VIOLATION),
                    "manifest: version 1.1 serial 2, *"});
  EXPECT_EQ(program_in_place(), sha256_hex(this_launcher()));
  EXPECT_FALSE(folder().has("KVXLauncher.old.exe"));

  // What was held cannot be taken away at once; the next start does it.
  new_file.release();
  given_published(release);
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
  then_the_run_went_on(release);
  then_the_log_has({fetched(no_program), "self-update: cannot start the new launcher: *; rolling back",
                    "manifest: version 1.1 serial 2, *"});
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
  const std::string next = program_bytes(KVX_NEXT_LAUNCHER_PROGRAM);
  given_published(first_release().version("1.1").serial(2).launcher("1.0.1", next));
  const Gate gate;
  server_.always(blob_url_path(next), answer(200, next).drop_after(status_line(200).size() + 100000).wait_for(gate));
  when_started();
  run().wait_for_status(L"Updating the launcher...");
  run().wait_for_detail(L"* of " + format_size(next.size()) + L"*");
  run().press_cancel();
  gate.open();
  then_ends(60, not_launched, "");
  then_the_log_lacks("launcher download failed*");
  then_game_is(files_of(first_release()));
  EXPECT_EQ(sha256_hex(read_text(folder().launcher())), sha256_hex(program_bytes(KVX_LAUNCHER_PROGRAM)));
  ASSERT_EQ(folder().staged().size(), 1U);
  EXPECT_TRUE(folder().staged()[0].starts_with("dl/" + sha256_hex(next) + ".part ")) << folder().staged()[0];
}

}  // namespace
}  // namespace kvx::test
