// Files that other programs hold, that are read-only, that are not where or what they should be, and odd names.
#include <windows.h>

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

void make_read_only(const std::wstring& path) {
  ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY)) << to_utf8(path);
}

// What the system says when a file is to take this place.
uint32_t code_of_moving_onto(const std::wstring& target) {
  const TempFolder scratch;
  write_text(scratch / L"scratch", "scratch");
  EXPECT_FALSE(MoveFileExW((scratch / L"scratch").c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING));
  return GetLastError();
}

// Version 1.1 without the file data/b.txt that release_with_two_files has.
ReleaseBuilder next_release_without_b() { return next_release(next_data).remove("data/b.txt"); }

// ---- held by another program

class HeldFile : public InBothWays {
 protected:
  static ReleaseBuilder release_with_two_files() { return first_release().file("data/b.txt", "b of 1.0"); }
};
KVX_TELL_IN_BOTH_WAYS(HeldFile);

TEST_P(HeldFile, ThatIsToBeReplacedStopsTheInstallUntilTheNextRun) {
  given_installed(first_release());
  given_published(next_release(next_data));
  FileLock held(in_folder(L"data\\a.txt"));
  const uint32_t code = code_of_moving_onto(in_folder(L"data\\a.txt"));
  const std::string words = error_text(code);
  const std::string reason = "could not replace data/a.txt: " + words;
  when_started();
  then_asks(cannot_replace_prompt("data/a.txt", code), IDCANCEL);
  then_asks(install_failed_prompt(reason), IDOK);
  then_ends(42, not_launched, reason);
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.1 serial 2, 2 files, 0 removals, exe bin/game.exe",
                     "update to 1.1: 1 files to replace (1 unique, 8 bytes, 0 already staged), 0 to remove",
                     "disk: * bytes free, 8 needed", verified_line(next_data), "replace data/a.txt failed: " + words});
  held.release();
  then_game_is(files_of(first_release()));
  then_staged_is({staged_blob(next_data)});
  then_game_was_not_started();

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig"});
  then_game_is(files_of(next_release(next_data)));
  then_state_is(installed_state("1.1", "2"));
}

TEST_P(HeldFile, ThatIsUnchangedIsNoObstacle) {
  given_installed(release_with_two_files());
  const ReleaseBuilder release = next_release(next_data).file("data/b.txt", "b of 1.0");
  given_published(release);
  FileLock held(in_folder(L"data\\b.txt"));
  when_started();
  then_ends(0, launched, "updated to 1.1");
  held.release();
  then_game_is(files_of(release));
}

TEST_P(HeldFile, ThatCannotBeReadAtTheCheckIsReplaced) {
  given_installed(release_with_two_files());
  const std::string blob = blob_url_path("b of 1.0");
  const Gate gate;
  server_.script(blob, {held_answer(gate, "b of 1.0")});
  FileLock held(in_folder(L"data\\b.txt"));
  when_started(L"--repair");
  ASSERT_TRUE(gate.wait_until_reached());
  held.release();
  gate.open();
  then_ends(0, launched, "updated to 1.0");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.0 serial 1, 3 files, 0 removals, exe bin/game.exe",
                     "checking 3 installed files (* bytes)",
                     "cannot read data/b.txt: " + error_text(ERROR_SHARING_VIOLATION),
                     "update to 1.0: 1 files to replace (1 unique, 8 bytes, 0 already staged), 0 to remove",
                     "disk: * bytes free, 8 needed", verified_line("b of 1.0"), "update to 1.0 complete", "started *"});
  then_game_is(files_of(release_with_two_files()));
}

TEST_P(HeldFile, ThatAnotherProgramOnlyReadsIsChecked) {
  given_installed(release_with_two_files());
  FileLock held(in_folder(L"data\\b.txt"), FILE_SHARE_READ);
  when_started(L"--repair");
  then_ends(0, launched, "up to date 1.0");
  then_the_log_lacks("cannot read *");
  held.release();
  then_game_is(files_of(release_with_two_files()));
}

class HeldFileWithAPerson : public Story {};

