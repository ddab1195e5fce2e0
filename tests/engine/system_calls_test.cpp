// In which order the engine's steps reach the disk, and what happens where the system refuses one. It takes the place
// of some of the system's functions in this program, so it is a program of its own.
#include <windows.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "engine/download_pool.h"
#include "engine/install.h"
#include "engine/previous_launcher.h"
#include "engine/self_update.h"
#include "foundations/error_text.h"
#include "foundations/system_handles.h"
#include "tests/engine/download_test.h"
#include "tests/support/replaced_function.h"
#include "tests/support/test_clock.h"
#include "ui/prompts.h"

namespace kvx::test {
namespace {

// Calls are texts with file names alone, such as "move a.copy to a".
struct Disk {
  std::vector<std::string> calls;
  std::map<std::string, DWORD> refused;  // with these error codes
  std::function<void(const std::string&)> on_call;
  bool keeps_read_only_files = false;  // Wine lets a superuser write them
};

Disk disk;

std::string name_of(const wchar_t* path) { return to_utf8(file_name(path)); }

std::string name_of(HANDLE file) {
  wchar_t path[MAX_PATH + 1] = {};
  GetFinalPathNameByHandleW(file, path, MAX_PATH, 0);
  return name_of(path);
}

bool is_refused(const std::string& call) {
  disk.calls.push_back(call);
  if (disk.on_call) disk.on_call(call);
  const auto refusal = disk.refused.find(call);
  if (refusal == disk.refused.end()) return false;
  SetLastError(refusal->second);
  return true;
}

BOOL WINAPI flush(HANDLE file) {
  static const auto system_flush = system_function<decltype(&FlushFileBuffers)>("FlushFileBuffers");
  return is_refused("flush " + name_of(file)) ? FALSE : system_flush(file);
}

BOOL WINAPI move(LPCWSTR from, LPCWSTR to, DWORD flags) {
  static const auto system_move = system_function<decltype(&MoveFileExW)>("MoveFileExW");
  return is_refused("move " + name_of(from) + " to " + name_of(to)) ? FALSE : system_move(from, to, flags);
}

BOOL WINAPI copy(LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel, DWORD flags) {
  static const auto system_copy = system_function<decltype(&CopyFileExW)>("CopyFileExW");
  return is_refused("copy " + name_of(from) + " to " + name_of(to))
             ? FALSE
             : system_copy(from, to, progress, data, cancel, flags);
}

BOOL WINAPI remove(LPCWSTR path) {
  static const auto system_delete = system_function<decltype(&DeleteFileW)>("DeleteFileW");
  return is_refused("delete " + name_of(path)) ? FALSE : system_delete(path);
}

HANDLE WINAPI open(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD flags, HANDLE template_file) {
  static const auto system_create = system_function<decltype(&CreateFileW)>("CreateFileW");
  const DWORD attributes = GetFileAttributesW(path);
  if (disk.keeps_read_only_files && (access & GENERIC_WRITE) != 0 && attributes != INVALID_FILE_ATTRIBUTES &&
      (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
  }
  return system_create(path, access, share, security, disposition, flags, template_file);
}

}  // namespace
}  // namespace kvx::test

KVX_REPLACE(FlushFileBuffers, kvx::test::flush)
KVX_REPLACE(MoveFileExW, kvx::test::move)
KVX_REPLACE(CopyFileExW, kvx::test::copy)
KVX_REPLACE(DeleteFileW, kvx::test::remove)
KVX_REPLACE(CreateFileW, kvx::test::open)

namespace kvx::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

constexpr DWORD refusal = ERROR_DISK_FULL;  // one that no retry helps against
const std::string refusal_words = error_text(refusal);

class SystemCalls : public DownloadTest {
 protected:
  SystemCalls() { disk = {}; }
  ~SystemCalls() override { disk = {}; }

