// A launcher that is killed at any moment, and the run after it.
#include <algorithm>
#include <gtest/gtest.h>

#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/e2e/update_texts.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

class InterruptedRun : public InBothWays {
 protected:
  static ReleaseBuilder second_release(const std::string& a = "a of 1.1") {
    return ReleaseBuilder()
        .version("1.1")
        .serial(2)
        .file("bin/game.exe", game_program())
        .file("data/a.txt", a)
        .file("data/b.bin", big_content())
        .file("data/c.txt", "c of 1.1");
  }

  static const std::string& big_content() {
    static const std::string content(600000, 'b');
    return content;
  }

  // The server holds this blob back after so many bytes.
  void given_a_blob_that_stops_after(const std::string& content, size_t bytes) {
    server_.script(blob_url_path(content),
                   {answer(200, content).drop_after(head_bytes(content) + bytes).wait_for(gate_)});
  }

  // What comes before the body.
  static size_t head_bytes(const std::string& content) {
    return status_line(200).size() +
           ("Connection: close\r\nContent-Length: " + std::to_string(content.size()) + "\r\n\r\n").size();
  }

  void when_this_is_staged(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    ASSERT_TRUE(wait_until([&] { return folder().staged() == names; })) << testing::PrintToString(folder().staged());
  }

  [[nodiscard]] bool placed(const Files& files, const std::string& path) const {
    return folder().has(path) && folder().read(path) == files.at(path);
  }

  // For data/a.txt: files are placed in the order of their digests.
  static std::string content_placed_last() {
    const std::string others = std::max(sha256_hex(big_content()), sha256_hex("c of 1.1"));
    std::string content = "a of 1.1";
    while (sha256_hex(content) < others) content += '.';
    return content;
  }

  // Silent in neither way: where a silent one soon gives up, its prompt stays, so that it can be killed at that moment.
  RunningLauncher launcher_that_asks() const {
    return {folder().launcher(), L"--base-url=" + server_.base_url(), folder().path()};
  }

  void when_killed(RunningLauncher& launcher) {
    ASSERT_TRUE(launcher.runs()) << "it ended by itself";
    launcher.kill();
    gate_.open();
  }
  void when_killed() { when_killed(run()); }

  std::string value_of(const std::string& key) const {
    const auto state = folder().state();
    const auto found = state.find(key);
    return found == state.end() ? "absent" : found->second;
  }

  void then_the_installation_is(const ReleaseBuilder& release, const std::string& version, const std::string& serial) {
    then_game_is(files_of(release));
    then_state_is(installed_state(version, serial));
    then_staged_is({});
    EXPECT_EQ(folder().read(".kvx_patch/installed_manifest.json"), release.json());
  }

  const Gate gate_;
};
KVX_TELL_IN_BOTH_WAYS(InterruptedRun);

constexpr char unfinished_warning[] =
    "\n\nWarning: the last update did not finish. The game may not work correctly until the next successful update.";

TEST_P(InterruptedRun, KilledWhileConnectingLeavesNothingToRepair) {
  given_installed(first_release());
  given_published(second_release());
  server_.script("manifest.json", {ScriptedResponse().wait_for(gate_)});
  when_started();
  ASSERT_TRUE(gate_.wait_until_reached());
  EXPECT_EQ(folder().state(), installed_state("1.0", "1"));
  when_killed();

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_installation_is(second_release(), "1.1", "2");
}

TEST_P(InterruptedRun, KilledWhileCheckingKeepsWhatWasHashed) {
  constexpr uint64_t long_to_read = 20'000'000'000;
  given_published(with_a_big_file(first_release(), long_to_read, std::string(64, '0')));
  for (const auto& [path, content] : files_of(first_release())) folder().write(path, content);
  folder().write_zeros("data/big.bin", long_to_read);
  when_started();
  ASSERT_TRUE(wait_until([this] {
    if (!folder().has(".kvx_patch/hashcache.txt")) return false;
    const std::string cache = folder().read(".kvx_patch/hashcache.txt");
    return std::count(cache.begin(), cache.end(), '\n') == 2;
  }));
  when_killed();

  // Only what was being read is still to be checked, now that it is short.
  const ReleaseBuilder release = first_release().file("data/big.bin", "no longer big");
  given_published(release);
  folder().write("data/big.bin", "no longer big");
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_has({"checking 1 installed files (13 bytes)", "installation matches version 1.0"});
  then_game_is(files_of(release));
  auto recorded = installed_state("1.0", "1");
  recorded.erase("updating.serial");  // nothing was installed
  then_state_is(recorded);
}