TEST_F(HeldFileWithAPerson, ThatIsToBeReplacedIsReplacedOnceItIsReleased) {
  given_installed(first_release());
  given_published(next_release(next_data));
  FileLock held(in_folder(L"data\\a.txt"));
  const uint32_t code = code_of_moving_onto(in_folder(L"data\\a.txt"));
  when_started();
  then_shows(cannot_replace_prompt("data/a.txt", code));
  held.release();
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({"replace data/a.txt failed: " + error_text(code), "update to 1.1 complete"});
  then_game_is(files_of(next_release(next_data)));
}

TEST_F(HeldFileWithAPerson, ThatIsToBeDeletedIsDeletedOnceItIsReleased) {
  given_installed(first_release().file("data/b.txt", "b of 1.0"));
  const ReleaseBuilder release = next_release_without_b();
  given_published(release);
  FileLock held(in_folder(L"data\\b.txt"));
  when_started();
  then_shows(cannot_delete_prompt("data/b.txt", ERROR_SHARING_VIOLATION));
  held.release();
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({"remove data/b.txt failed: " + error_text(ERROR_SHARING_VIOLATION), "removed data/b.txt",
                    "update to 1.1 complete"});
  then_game_is(files_of(release));
}

// ---- read-only and in the way

class OddFile : public InBothWays {};
KVX_TELL_IN_BOTH_WAYS(OddFile);

TEST_P(OddFile, ThatIsReadOnlyIsReplacedAndDeleted) {
  given_installed(first_release().file("data/b.txt", "b of 1.0").file("data/c.txt", "c of 1.0"));
  const ReleaseBuilder release = next_release(next_data).file("data/c.txt", next_data).remove("data/b.txt");
  given_published(release);
  folder().write("data/a.txt.copy", "left by an interrupted install");
  for (const wchar_t* name : {L"data\\a.txt", L"data\\a.txt.copy", L"data\\b.txt", L"data\\c.txt"}) {
    make_read_only(in_folder(name));
  }
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_lacks("* failed: *");
  then_game_is(files_of(release));
}

