#include "engine/self_update.h"

#include <memory>

#include "foundations/error_text.h"
#include "foundations/system_handles.h"
#include "tests/engine/download_test.h"
#include "tests/support/test_clock.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char own_version[] = "1.0.0";
const std::string old_launcher = "the running launcher";
const std::string no_program = "a file that is no program";

class SelfUpdate : public DownloadTest {
 protected:
  SelfUpdate() { write_text(self_path_, old_launcher); }

  SelfUpdateResult update(const LauncherEntry& entry, bool self_updated = false) {
    const auto download = [this](const std::string& hash, uint64_t size, std::string& error) {
      return download_blob(context_, session_, {hash, size}, buffer_, error);
    };
    return update_launcher(
        {ui_, store_, download, self_path_, install_dir_, temporary_, own_version, self_updated, options_, arguments_},
        entry);
  }

  // A manifest's entry; its content is on the server.
  LauncherEntry published(const std::string& version, const std::string& content) {
    server_.serve(blob_url_path(content), content);
    return {true, version, sha256_hex(content), content.size()};
  }

  [[nodiscard]] static std::string comparison(const LauncherEntry& entry) {
    return "launcher: running 1.0.0 (" + sha256_hex(old_launcher) + "), manifest names " + entry.version + " (" +
           entry.sha256 + ")";
  }

  [[nodiscard]] static std::string downloaded(const LauncherEntry& entry) {
    return "downloaded + verified " + entry.sha256 + " (" + std::to_string(entry.size) + " bytes)";
  }

  void expect_files_as_before() const {
    EXPECT_EQ(read_text(self_path_), old_launcher);
    EXPECT_FALSE(is_file(new_path_));
    EXPECT_FALSE(is_file(game(L"KVXLauncher.old.exe")));
  }

  TestClock clock_;
  std::wstring self_path_ = game(L"KVXLauncher.exe");
  const std::wstring new_path_ = game(L"KVXLauncher.new.exe");
  const std::wstring previous_path_ = game(L"KVXLauncher.old.exe");
  const std::wstring temporary_ = staging(L"KVXLauncher.exe.tmp");
  std::vector<std::wstring> options_;
  std::vector<std::wstring> arguments_;
};

TEST_F(SelfUpdate, IsOnlyForANewerVersionWithAnotherContent) {
  for (const char* version : {"1.0", "1", "1.0.0", "1.0.0.0", "01.0", "0.9", "0.99.99", "no version", ""}) {
    const LauncherEntry entry = published(version, "another launcher");
    const size_t logged = log_.messages().size();
    EXPECT_EQ(update(entry), SelfUpdateResult::go_on) << version;
    ASSERT_EQ(log_.messages().size(), logged + 1) << version;
    EXPECT_EQ(log_.messages().back(), comparison(entry));
  }
  const LauncherEntry same_file = published("1.0.1", old_launcher);
  EXPECT_EQ(update(same_file), SelfUpdateResult::go_on);
  EXPECT_EQ(log_.messages().back(), comparison(same_file));
  EXPECT_THAT(server_.requests(), IsEmpty());
  EXPECT_THAT(ui_.events(), IsEmpty());
  expect_files_as_before();
}

TEST_F(SelfUpdate, HappensOnceInARow) {
  const LauncherEntry entry = published("1.0.1", no_program);
  EXPECT_EQ(update(entry, true), SelfUpdateResult::go_on);
  EXPECT_THAT(log_.messages(),
              ElementsAre(comparison(entry),
                          "launcher was just updated but the manifest still names a newer one: not updating again"));
  EXPECT_THAT(server_.requests(), IsEmpty());
  EXPECT_THAT(ui_.events(), IsEmpty());
  EXPECT_EQ(update(published("1.0.0", no_program), true), SelfUpdateResult::go_on);
  EXPECT_EQ(log_.messages().size(), 3U);
}

TEST_F(SelfUpdate, ShowsTheDownload) {
  remove_tree(staging_dir_);  // it makes its folders
  const LauncherEntry entry = published("1.0.1", no_program);
  std::vector<uint64_t> progress;
  server_.on_request(blob_url_path(no_program), [&](const RecordedRequest&) {
    progress = {static_cast<uint64_t>(ui_.progress_mode.load()), ui_.progress_done, ui_.progress_total};
  });
  EXPECT_EQ(update(entry), SelfUpdateResult::go_on);
  // Nobody cancels in the middle of the swap.
  EXPECT_THAT(ui_.events(), ElementsAre(status_event(L"Updating the launcher..."), allow_cancel_event(false),
                                        allow_cancel_event(true)));
  EXPECT_THAT(progress, ElementsAre(2U, 0U, no_program.size()));
  EXPECT_EQ(ui_.progress_done, no_program.size());
  EXPECT_EQ(ui_.progress_mode, ProgressMode::busy);
}