TEST_P(InterruptedRun, KilledWhileDownloadingGoesOnWhereItStopped) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release();
  given_published(release);
  given_a_blob_that_stops_after(big_content(), 250000);
  when_started();
  when_this_is_staged({staged_blob("a of 1.1"), staged_blob("c of 1.1"), staged_part(big_content(), 250000)});
  when_killed();
  then_game_is(files_of(first_release()));
  then_state_is(installed_state("1.0", "1"));

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig", blob_url_path(big_content()) + " bytes=250000-"});
  then_the_log_has({"update to 1.1: 3 files to replace (3 unique, 600016 bytes, 250016 already staged), 0 to remove",
                    "resuming " + sha256_hex(big_content()) + " at 250000 of 600000 bytes",
                    "downloaded + verified " + sha256_hex(big_content()) + " (600000 bytes)"});
  then_the_log_has({"blob " + sha256_hex("a of 1.1") + " already staged"});
  then_the_log_has({"blob " + sha256_hex("c of 1.1") + " already staged"});
  then_the_installation_is(release, "1.1", "2");
}

TEST_P(InterruptedRun, KilledWhileDownloadingDoesNotWarnWithoutTheServer) {
  given_installed(first_release());
  given_published(second_release());
  given_a_blob_that_stops_after(big_content(), 250000);
  when_started();
  when_this_is_staged({staged_blob("a of 1.1"), staged_blob("c of 1.1"), staged_part(big_content(), 250000)});
  when_killed();

  server_.always("manifest.json", answer(404));
  when_started();
  then_asks(confirm_prompt(L"No game version is published on the update server for channel \"live\".\n\nThe installed "
                           L"version 1.0 will be started."),
            IDOK);
  then_ends(10, launched, "No game version is published on the update server for channel \"live\".");
  then_staged_is({staged_blob("a of 1.1"), staged_blob("c of 1.1"), staged_part(big_content(), 250000)});
}

TEST_P(InterruptedRun, KilledInAFirstInstallAsksAgainAndGoesOn) {
  const ReleaseBuilder release = second_release();
  given_published(release);
  given_a_blob_that_stops_after(big_content(), 250000);
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\n*"), IDYES);
  when_this_is_staged({staged_blob(game_program()), staged_blob("a of 1.1"), staged_blob("c of 1.1"),
                       staged_part(big_content(), 250000)});
  when_killed();
  EXPECT_TRUE(folder().state().empty());

  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\n*"), IDYES);
  then_ends(0, launched, "updated to 1.1");
  for (const std::string& content : {game_program(), std::string("a of 1.1"), std::string("c of 1.1")}) {
    EXPECT_EQ(server_.requests_for(blob_url_path(content)).size(), 1U);
  }
  then_the_installation_is(release, "1.1", "2");
}

TEST_P(InterruptedRun, KilledBeforeTheNextTryResumes) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release();
  given_published(release);
  // A reset may take away what has not yet been read.
  const auto the_bytes_have_arrived = [this] {
    when_this_is_staged({staged_blob("a of 1.1"), staged_blob("c of 1.1"), staged_part(big_content(), 100000)});
  };
  // Should the kill be late, the next try waits for it.
  const ScriptedResponse rest_after_the_kill =
      ScriptedResponse().wait_for(gate_).then(status_line(206) +
                                              "Connection: close\r\nContent-Length: 500000\r\n"
                                              "Content-Range: bytes 100000-599999/600000\r\n\r\n" +
                                              big_content().substr(100000));
  server_.script(
      blob_url_path(big_content()),
      {answer(200, big_content()).drop_after(head_bytes(big_content()) + 100000).call(the_bytes_have_arrived).reset(),
       answer(503), rest_after_the_kill});
  when_started();
  when_it_has_logged(interrupted_line(big_content(), 100000, "the server answered HTTP 503", 2000));
  when_killed();

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig", blob_url_path(big_content()) + " bytes=100000-"});
  then_the_installation_is(release, "1.1", "2");
}

