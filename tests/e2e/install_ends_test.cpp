// Installs that wait for the game to close or that cannot go on, and games that cannot be started after all.
#include <windows.h>

#include <algorithm>
#include <gtest/gtest.h>

#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/e2e/update_texts.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"

namespace kvx::test {
namespace {

std::vector<std::string> lines_before_install() {
  return {"manifest: * bytes, signature OK (key primary)",
          "manifest: version 1.1 serial 2, 2 files, 0 removals, exe bin/game.exe",
          "update to 1.1: 1 files to replace (1 unique, 8 bytes, 0 already staged), 0 to remove",
          "disk: * bytes free, 8 needed", verified_line(next_data)};
}

// ---- the game runs

class RunningGame : public InBothWays {
 protected:
  void given_an_update() {
    given_installed(first_release());
    given_published(next_release(next_data));
  }
};
KVX_TELL_IN_BOTH_WAYS(RunningGame);

TEST_P(RunningGame, EndsTheRunBeforeTheInstallWhenItIsNotClosed) {
  given_an_update();
  const std::wstring program = folder().file("bin/game.exe");
  WaitingProgram game(program);
  when_started();
  then_asks(still_running_prompt(program), IDCANCEL);
  then_ends(40, not_launched, "KVX is running");
  std::vector<std::string> lines = lines_before_install();
  lines.push_back("a program from the install folder is running: " + to_utf8(program));
  then_the_log_says(lines);
  then_game_is(files_of(first_release()));
  then_staged_is({staged_blob(next_data)});
  then_state_is(installed_state("1.0", "1"));
  then_game_was_not_started();

  game.end();
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig"});
  then_the_log_has({"update to 1.1: 1 files to replace (1 unique, 8 bytes, 8 already staged), 0 to remove",
                    "disk: * bytes free, 0 needed", already_staged_line(next_data), "update to 1.1 complete"});
  then_game_is(files_of(next_release(next_data)));
  then_staged_is({});
  then_game_was_started_with({});
}

TEST_P(RunningGame, IsAnyProgramBelowTheInstallFolder) {
  given_an_update();
  for (const std::string name : {"tools/of the game/deep/editor.exe", "copy/KVXLauncher.exe", ".kvx_patch/dl/x.exe",
                                 "Saved/mod.exe", "not in the release.exe"}) {
    SCOPED_TRACE(name);
    const std::wstring program = folder().file(name);
    copy_test_program(program);
    WaitingProgram running(program);
    when_started();
    then_asks(still_running_prompt(program), IDCANCEL);
    then_ends(40, not_launched, "KVX is running");
    running.end();
  }
  when_started();
  then_ends(0, launched, "updated to 1.1");
}

TEST_P(RunningGame, IsNoProgramOfAnotherFolder) {
  use_folder(std::make_unique<PlayerFolder>(L"KVXLauncher.exe", L"KVX"));
  given_an_update();
  const std::wstring sibling = folder().path() + L"2\\bin\\game.exe";
  const std::wstring parent = parent_path(folder().path()) + L"\\game.exe";
  copy_test_program(sibling);
  copy_test_program(parent);
  const WaitingProgram runs_in_the_sibling(sibling);
  const WaitingProgram runs_in_the_parent(parent);
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(next_release(next_data)));
}

TEST_P(RunningGame, DoesNotMatterWhenNothingIsToBeInstalled) {
  given_installed(first_release());
  const WaitingProgram game(folder().file("bin/game.exe"));
  when_started();
  then_ends(0, launched, "up to date 1.0");
}

class RunningGameWithAPerson : public Story {};

TEST_F(RunningGameWithAPerson, IsAskedForUntilItIsClosed) {
  given_installed(first_release());
  given_published(next_release(next_data));
  const std::wstring program = folder().file("bin/game.exe");
  WaitingProgram game(program);
  when_started();
  then_asks(still_running_prompt(program), IDRETRY);
  then_asks(still_running_prompt(program), IDRETRY);
  then_shows(still_running_prompt(program));
  game.end();
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
  std::vector<std::string> lines = lines_before_install();
  lines.insert(lines.end(), 3, "a program from the install folder is running: " + to_utf8(program));
  lines.insert(lines.end(), {"update to 1.1 complete", "started *"});
  then_the_log_says(lines);
  then_game_is(files_of(next_release(next_data)));
}

TEST_F(RunningGameWithAPerson, IsAskedForOneProgramAfterTheOther) {
  given_installed(first_release());
  given_published(next_release(next_data));
  const std::wstring first_program = folder().file("bin/game.exe");
  const std::wstring second_program = folder().file("bin/server.exe");
  copy_test_program(second_program);
  WaitingProgram first(first_program);
  when_started();
  then_shows(still_running_prompt(first_program));
  WaitingProgram second(second_program);
  first.end();
  run().answer(IDRETRY);
  then_shows(still_running_prompt(second_program));
  second.end();
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
}

// ---- the install cannot go on

// Three new contents in the order in which an install places them, which is that of their digests.
std::vector<std::string> contents_in_install_order() {
  std::vector<std::string> contents = {"content of 1.1, one", "content of 1.1, two", "content of 1.1, three"};
  std::sort(contents.begin(), contents.end(),
            [](const std::string& a, const std::string& b) { return sha256_hex(a) < sha256_hex(b); });
  return contents;
}

// The second of three files cannot be placed: a file of the player has the name of its folder.
ReleaseBuilder release_with_a_blocked_file() {
  const std::vector<std::string> contents = contents_in_install_order();
  return ReleaseBuilder()
      .version("1.1")
      .serial(2)
      .file("bin/game.exe", test_program_bytes())
      .file("data/a.txt", contents[0])
      .file("blocked/b.txt", contents[1])
      .file("data/c.txt", contents[2])
      .remove("data/old.txt");
}

ReleaseBuilder release_before_it() {
  return ReleaseBuilder()
      .version("1.0")
      .serial(1)
      .file("bin/game.exe", test_program_bytes())
      .file("data/a.txt", "a of 1.0")
      .file("data/c.txt", "c of 1.0")
      .file("data/old.txt", "old");
}

const std::string blocked_by = "the player's file";

class StoppedInstall : public InBothWays {
 protected:
  void given_a_blocked_update() {
    given_installed(release_before_it());
    given_published(release_with_a_blocked_file());
    folder().write("blocked", blocked_by);
  }