TEST_F(SelfUpdate, GoesOnWithoutANewLauncherThatCannotBeDownloaded) {
  const LauncherEntry entry = published("1.0.1", no_program);
  server_.remove(blob_url_path(no_program));
  EXPECT_EQ(update(entry), SelfUpdateResult::go_on);
  EXPECT_THAT(log_.messages(),
              ElementsAre(comparison(entry),
                          "launcher download failed (a required file is missing on the update server (HTTP 404)); "
                          "continuing with the current launcher"));
  EXPECT_EQ(ui_.progress_mode, ProgressMode::busy);
  expect_files_as_before();
}

TEST_F(SelfUpdate, EndsTheRunWhenTheUserCancelsTheDownload) {
  const LauncherEntry entry = published("1.0.1", no_program);
  server_.on_request(blob_url_path(no_program), [&](const RecordedRequest&) { ui_.cancel_requested = true; });
  EXPECT_EQ(update(entry), SelfUpdateResult::cancelled);
  EXPECT_THAT(log_.messages(), ElementsAre(comparison(entry)));
  EXPECT_EQ(ui_.progress_mode, ProgressMode::busy);
  expect_files_as_before();
}

TEST_F(SelfUpdate, EndsTheRunAtACancelThatComesWithTheLastByte) {
  const LauncherEntry entry = published("1.0.1", no_program);
  const auto cancelled_at_the_end = [this](const std::string& hash, uint64_t size, std::string& error) {
    const bool finished = download_blob(context_, session_, {hash, size}, buffer_, error);
    ui_.cancel_requested = true;
    return finished;
  };
  EXPECT_EQ(update_launcher({ui_, store_, cancelled_at_the_end, self_path_, install_dir_, temporary_, own_version,
                             false, options_, arguments_},
                            entry),
            SelfUpdateResult::cancelled);
  EXPECT_THAT(log_.messages(), ElementsAre(comparison(entry), downloaded(entry)));
  EXPECT_TRUE(exists(blob(no_program)));
  expect_files_as_before();
}

TEST_F(SelfUpdate, LeavesALauncherAloneWhoseFileIsThePlaceOfANewOne) {
  for (const char* name : {"KVXLauncher.new.exe", "kvxLAUNCHER.NEW.EXE"}) {
    self_path_ = game(to_wide(name));
    write_text(self_path_, old_launcher);
    EXPECT_EQ(update(published("1.0.1", no_program)), SelfUpdateResult::go_on);
    EXPECT_EQ(log_.messages().back(), std::string("launcher runs as ") + name + ": not updating it");
    EXPECT_EQ(read_text(self_path_), old_launcher);
  }
  EXPECT_THAT(server_.requests(), IsEmpty());
  EXPECT_THAT(ui_.events(), IsEmpty());
}

TEST_F(SelfUpdate, GoesOnWhenTheNewFileCannotBePlaced) {
  make_folder(new_path_);
  const uint32_t code = code_of_moving_onto(new_path_);
  const LauncherEntry entry = published("1.0.1", no_program);
  EXPECT_EQ(update(entry), SelfUpdateResult::go_on);
  EXPECT_THAT(log_.messages(), ElementsAre(comparison(entry), downloaded(entry),
                                           "self-update: cannot place KVXLauncher.new.exe: " + error_text(code)));
  expect_files_as_before();
}

TEST_F(SelfUpdate, GoesOnWhenTheRunningFileCannotBeRenamed) {
  const LauncherEntry entry = published("1.0.1", no_program);
  const FileLock lock(self_path_, FILE_SHARE_READ);
  EXPECT_EQ(update(entry), SelfUpdateResult::go_on);
  EXPECT_THAT(log_.messages(),
              ElementsAre(comparison(entry), downloaded(entry),
                          "self-update: cannot rename the running launcher: " + error_text(ERROR_SHARING_VIOLATION)));
  expect_files_as_before();
}

TEST_F(SelfUpdate, RestoresTheRunningFileWhenTheNewOneCannotTakeItsPlace) {
  const LauncherEntry entry = published("1.0.1", no_program);
  FileLock self_lock(self_path_, FILE_SHARE_READ);  // holds the rename up until the clock moves
  std::unique_ptr<FileLock> new_lock;
  clock_.on_sleep([&](uint32_t) {
    if (new_lock) return;
    new_lock = std::make_unique<FileLock>(new_path_, FILE_SHARE_READ);
    self_lock.release();
  });
  EXPECT_EQ(update(entry), SelfUpdateResult::go_on);
  EXPECT_THAT(log_.messages(), ElementsAre(comparison(entry), downloaded(entry),
                                           "self-update: cannot move the new launcher into place: " +
                                               error_text(ERROR_SHARING_VIOLATION)));
  EXPECT_EQ(read_text(self_path_), old_launcher);
  EXPECT_FALSE(exists(previous_path_));
}