TEST_P(InterruptedRun, KilledBetweenDownloadAndInstallFetchesNothingAgain) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release();
  given_published(release);
  {
    WaitingProgram game(in_folder(L"bin\\game.exe"));
    RunningLauncher waiting = launcher_that_asks();
    EXPECT_TRUE(waiting.wait_for_prompt().text.starts_with(L"KVX is still running:\n"));
    when_killed(waiting);
    game.end();
  }
  then_game_is(files_of(first_release()));
  then_state_is(installed_state("1.0", "1"));

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig"});
  then_the_installation_is(release, "1.1", "2");
}

TEST_P(InterruptedRun, KilledWhileInstallingIsNoticedAndFinished) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release(content_placed_last());
  given_published(release);
  FileLock held(in_folder(L"data\\a.txt"));
  RunningLauncher installing = launcher_that_asks();
  Files half = files_of(release);
  ASSERT_TRUE(wait_until([&] { return placed(half, "data/b.bin") && placed(half, "data/c.txt"); }));
  when_killed(installing);
  held.release();
  EXPECT_EQ(value_of("complete"), "0");
  EXPECT_EQ(value_of("updating.serial"), "2");
  EXPECT_EQ(value_of("installed.serial"), "1");
  half["data/a.txt"] = "a of 1.0";
  then_game_is(half);

  // Without the server, the player is warned.
  server_.always("manifest.json", answer(404));
  when_started(L"--no-launch");
  then_asks(confirm_prompt(L"No game version is published on the update server for channel \"live\".\n\nThe installed "
                           L"version 1.0 will be started." +
                           to_wide(unfinished_warning)),
            IDOK);
  then_ends(10, not_launched, "No game version is published on the update server for channel \"live\".");
  EXPECT_EQ(value_of("complete"), "0");

  server_.always("manifest.json", answer(200, release.json()));
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig"});
  then_the_installation_is(release, "1.1", "2");
}

TEST_P(InterruptedRun, KilledWhileRemovingIsNoticedAndFinished) {
  given_installed(first_release().file("data/old.txt", "old"));
  const ReleaseBuilder release = second_release().remove("data/old.txt");
  given_published(release);
  FileLock held(in_folder(L"data\\old.txt"));
  RunningLauncher removing = launcher_that_asks();
  Files half = files_of(release);
  half["data/old.txt"] = "old";
  ASSERT_TRUE(wait_until(
      [&] { return placed(half, "data/a.txt") && placed(half, "data/b.bin") && placed(half, "data/c.txt"); }));
  when_killed(removing);
  held.release();
  EXPECT_EQ(value_of("complete"), "0");
  then_game_is(half);

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig"});
  then_the_installation_is(release, "1.1", "2");
}

TEST_P(InterruptedRun, KilledBeforeTheInstallIsRecordedFindsItComplete) {
  given_installed(first_release());
  const ReleaseBuilder release = second_release();
  given_published(release);
  FileLock held(in_folder(L".kvx_patch\\installed_manifest.json"), FILE_SHARE_READ);
  when_started();
  ASSERT_TRUE(wait_until([this] { return folder().has(".kvx_patch/installed_manifest.json.tmp"); }));
  when_killed();
  held.release();
  then_game_is(files_of(release));
  EXPECT_EQ(value_of("complete"), "0");

  when_started();
  then_ends(0, launched, "up to date 1.1");
  then_requests_are({"manifest.json", "manifest.sig"});
  then_the_installation_is(release, "1.1", "2");
}