TEST_P(OddFile, ThatIsHiddenIsReplacedAndDeleted) {
  given_installed(first_release().file("data/b.txt", "b of 1.0"));
  const ReleaseBuilder release = next_release_without_b();
  given_published(release);
  for (const wchar_t* name : {L"data\\a.txt", L"data\\b.txt"}) {
    ASSERT_TRUE(SetFileAttributesW(in_folder(name).c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
  }
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(release));
}

TEST_P(OddFile, WhosePlaceAFolderHasStopsTheInstall) {
  given_installed(first_release());
  given_published(next_release(next_data));
  DeleteFileW(in_folder(L"data\\a.txt").c_str());
  folder().write("data/a.txt/mine.txt", "the player's");
  const std::string reason = "could not replace data/a.txt: " + error_text(ERROR_ACCESS_DENIED);
  when_started();
  then_asks(cannot_replace_prompt("data/a.txt", ERROR_ACCESS_DENIED), IDCANCEL);
  then_asks(install_failed_prompt(reason), IDOK);
  then_ends(42, not_launched, reason);
  Files expected = files_of(first_release());
  expected.erase("data/a.txt");
  expected["data/a.txt/mine.txt"] = "the player's";
  then_game_is(expected);
  then_staged_is({staged_blob(next_data)});
}

TEST_P(OddFile, OfTheNameOfAFileToRemoveStaysWhenItIsAFolder) {
  given_installed(first_release());
  const ReleaseBuilder release = first_release().version("1.1").serial(2).remove("mods");
  given_published(release);
  folder().write("mods/mine.txt", "the player's");
  Files expected = files_of(release);
  expected["mods/mine.txt"] = "the player's";
  when_started();
  then_ends(0, launched, "up to date 1.1");
  then_the_log_lacks("removed *");
  then_game_is(expected);

  given_published(next_release(next_data).serial(3).remove("mods"));
  expected["data/a.txt"] = next_data;
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({"update to 1.1: 1 files to replace (1 unique, 8 bytes, 0 already staged), 0 to remove"});
  then_the_log_lacks("removed *");
  then_game_is(expected);
}

TEST_P(OddFile, ThatVanishesOrAppearsDuringTheDownloadIsNoObstacle) {
  given_installed(first_release().file("data/b.txt", "b of 1.0").file("data/c.txt", "c of 1.0"));
  const ReleaseBuilder release =
      next_release(next_data).file("data/new.txt", "new").remove("data/b.txt").remove("data/c.txt");
  given_published(release);
  const Gate gate;
  server_.script(blob_url_path(next_data), {held_answer(gate, next_data)});
  when_started();
  ASSERT_TRUE(gate.wait_until_reached());
  DeleteFileW(in_folder(L"data\\a.txt").c_str());
  DeleteFileW(in_folder(L"data\\b.txt").c_str());
  folder().write("data/new.txt", "from somewhere else");
  gate.open();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({"update to 1.1: 2 files to replace (2 unique, 11 bytes, 0 already staged), 2 to remove",
                    "removed data/c.txt", "update to 1.1 complete"});
  then_the_log_lacks("removed data/b.txt");
  then_game_is(files_of(release));
}

TEST_P(OddFile, ThatVanishedWithItsFolderIsInstalledAgain) {
  given_installed(first_release());
  remove_tree(in_folder(L"data"));
  when_started();
  then_ends(0, launched, "updated to 1.0");
  then_game_is(files_of(first_release()));
}

TEST_P(OddFile, WhoseNameDiffersInCaseIsTheSameFile) {
  given_installed(first_release().file("data/b.txt", "b of 1.0"));
  remove_tree(in_folder(L"data"));
  folder().write("Data/A.TXT", "a of 1.0");
  folder().write("Data/B.Txt", "b of 1.0");
  when_started();
  then_ends(0, launched, "up to date 1.0");

  given_published(first_release().version("1.1").serial(2).remove("DATA/b.TXT"));
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({"removed DATA/b.TXT"});
  Files expected = files_of(first_release());
  expected.erase("data/a.txt");
  expected["Data/A.TXT"] = "a of 1.0";
  then_game_is(expected);
}

TEST_P(OddFile, ThatIsEmptyIsInstalledWithoutARequest) {
  const std::string empty;
  const ReleaseBuilder first = first_release().file("data/empty.txt", empty).file("data/full.txt", "full");
  given_installed(first);
  const ReleaseBuilder second = first_release()
                                    .version("1.1")
                                    .serial(2)
                                    .file("data/empty.txt", "full")
                                    .file("data/full.txt", empty)
                                    .file("data/empty too.txt", empty);
  given_published(second);
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig", blob_url_path("full")});
  then_the_log_has({"update to 1.1: 3 files to replace (2 unique, 4 bytes, 0 already staged), 0 to remove",
                    "update to 1.1 complete"});
  then_the_log_has({verified_line(empty)});
  then_game_is(files_of(second));
}

class OddFileWithAPerson : public Story {};

TEST_F(OddFileWithAPerson, WhosePlaceAFolderHasIsInstalledOnceItIsGone) {
  given_installed(first_release());
  given_published(next_release(next_data));
  DeleteFileW(in_folder(L"data\\a.txt").c_str());
  folder().write("data/a.txt/mine.txt", "the player's");
  when_started();
  then_shows(cannot_replace_prompt("data/a.txt", ERROR_ACCESS_DENIED));
  remove_tree(in_folder(L"data\\a.txt"));
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(next_release(next_data)));
}

// ---- names

std::string repeated(const std::string& text, size_t times) {
  std::string result;
  for (size_t i = 0; i < times; ++i) result += text;
  return result;
}

const std::vector<std::string>& odd_names() {
  static const std::vector<std::string> names = {
      repeated("p", 200) + "/" + repeated("q", 199),          // 400 bytes, the longest path
      repeated("\u540D", 85) + "/" + repeated("\u524D", 48),  // 400 bytes too
      "data/" + repeated("n", 250),                           // with ".copy" the longest name of a file system
      "only/one/file/many/folders/deep/inside/a/folder/of/a/folder/x",
      " begins with a blank.txt",
      "two  blanks/ and more.txt",
      "...three dots",
      ".hidden/.file",
      "no extension",
      "many.dots.in.one..name",
      "%TEMP%/$HOME/~tilde.txt",
      "[a]{b}(c)&'d'`e`!@#^=+,;-_.pak",
      "\u00DCml\u00E4ut \u00E9.txt",
      "Uml\u0061\u0308ut e\u0301.txt",  // decomposed
      "\U0001F3AE game.bin",
      "con1.txt",
      "console/com10/nul_",
      "SavedGames/Saved.txt",
      "data/.kvx_patch",
      "KVXLauncher.exe.config",
      "bin/KVXLauncher/file",
      "x.copy",
      "x.tmp",
  };
  return names;
}