  TestClock clock_;
};

TEST_F(SystemCalls, ADownloadIsFlushedBeforeItBecomesABlob) {
  const std::string content = "content";
  const std::string hash = sha256_hex(content);
  server_.serve(blob_url_path(content), content);
  EXPECT_EQ(download(content), "");
  EXPECT_THAT(disk.calls, ElementsAre("flush " + hash + ".part", "move " + hash + ".part to " + hash));
}

TEST_F(SystemCalls, ADownloadThatCannotBeStoredSaysWhy) {
  const std::string content = "content";
  const std::string hash = sha256_hex(content);
  server_.serve(blob_url_path(content), content);
  disk.refused = {{"move " + hash + ".part to " + hash, refusal}};
  EXPECT_EQ(download(content), "cannot store a downloaded file: " + refusal_words);
  EXPECT_FALSE(exists(blob(content)));
  EXPECT_EQ(server_.requests().size(), 1U);
}

// A slow disk may take minutes for what the system still holds in memory.
TEST_F(SystemCalls, AStopLeavesAFlushBehindAndNothingFollowsIt) {
  constexpr DWORD flush_limit_ms = 20000;
  const std::string content = "content";
  const std::string hash = sha256_hex(content);
  server_.serve(blob_url_path(content), content);
  const KernelHandle flush_goes_on(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  disk.on_call = [&](const std::string&) {
    ui_.cancel_requested = true;
    WaitForSingleObject(flush_goes_on.get(), flush_limit_ms);
  };
  {
    TransferThreads threads(session_, stop_);
    std::string error;
    EXPECT_FALSE(download_one(context_, threads, job(content), error));
    EXPECT_EQ(error, "cancelled");
    EXPECT_TRUE(threads.has_left_behind());
    SetEvent(flush_goes_on.get());
  }
  EXPECT_THAT(disk.calls, ElementsAre("flush " + hash + ".part"));
  EXPECT_TRUE(exists(part(content)));
  EXPECT_FALSE(exists(blob(content)));
  EXPECT_THAT(log_.messages(), IsEmpty());
}

class InstallCalls : public SystemCalls {
 protected:
  InstallCalls() {
    state_.load(staging(L"state.txt"));
    cache_.load(staging(L"hashcache.txt"));
    write_text(blob("same"), "same");
  }

  // Two files of one content; the reason, or empty.
  std::string install_both() {
    std::string reason;
    const Manifest manifest = ReleaseBuilder().file("a", "same").file("b", "same").manifest();
    disk.calls.clear();
    const bool installed = install({ui_, state_, cache_, install_dir_, store_}, manifest, {0, 1}, reason);
    EXPECT_EQ(installed, reason.empty());
    return reason;
  }

  const std::string hash_ = sha256_hex("same");
  StateFile state_;
  HashCache cache_;
};

TEST_F(InstallCalls, MarkTheInstallUnfinishedFirstAndFlushACopyBeforeItsRename) {
  EXPECT_EQ(install_both(), "");
  EXPECT_THAT(disk.calls, ElementsAre("flush state.txt.tmp", "move state.txt.tmp to state.txt",            //
                                      "copy " + hash_ + " to a.copy", "flush a.copy", "move a.copy to a",  //
                                      "move " + hash_ + " to b",                                           //
                                      "flush hashcache.txt.tmp", "move hashcache.txt.tmp to hashcache.txt"));
}

TEST_F(InstallCalls, GoOnWithACopyOnlyOnceItIsOnTheDisk) {
  disk.refused = {{"flush a.copy", refusal}};
  ui_.on_prompt([&](const UiEvent&) {
    EXPECT_THAT(disk.calls, Not(Contains("move a.copy to a")));
    disk.refused.clear();
    return button_retry;
  });
  EXPECT_EQ(install_both(), "");
  EXPECT_EQ(ui_.prompts().size(), 1U);
  EXPECT_THAT(log_.messages(), ElementsAre("replace a failed: " + refusal_words));
  EXPECT_EQ(read_text(game(L"a")), "same");

  write_text(blob("same"), "same");
  disk.refused = {{"flush a.copy", refusal}};
  ui_.on_prompt([](const UiEvent&) { return button_cancel; });
  EXPECT_EQ(install_both(), "could not replace a: " + refusal_words);
}

TEST_F(InstallCalls, TakeAReadOnlyBlobForAnyOther) {
  make_read_only(blob("same"));
  disk.keeps_read_only_files = true;
  EXPECT_EQ(install_both(), "");
  EXPECT_THAT(ui_.prompts(), IsEmpty());
  EXPECT_EQ(read_text(game(L"a")), "same");
}

// A self-update to a file that does not start, so that each undo is asked for.
class UndoneSelfUpdate : public SystemCalls {
 protected:
  UndoneSelfUpdate() {
    write_text(self_path_, "the running launcher");
    server_.serve(blob_url_path(no_program_), no_program_);
  }

  // What is logged about it.
  std::vector<std::string> update() {
    const std::vector<std::wstring> no_arguments;
    const auto download_it = [this](const std::string& hash, uint64_t size, std::string& error) {
      return download_blob(context_, session_, {hash, size}, buffer_, error);
    };
    const size_t before = log_.messages().size();
    const LauncherEntry entry{true, "2.0", sha256_hex(no_program_), no_program_.size()};
    const SelfUpdateContext context{ui_,        store_,  download_it, self_path_,   install_dir_,
                                    temporary_, "1.0.0", false,       no_arguments, no_arguments};
    EXPECT_EQ(update_launcher(context, entry), SelfUpdateResult::go_on);
    std::vector<std::string> lines = log_.messages();
    lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(before) + 2);  // the comparison, the download
    return lines;
  }

  const std::string no_program_ = "a file that is no program";
  const std::wstring self_path_ = game(L"KVXLauncher.exe");
  const std::string take_place_ = "move KVXLauncher.new.exe to KVXLauncher.exe";
  const std::string step_aside_ = "move KVXLauncher.exe to KVXLauncher.old.exe";
  const std::string move_away_ = "move KVXLauncher.exe to KVXLauncher.new.exe";
  const std::string restore_ = "move KVXLauncher.old.exe to KVXLauncher.exe";
  const std::vector<std::string> copying_back_ = {"copy KVXLauncher.old.exe to temporary", "flush temporary",
                                                  "move temporary to KVXLauncher.exe"};
  const std::string copied_back_ = "self-update: copied the previous launcher back";
  const std::wstring temporary_ = staging(L"temporary");
  const std::string delete_new_ = "delete KVXLauncher.new.exe";
};

std::string failed_step(const std::string& step) { return "self-update: cannot " + step + ": " + refusal_words; }

TEST_F(UndoneSelfUpdate, LogsThatTheNewLauncherStays) {
  disk.refused = {{step_aside_, refusal}, {delete_new_, refusal}};
  EXPECT_THAT(update(),
              ElementsAre(failed_step("rename the running launcher"), failed_step("delete KVXLauncher.new.exe")));
  EXPECT_EQ(read_text(self_path_), "the running launcher");
}

TEST_F(UndoneSelfUpdate, CopiesThePreviousLauncherBackWhereItCannotBeMoved) {
  disk.refused = {{take_place_, refusal}, {restore_, refusal}};
  EXPECT_THAT(update(), ElementsAre(failed_step("move the new launcher into place"),
                                    failed_step("restore the previous launcher"), copied_back_));
  EXPECT_EQ(read_text(self_path_), "the running launcher");
  EXPECT_FALSE(exists(temporary_));
}

TEST_F(UndoneSelfUpdate, TriesEveryStepWhateverBecameOfTheOthers) {
  for (unsigned failing = 0; failing < 8; ++failing) {
    const bool away_fails = (failing & 1U) != 0;
    const bool restore_fails = (failing & 2U) != 0;
    const bool delete_fails = (failing & 4U) != 0;
    write_text(self_path_, "the running launcher");
    disk = {};
    std::vector<std::string> steps = {move_away_, restore_};
    std::vector<std::string> lines;
    if (away_fails) {
      disk.refused[move_away_] = refusal;
      lines.push_back(failed_step("move the new launcher away"));
    }
    if (restore_fails) {
      disk.refused[restore_] = refusal;
      lines.push_back(failed_step("restore the previous launcher"));
    }
    if (restore_fails && !away_fails) {
      steps.insert(steps.end(), copying_back_.begin(), copying_back_.end());
      lines.push_back(copied_back_);
    }
    steps.push_back(delete_new_);
    if (delete_fails) {
      disk.refused[delete_new_] = refusal;
      lines.push_back(failed_step("delete KVXLauncher.new.exe"));
    }
    std::vector<std::string> logged = update();
    ASSERT_FALSE(logged.empty());
    EXPECT_THAT(logged.front(), testing::StartsWith("self-update: cannot start the new launcher: "));
    logged.erase(logged.begin());
    EXPECT_THAT(logged, ElementsAreArray(lines)) << failing;
    ASSERT_GE(disk.calls.size(), steps.size());
    EXPECT_THAT(std::vector<std::string>(disk.calls.end() - static_cast<ptrdiff_t>(steps.size()), disk.calls.end()),
                ElementsAreArray(steps))
        << failing;
    // The running launcher is back, but where neither could be moved.
    EXPECT_EQ(read_text(self_path_) == "the running launcher", !(away_fails && restore_fails)) << failing;
  }
}

TEST_F(UndoneSelfUpdate, KeepsTheNewLauncherWhereThePreviousOneCannotBeHad) {
  disk.refused = {{restore_, refusal}, {copying_back_[0], refusal}};
  std::vector<std::string> logged = update();
  ASSERT_EQ(logged.size(), 4U);
  EXPECT_THAT(logged,
              ElementsAre(testing::_, failed_step("restore the previous launcher"),
                          failed_step("copy the previous launcher back"), "self-update: the new launcher stays"));
  EXPECT_EQ(read_text(self_path_), no_program_);
}

TEST_F(UndoneSelfUpdate, DeletesNoLauncherWhereNoneIsInItsPlace) {
  disk.refused = {{restore_, refusal}, {copying_back_[1], refusal}, {take_place_, refusal}};
  std::vector<std::string> logged = update();
  EXPECT_THAT(logged,
              ElementsAre(failed_step("move the new launcher into place"), failed_step("restore the previous launcher"),
                          failed_step("copy the previous launcher back"),
                          "self-update: no launcher is left at its place: " + refusal_words));
  EXPECT_FALSE(exists(self_path_));
  EXPECT_FALSE(exists(temporary_));
  EXPECT_EQ(read_text(game(L"KVXLauncher.new.exe")), no_program_);
  EXPECT_EQ(read_text(game(L"KVXLauncher.old.exe")), "the running launcher");
}

// The new launcher is moved into place, cannot be started, and then cannot be moved back there.
TEST_F(UndoneSelfUpdate, DeletesNoLauncherAfterARollBackThatFails) {
  disk.refused = {{restore_, refusal}, {copying_back_[0], refusal}};
  disk.on_call = [this](const std::string& call) {
    if (call == move_away_) disk.refused[take_place_] = refusal;
  };
  static_cast<void>(update());
  EXPECT_THAT(disk.calls, Not(Contains(delete_new_)));
  EXPECT_EQ(read_text(game(L"KVXLauncher.new.exe")), no_program_);
}

TEST_F(UndoneSelfUpdate, CannotBeCancelledFromTheFirstMoveToTheLast) {
  std::vector<UiEvent> latest;
  disk.on_call = [&](const std::string& call) {
    if (call.starts_with("move ") && call.find("KVXLauncher") != std::string::npos)
      latest.push_back(ui_.events().back());
  };
  static_cast<void>(update());
  EXPECT_THAT(latest, testing::AllOf(testing::SizeIs(5), testing::Each(allow_cancel_event(false))));
  EXPECT_EQ(ui_.events().back(), allow_cancel_event(true));
}

class RestoredLauncher : public SystemCalls {
 protected:
  void restore() {
    disk.calls.clear();
    restore_missing_launcher(game(L"KVXLauncher.new.exe"), install_dir_, staging(L"temporary"));
  }
};

TEST_F(RestoredLauncher, IsOnTheDiskBeforeItIsThere) {
  write_text(game(L"KVXLauncher.new.exe"), "new");
  restore();
  EXPECT_THAT(disk.calls, ElementsAre("copy KVXLauncher.new.exe to temporary", "flush temporary",
                                      "move temporary to KVXLauncher.exe"));
}

TEST_F(RestoredLauncher, LeavesNothingBehindWhereAStepFails) {
  write_text(game(L"KVXLauncher.new.exe"), "new");
  for (const char* step :
       {"copy KVXLauncher.new.exe to temporary", "flush temporary", "move temporary to KVXLauncher.exe"}) {
    disk.refused = {{step, refusal}};
    restore();
    EXPECT_FALSE(exists(game(L"KVXLauncher.exe"))) << step;
    EXPECT_FALSE(exists(staging(L"temporary"))) << step;
    EXPECT_EQ(log_.messages().back(), "KVXLauncher.exe is missing and cannot be restored: " + refusal_words) << step;
  }
  EXPECT_EQ(log_.messages().size(), 3U);
}

}  // namespace
}  // namespace kvx::test