TEST_F(SelfUpdate, RollsBackWhenTheNewLauncherDoesNotStart) {
  const LauncherEntry entry = published("1.0.1", no_program);
  write_text(folder_ / L"no_program.exe", no_program);
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process{};
  ASSERT_FALSE(CreateProcessW((folder_ / L"no_program.exe").c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr,
                              nullptr, &startup, &process));
  const uint32_t code = GetLastError();
  EXPECT_EQ(update(entry), SelfUpdateResult::go_on);
  EXPECT_THAT(log_.messages(),
              ElementsAre(comparison(entry), downloaded(entry),
                          "self-update: cannot start the new launcher: " + error_text(code) + "; rolling back"));
  expect_files_as_before();
}

class SelfUpdateHandOver : public SelfUpdate {
 protected:
  SelfUpdateHandOver() : new_launcher_(read_text(full_path(to_wide(test::build_path(KVX_ARGUMENT_WRITER))))) {}

  // Two lines: the new launcher's command line and its working directory.
  std::string hand_over() {
    const LauncherEntry entry = published("1.0.1", new_launcher_);
    EXPECT_EQ(update(entry), SelfUpdateResult::handed_over);
    const std::vector<std::string> messages = log_.messages();
    const std::string handing_over = "self-update: launcher 1.0.1 installed, handing over to pid ";
    if (messages.size() != 3 || !messages[2].starts_with(handing_over)) {
      ADD_FAILURE() << testing::PrintToString(messages);
      return {};
    }
    EXPECT_EQ(messages[1], downloaded(entry));
    const DWORD process_id = std::stoul(messages[2].substr(handing_over.size()));
    const KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, process_id));
    if (process) {
      EXPECT_EQ(WaitForSingleObject(process.get(), 30000), WAIT_OBJECT_0);
    }
    for (const uint64_t end = GetTickCount64() + 20000; !exists(game(L"started.txt")) && GetTickCount64() < end;) {
      Sleep(10);
    }
    return read_text(game(L"started.txt"));
  }

  [[nodiscard]] std::string expected(const std::string& arguments) const {
    return to_utf8(quote_argument(self_path_)) + " --self-updated --wait-pid=" + std::to_string(GetCurrentProcessId()) +
           arguments + "\n" + to_utf8(install_dir_) + "\n";
  }

  const std::string new_launcher_;
};

TEST_F(SelfUpdateHandOver, StartsTheNewLauncherInTheOldOnesPlace) {
  EXPECT_EQ(hand_over(), expected(""));
  EXPECT_EQ(read_text(self_path_), new_launcher_);
  EXPECT_EQ(read_text(previous_path_), old_launcher);
  EXPECT_FALSE(exists(new_path_));
  EXPECT_FALSE(exists(blob(new_launcher_)));
  EXPECT_THAT(ui_.events(), ElementsAre(status_event(L"Updating the launcher..."), allow_cancel_event(false)));
}

TEST_F(SelfUpdateHandOver, PassesOptionsAndTheGamesArgumentsOn) {
  options_ = {L"--repair", L"--url=http://127.0.0.1/a b/", L"--channel=live"};
  arguments_ = {L"-windowed", L"two words", L"a\"quote", L"ends with \\", L"", L"--"};
  EXPECT_EQ(
      hand_over(),
      expected(" --repair \"--url=http://127.0.0.1/a b/\" --channel=live -- -windowed \"two words\" \"a\\\"quote\" "
               "\"ends with \\\\\" \"\" --"));
}

TEST_F(SelfUpdateHandOver, PassesTheGamesArgumentsOnWithoutOptions) {
  arguments_ = {L"-windowed"};
  EXPECT_EQ(hand_over(), expected(" -- -windowed"));
}

TEST_F(SelfUpdateHandOver, KeepsTheLaunchersOwnName) {
  self_path_ = game(L"Mein Start.exe");
  write_text(self_path_, old_launcher);
  EXPECT_EQ(hand_over(), expected(""));
  EXPECT_EQ(read_text(self_path_), new_launcher_);
  EXPECT_EQ(read_text(game(L"Mein Start.old.exe")), old_launcher);
  EXPECT_EQ(read_text(game(L"KVXLauncher.exe")), old_launcher);
  EXPECT_FALSE(exists(previous_path_));
}

TEST_F(SelfUpdateHandOver, UpdatesAPreviousLauncherUnderItsOwnName) {
  self_path_ = previous_path_;
  write_text(self_path_, old_launcher);
  EXPECT_EQ(hand_over(), expected(""));
  EXPECT_EQ(read_text(self_path_), new_launcher_);
  EXPECT_EQ(read_text(game(L"KVXLauncher.old.old.exe")), old_launcher);
  EXPECT_EQ(read_text(game(L"KVXLauncher.exe")), old_launcher);
}

TEST_F(SelfUpdateHandOver, ReplacesAPreviousLauncherThatWasLeftBehind) {
  write_text(previous_path_, "two versions ago");
  write_text(new_path_, "left by an interrupted update");
  EXPECT_EQ(hand_over(), expected(""));
  EXPECT_EQ(read_text(previous_path_), old_launcher);
  EXPECT_EQ(read_text(self_path_), new_launcher_);
}

}  // namespace
}  // namespace kvx::test