class OddName : public InBothWays {
 protected:
  // The game program, and a file of each name, with a content of its own.
  static ReleaseBuilder release_of_names(const std::string& version, int64_t serial) {
    ReleaseBuilder release;
    release.version(version).serial(serial).file("bin/game.exe", game_program());
    for (const std::string& name : odd_names()) release.file(name, version + " of " + name);
    const std::string longest_name = repeated("m", 255);
    release.file("data/" + longest_name, version + " of the longest name");
    return release;
  }
};
KVX_TELL_IN_BOTH_WAYS(OddName);

TEST_P(OddName, IsInstalledReplacedAndRemovedLikeAnyOther) {
  const ReleaseBuilder first = release_of_names("1.0", 1);
  given_installed(first);
  when_started();
  then_ends(0, launched, "up to date 1.0");

  const ReleaseBuilder second = release_of_names("1.1", 2);
  given_published(second);
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(second));

  ReleaseBuilder third;
  third.version("1.2").serial(3).file("bin/game.exe", game_program());
  for (const ReleaseBuilder::File& file : second.files()) {
    if (file.path != "bin/game.exe") third.remove(file.path);
  }
  given_published(third);
  when_started(L"--no-launch");
  then_ends(0, not_launched, "updated to 1.2");
  for (const ReleaseBuilder::File& file : second.files()) {
    if (file.path != "bin/game.exe") then_the_log_has({"removed " + file.path});
  }
  for (const auto& [name, content] : folder().game_files()) {
    EXPECT_TRUE(name == "bin/game.exe" || name.ends_with('/')) << name;
  }
}

TEST_P(OddName, GetsACopyOfARepeatedContent) {
  ReleaseBuilder release = first_release();
  for (const std::string& name : odd_names()) release.file(name, "the same for all");
  given_published(release);
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*"), IDYES);
  then_ends(0, launched, "updated to 1.0");
  then_game_is(files_of(release));
}

// ---- what is not the launcher's

class PlayersFile : public InBothWays {
 protected:
  static Files players_files() {
    return {{"Saved/slot 1.sav", "a saved game"},
            {"bin/Saved/config.ini", "settings"},
            {"data/saved/b.txt", "of the name of a removed file"},
            {"mods/my mod.pak", "a mod"},
            {"screenshot.png", "a picture"},
            {"data/a.txt.copy", "beside a file that is replaced"},
            {"data/b.txt.tmp", "beside a file that is removed"},
            {"data/b.txt.bak", "beside a file that is removed"}};
  }

  void given_players_files() {
    for (const auto& [name, content] : players_files()) folder().write(name, content);
  }

  static Files with_players_files(const ReleaseBuilder& release) {
    Files files = files_of(release);
    files.merge(players_files());
    return files;
  }
};
KVX_TELL_IN_BOTH_WAYS(PlayersFile);

TEST_P(PlayersFile, IsNeverTouched) {
  given_players_files();
  const ReleaseBuilder first = first_release().file("data/b.txt", "b of 1.0");
  given_published(first);
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*"), IDYES);
  then_ends(0, launched, "updated to 1.0");
  then_game_is(with_players_files(first));

  given_published(next_release_without_b());
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_game_is(with_players_files(next_release_without_b()));

  when_started(L"--repair");
  then_ends(0, launched, "up to date 1.1");
  then_game_is(with_players_files(next_release_without_b()));
}

// ---- the launcher's own records

class OddRecord : public InBothWays {};
KVX_TELL_IN_BOTH_WAYS(OddRecord);