  static std::map<std::string, std::string> unfinished_state() {
    std::map<std::string, std::string> state = installed_state("1.0", "1");
    state["complete"] = "0";
    state["updating.serial"] = "2";
    return state;
  }
};
KVX_TELL_IN_BOTH_WAYS(StoppedInstall);

TEST_P(StoppedInstall, KeepsWhatIsDoneAndIsFinishedByTheNextRun) {
  given_a_blocked_update();
  const std::vector<std::string> contents = contents_in_install_order();
  const std::string words = error_text(ERROR_ALREADY_EXISTS);
  const std::string reason = "could not replace blocked/b.txt: " + words;
  when_started();
  then_asks(cannot_replace_prompt("blocked/b.txt", ERROR_ALREADY_EXISTS), IDCANCEL);
  then_asks(install_failed_prompt(reason), IDOK);
  then_ends(42, not_launched, reason);
  then_the_log_has({"update to 1.1: 3 files to replace (3 unique, * bytes, 0 already staged), 1 to remove",
                    "replace blocked/b.txt failed: " + words, "exit code 42 (launched=0)"});
  then_the_log_lacks("removed *");
  then_the_log_lacks("started *");
  Files halfway = files_of(release_before_it());
  halfway["data/a.txt"] = contents[0];
  halfway["blocked"] = blocked_by;
  then_game_is(halfway);
  then_staged_is({staged_blob(contents[1]), staged_blob(contents[2])});
  then_state_is(unfinished_state());
  then_game_was_not_started();

  DeleteFileW(in_folder(L"blocked").c_str());
  const ReleaseBuilder release = release_with_a_blocked_file();
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig"});
  const std::string bytes = std::to_string(contents[1].size() + contents[2].size());
  then_the_log_lacks("checking *");  // what was placed is known
  then_the_log_has(
      {"update to 1.1: 2 files to replace (2 unique, " + bytes + " bytes, " + bytes + " already staged), 1 to remove",
       "disk: * bytes free, 0 needed", "removed data/old.txt", "update to 1.1 complete"});
  then_game_is(files_of(release));
  then_staged_is({});
  then_state_is(installed_state("1.1", "2"));
}

TEST_P(StoppedInstall, StopsAtAnOldFileThatCannotBeDeleted) {
  given_installed(release_before_it());
  const ReleaseBuilder release = ReleaseBuilder()
                                     .version("1.1")
                                     .serial(2)
                                     .file("bin/game.exe", test_program_bytes())
                                     .file("data/a.txt", next_data)
                                     .remove("data/c.txt")
                                     .remove("data/old.txt");
  given_published(release);
  FileLock held(in_folder(L"data\\old.txt"));
  const std::string words = error_text(ERROR_SHARING_VIOLATION);
  const std::string reason = "could not delete data/old.txt: " + words;
  when_started();
  then_asks(cannot_delete_prompt("data/old.txt", ERROR_SHARING_VIOLATION), IDCANCEL);
  then_asks(install_failed_prompt(reason), IDOK);
  then_ends(42, not_launched, reason);
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.1 serial 2, 2 files, 2 removals, exe bin/game.exe",
                     "update to 1.1: 1 files to replace (1 unique, 8 bytes, 0 already staged), 2 to remove",
                     "disk: * bytes free, 8 needed", verified_line(next_data), "removed data/c.txt",
                     "remove data/old.txt failed: " + words});
  held.release();
  Files halfway = files_of(release);
  halfway["data/old.txt"] = "old";
  then_game_is(halfway);
  then_staged_is({});
  then_state_is(unfinished_state());

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({"update to 1.1: 0 files to replace (0 unique, 0 bytes, 0 already staged), 1 to remove",
                    "disk: * bytes free, 0 needed", "removed data/old.txt", "update to 1.1 complete"});
  then_game_is(files_of(release));
  then_state_is(installed_state("1.1", "2"));
}