TEST_P(InterruptedRun, KilledWhileFetchingANewLauncherGoesOnWhereItStopped) {
  given_installed(first_release());
  const std::string next = read_text(full_path(to_wide(build_path(KVX_NEXT_LAUNCHER_PROGRAM))));
  const ReleaseBuilder release = second_release().launcher("1.0.1", next);
  given_published(release);
  given_a_blob_that_stops_after(next, 200000);
  when_started();
  when_this_is_staged({staged_part(next, 200000)});
  when_killed();

  given_a_hand_over_is_awaited();
  when_started();
  then_ends(50, not_launched, "launcher updated to 1.0.1");
  when_the_new_launcher_takes_over();
  then_ends(0, launched, "updated to 1.1");
  EXPECT_EQ(server_.requests_for(blob_url_path(next)).back().header("Range"), "bytes=200000-");
  then_the_installation_is(release, "1.1", "2");
}

TEST_P(InterruptedRun, KilledBetweenTheMovesOfASelfUpdateStartsOver) {
  given_installed(first_release());
  const std::string next = read_text(full_path(to_wide(build_path(KVX_NEXT_LAUNCHER_PROGRAM))));
  const ReleaseBuilder release = second_release().launcher("1.0.1", next);
  given_published(release);
  FileLock old_file(folder().launcher(), FILE_SHARE_READ);
  when_started();
  ASSERT_TRUE(wait_until([this] { return folder().has("KVXLauncher.new.exe"); }));
  when_killed();
  old_file.release();

  given_a_hand_over_is_awaited();
  when_started();
  then_ends(50, not_launched, "launcher updated to 1.0.1");
  when_the_new_launcher_takes_over();
  then_ends(0, launched, "updated to 1.1");
  then_the_installation_is(release, "1.1", "2");
}

// As a computer that goes off between the two renames leaves it.
TEST_P(InterruptedRun, ASelfUpdateWithoutItsProgramIsRepairedByStartingWhatIsLeft) {
  const std::string next = read_text(full_path(to_wide(build_path(KVX_NEXT_LAUNCHER_PROGRAM))));
  const ReleaseBuilder release = second_release().launcher("1.0.1", next);
  struct Case {
    std::string left;
    ReleaseBuilder published;
    std::vector<std::string> then_logged;
  };
  for (const Case& c :
       {Case{"KVXLauncher.old.exe", second_release(), {}},
        Case{"KVXLauncher.new.exe", release, {"launcher runs as KVXLauncher.new.exe: not updating it"}}}) {
    SCOPED_TRACE(c.left);
    use_folder(std::make_unique<PlayerFolder>());
    given_installed(first_release());
    given_published(c.published);
    ASSERT_NE(MoveFileW(folder().launcher().c_str(), folder().file(c.left).c_str()), 0);
    when_started_through(folder().file(c.left), folder().path());
    then_ends(0, launched, "updated to 1.1");
    std::vector<std::string> logged = {"KVXLauncher.exe was missing: restored from " + c.left};
    logged.insert(logged.end(), c.then_logged.begin(), c.then_logged.end());
    then_the_log_has(logged);
    EXPECT_EQ(read_text(folder().launcher()), folder().read(c.left));

    given_published(release);
    given_a_hand_over_is_awaited();
    when_started();
    then_ends(50, not_launched, "launcher updated to 1.0.1");
    when_the_new_launcher_takes_over();
    then_ends(0, launched, "up to date 1.1");
    then_the_installation_is(release, "1.1", "2");
  }
}

TEST_P(InterruptedRun, KilledAfterAHandOverIsFinishedByTheNextStart) {
  given_installed(first_release());
  const std::string next = read_text(full_path(to_wide(build_path(KVX_NEXT_LAUNCHER_PROGRAM))));
  const ReleaseBuilder release = second_release().launcher("1.0.1", next);
  given_published(release);
  given_a_hand_over_is_awaited();
  when_started();
  then_ends(50, not_launched, "launcher updated to 1.0.1");
  when_the_new_launcher_asks();
  when_killed();
  when_the_server_answers();

  when_the_new_launcher_is_started();
  then_ends(0, launched, "updated to 1.1");
  EXPECT_EQ(server_.requests_for(blob_url_path(next)).size(), 1U);
  then_the_installation_is(release, "1.1", "2");
}

}  // namespace
}  // namespace kvx::test