TEST_P(OddRecord, CostsACheckAndNothingElse) {
  given_installed(first_release());
  const std::string garbage = std::string("\0\xFF", 2) + "=\r\n=x\nno sign\n";
  const auto records = {"state.txt",         "hashcache.txt",      "installed_manifest.json", "installed_manifest.sig",
                        "last_result.txt",   "launcher.prev.log",  "launcher.lock",           "state.txt.tmp",
                        "hashcache.txt.tmp", "last_result.txt.tmp"};
  for (const char* record : records) folder().write(std::string(".kvx_patch/") + record, garbage);
  const std::vector<std::string> log = {"manifest: * bytes, signature OK (key primary)",
                                        "manifest: version 1.0 serial 1, 2 files, 0 removals, exe bin/game.exe",
                                        "checking 2 installed files (* bytes)", "installation matches version 1.0",
                                        "started *"};
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_says(log);
  then_requests_are({"manifest.json", "manifest.sig"});
  std::map<std::string, std::string> state = installed_state("1.0", "1");
  state.erase("updating.serial");
  EXPECT_EQ(folder().state()["installed.serial"], "1");
  EXPECT_EQ(folder().state()["complete"], "1");

  remove_tree(in_folder(L".kvx_patch"));
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_says(log);
  then_state_is(state);
  EXPECT_EQ(folder().records(), (std::vector<std::string>{"blobs", "dl", "hashcache.txt", "installed_manifest.json",
                                                          "installed_manifest.sig", "last_result.txt", "launcher.lock",
                                                          "launcher.log", "state.txt"}));
  then_game_is(files_of(first_release()));
}

TEST_P(OddRecord, ThatIsReadOnlyIsWrittenAllTheSame) {
  given_installed(first_release());
  given_published(next_release(next_data));
  for (const wchar_t* name :
       {L"state.txt", L"hashcache.txt", L"installed_manifest.json", L"installed_manifest.sig", L"last_result.txt"}) {
    make_read_only(in_folder(std::wstring(L".kvx_patch\\") + name));
  }
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_state_is(installed_state("1.1", "2"));
  EXPECT_EQ(folder().read(".kvx_patch/installed_manifest.json"), next_release(next_data).json());
  when_started();
  then_ends(0, launched, "up to date 1.1");
  then_the_log_lacks("checking *");
}

TEST_P(OddRecord, InTheFoldersOfDownloadsIsCleanedUp) {
  given_installed(first_release());
  folder().write(".kvx_patch/blobs/" + sha256_hex("of an older release"), "of an older release");
  folder().write(".kvx_patch/dl/" + sha256_hex("of an older release") + ".part", "of an");
  folder().write(".kvx_patch/dl/notes.txt", "whatever this is");
  make_read_only(in_folder(L".kvx_patch\\dl\\notes.txt"));
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_staged_is({});

  given_published(next_release(next_data));
  folder().write(".kvx_patch/blobs/notes.txt", "whatever this is");
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_staged_is({});

  folder().write(".kvx_patch/dl/held.txt", "held");
  folder().write(".kvx_patch/dl/notes.txt", "again");
  const FileLock held(in_folder(L".kvx_patch\\dl\\held.txt"));
  when_started();
  then_ends(0, launched, "up to date 1.1");
  then_staged_is({"dl/held.txt 4"});
}

TEST_P(OddRecord, ThatIsHeldDoesNotStopTheRun) {
  given_installed(first_release());
  given_published(first_release().version("1.0.1").serial(2));
  FileLock held(in_folder(L".kvx_patch\\state.txt"), FILE_SHARE_READ);
  when_started();
  then_ends(0, launched, "up to date 1.0.1");
  then_state_is(installed_state("1.0", "1"));
  held.release();
  when_started();
  then_ends(0, launched, "up to date 1.0.1");
  std::map<std::string, std::string> state = installed_state("1.0.1", "2");
  state["updating.serial"] = "1";
  then_state_is(state);
}

TEST_P(OddRecord, ThatIsTheLogDoesNotStopTheRunWhenItIsHeld) {
  given_installed(first_release());
  const std::vector<std::string> log_before = folder().log();
  FileLock held(in_folder(L".kvx_patch\\launcher.log"), FILE_SHARE_READ);
  when_started();
  then_ends(0, launched, "up to date 1.0");
  EXPECT_EQ(folder().log(), log_before);
}

TEST_P(OddRecord, ThatIsTheResultDoesNotChangeTheExitCodeWhenItIsHeld) {
  given_installed(first_release());
  const std::string result_before = folder().result();
  FileLock held(in_folder(L".kvx_patch\\last_result.txt"), FILE_SHARE_READ);
  when_started();
  EXPECT_EQ(run().wait_for_end(is_silent()), 0U);
  EXPECT_EQ(folder().result(), result_before);
  EXPECT_FALSE(folder().has(".kvx_patch/last_result.txt.tmp"));
  then_game_was_started_with({});
}

}  // namespace
}  // namespace kvx::test