TEST_P(StoppedInstall, OfAContentWithSeveralPlacesKeepsTheBlobForTheRest) {
  given_installed(first_release());
  const ReleaseBuilder release =
      next_release("again and again").file("data/b.txt", "again and again").file("data/c.txt", "again and again");
  given_published(release);
  folder().write("data/b.txt.copy/in the way.txt", "a folder of that name");
  const std::string reason = "could not replace data/b.txt: " + error_text(ERROR_ACCESS_DENIED);
  when_started();
  then_asks(cannot_replace_prompt("data/b.txt", ERROR_ACCESS_DENIED), IDCANCEL);
  then_asks(install_failed_prompt(reason), IDOK);
  then_ends(42, not_launched, reason);
  Files halfway = files_of(first_release());
  halfway["data/a.txt"] = "again and again";
  halfway["data/b.txt.copy/in the way.txt"] = "a folder of that name";
  then_game_is(halfway);
  then_staged_is({staged_blob("again and again")});
  then_state_is(unfinished_state());

  remove_tree(in_folder(L"data\\b.txt.copy"));
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig"});
  then_game_is(files_of(release));
}

TEST_P(StoppedInstall, OfAFirstInstallAsksNoMoreOnceTheProgramIsThere) {
  const ReleaseBuilder release = release_with_a_blocked_file().exe("data/a.txt");
  given_published(release);
  folder().write("blocked", blocked_by);
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.1 into:\n*"), IDYES);
  const std::string reason = "could not replace blocked/b.txt: " + error_text(ERROR_ALREADY_EXISTS);
  then_asks(cannot_replace_prompt("blocked/b.txt", ERROR_ALREADY_EXISTS), IDCANCEL);
  then_asks(install_failed_prompt(reason), IDOK);
  then_ends(42, not_launched, reason);
  then_state_is({{"complete", "0"}, {"updating.serial", "2"}});

  DeleteFileW(in_folder(L"blocked").c_str());
  when_started(L"--no-launch");
  then_ends(0, not_launched, "updated to 1.1");
  then_game_is(files_of(release));
  then_state_is(installed_state("1.1", "2"));
}

class StoppedInstallWithAPerson : public Story {};

TEST_F(StoppedInstallWithAPerson, GoesOnWhereItStoppedAfterRetry) {
  given_installed(release_before_it());
  const ReleaseBuilder release = release_with_a_blocked_file();
  given_published(release);
  folder().write("blocked", blocked_by);
  when_started();
  const Prompt prompt = cannot_replace_prompt("blocked/b.txt", ERROR_ALREADY_EXISTS);
  then_asks(prompt, IDRETRY);
  then_asks(prompt, IDRETRY);
  then_shows(prompt);
  EXPECT_EQ(folder().state()["complete"], "0");
  DeleteFileW(in_folder(L"blocked").c_str());
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
  const std::string line = "replace blocked/b.txt failed: " + error_text(ERROR_ALREADY_EXISTS);
  then_the_log_has({line, line, line, "removed data/old.txt", "update to 1.1 complete"});
  then_game_is(files_of(release));
  then_state_is(installed_state("1.1", "2"));
}

// ---- the game cannot be started

// What the system says when it is asked to start this file.
uint32_t code_of_starting(const std::wstring& program) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  EXPECT_FALSE(
      CreateProcessW(program.c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started));
  return GetLastError();
}

class GameThatDoesNotStart : public InBothWays {};
KVX_TELL_IN_BOTH_WAYS(GameThatDoesNotStart);

TEST_P(GameThatDoesNotStart, BecauseItIsNoProgramIsInstalledAllTheSame) {
  for (const std::string content : {"this is no program", "MZ", ""}) {
    SCOPED_TRACE(content);
    use_folder(std::make_unique<PlayerFolder>());
    const ReleaseBuilder release = ReleaseBuilder().file("bin/game.exe", content).file("data/a.txt", "a of 1.0");
    given_installed(release);
    const uint32_t code = code_of_starting(folder().file("bin/game.exe"));
    when_started();
    then_asks(cannot_start_prompt(code), IDOK);
    then_ends(70, not_launched, "up to date 1.0");
    then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                       "manifest: version 1.0 serial 1, 2 files, 0 removals, exe bin/game.exe",
                       "installation matches version 1.0", "CreateProcess failed: " + error_text(code)});
    then_game_is(files_of(release));
    then_state_is(installed_state("1.0", "1"));
  }
}

TEST_P(GameThatDoesNotStart, AfterAnUpdateIsUpdatedAllTheSame) {
  given_installed(first_release());
  const ReleaseBuilder release =
      ReleaseBuilder().version("1.1").serial(2).file("bin/game.exe", "no program").file("data/a.txt", "a of 1.0");
  given_published(release);
  when_started();
  then_asks(cannot_start_prompt(ERROR_BAD_EXE_FORMAT), IDOK);
  then_ends(70, not_launched, "updated to 1.1");
  then_the_log_has({"update to 1.1 complete", "CreateProcess failed: " + error_text(ERROR_BAD_EXE_FORMAT)});
  then_game_is(files_of(release));
  then_staged_is({});
  then_state_is(installed_state("1.1", "2"));
}

TEST_P(GameThatDoesNotStart, BecauseAnotherProgramHoldsItSaysSo) {
  given_installed(first_release());
  const FileLock held(folder().file("bin/game.exe"));
  when_started();
  then_asks(cannot_start_prompt(ERROR_SHARING_VIOLATION), IDOK);
  then_ends(70, not_launched, "up to date 1.0");
}

TEST_P(GameThatDoesNotStart, BecauseItVanishedDuringTheUpdateSaysWhereItWas) {
  given_installed(first_release());
  given_published(next_release(next_data));
  const Gate gate;
  server_.script(blob_url_path(next_data), {held_answer(gate, next_data)});
  when_started();
  ASSERT_TRUE(gate.wait_until_reached());
  DeleteFileW(folder().file("bin/game.exe").c_str());
  gate.open();
  then_asks(program_not_found_prompt(folder().file("bin/game.exe")), IDOK);
  then_ends(70, not_launched, "updated to 1.1");
  then_the_log_lacks("CreateProcess failed*");
  then_the_log_lacks("started *");
  Files expected = files_of(next_release(next_data));
  expected.erase("bin/game.exe");
  expected["bin/"] = "";
  then_game_is(expected);
  then_state_is(installed_state("1.1", "2"));

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(next_release(next_data)));
}

TEST_P(GameThatDoesNotStart, AfterAnOfflineStartEndsWithThatReason) {
  given_installed(ReleaseBuilder().file("bin/game.exe", "this is no program"));
  given_published(first_release().serial(0));
  const std::string offline = "The update server offered an older release than the one already installed.";
  when_started();
  then_asks(confirm_prompt(to_wide(offline) + L"\n\nThe installed version 1.0 will be started."), IDOK);
  then_asks(cannot_start_prompt(ERROR_BAD_EXE_FORMAT), IDOK);
  then_ends(70, not_launched, offline);
  then_the_log_has({"no usable update information (code 21): " + offline,
                    "CreateProcess failed: " + error_text(ERROR_BAD_EXE_FORMAT)});
}

class GameThatDoesNotStartWithAPerson : public Story {};

TEST_F(GameThatDoesNotStartWithAPerson, BecauseItVanishedDuringTheOfflineQuestionSaysWhereItWas) {
  given_installed(first_release());
  given_published(first_release().serial(0));
  const std::string offline = "The update server offered an older release than the one already installed.";
  when_started();
  const Prompt question = confirm_prompt(to_wide(offline) + L"\n\nThe installed version 1.0 will be started.");
  then_shows(question);
  DeleteFileW(folder().file("bin/game.exe").c_str());
  run().answer(IDOK);
  then_asks(program_not_found_prompt(folder().file("bin/game.exe")), IDOK);
  then_ends(70, not_launched, offline);
}

}  // namespace
}  // namespace kvx::test
