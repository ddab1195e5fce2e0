#include "engine/install.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <numeric>

#include "foundations/error_text.h"
#include "tests/engine/engine_test.h"
#include "tests/support/release_builder.h"
#include "tests/support/test_clock.h"
#include "ui/prompts.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class InstallStep : public EngineTest {
 protected:
  InstallStep() {
    state_.load(staging(L"state.txt"));
    state_.set("complete", "1");
    EXPECT_TRUE(state_.save());
    cache_.load(cache_path_);
  }

  // Installs every file of the release from blobs put into the store; the reason, or empty.
  std::string install_all(const ReleaseBuilder& release) {
    for (const ReleaseBuilder::File& file : release.files()) write_text(blob(file.content), file.content);
    std::vector<uint64_t> all(release.files().size());
    std::iota(all.begin(), all.end(), 0);
    return install_only(release, all);
  }

  std::string install_only(const ReleaseBuilder& release, const std::vector<uint64_t>& indices) {
    std::string reason;
    const Manifest manifest = release.manifest();
    const bool installed = install({ui_, state_, cache_, install_dir_, store_}, manifest, indices, reason);
    EXPECT_EQ(installed, reason.empty());
    return reason;
  }

  [[nodiscard]] std::string saved_state() const { return read_text(staging(L"state.txt")); }

  [[nodiscard]] bool is_remembered(const std::wstring& name, const std::string& content) const {
    HashCache saved;
    saved.load(cache_path_);
    FileStamp stamp;
    if (!file_stamp(game(name), stamp)) return false;
    const std::string* digest = saved.lookup(to_utf8(name), stamp.size, stamp.last_write_time);
    return digest != nullptr && *digest == sha256_hex(content);
  }

  static UiEvent could_not_replace(const std::string& path, uint32_t code) {
    return prompt_event(to_wide("Could not replace the file\n" + path + "\n(" + error_text(code) +
                                ")\n\nClose the game and any program that uses this file, then press Retry."),
                        style_retry);
  }

  static UiEvent could_not_delete(const std::string& path, uint32_t code) {
    return prompt_event(to_wide("Could not delete the old file\n" + path + "\n(" + error_text(code) +
                                ")\n\nClose the game and any program that uses this file, then press Retry."),
                        style_retry);
  }

  TestClock clock_;
  const std::wstring cache_path_ = staging(L"hashcache.txt");
  StateFile state_;
  HashCache cache_;
};

TEST_F(InstallStep, PlacesFilesAndDeletesRemovals) {
  write_text(game(L"bin\\game.exe"), "old game");
  write_text(game(L"data\\gone.pak"), "gone");
  cache_.put("data\\gone.pak", 4, 1, sha256_hex("gone"));
  cache_.put("data\\absent.pak", 4, 1, sha256_hex("gone"));
  const ReleaseBuilder release = ReleaseBuilder()
                                     .serial(7)
                                     .file("bin/game.exe", "new game")
                                     .file("data/deep/new.pak", "new data")
                                     .remove("data/gone.pak")
                                     .remove("data/absent.pak");
  std::vector<uint64_t> at_status;
  ui_.on_status([&](const UiEvent&) {
    at_status = {static_cast<uint64_t>(ui_.progress_mode.load()), ui_.progress_done, ui_.progress_total};
  });
  ui_.progress_done = 1000;
  ASSERT_EQ(install_all(release), "");
  EXPECT_EQ(read_text(game(L"bin\\game.exe")), "new game");
  EXPECT_EQ(read_text(game(L"data\\deep\\new.pak")), "new data");
  EXPECT_FALSE(exists(game(L"data\\gone.pak")));
  EXPECT_THAT(list_folder(staging(L"blobs")), IsEmpty());
  EXPECT_THAT(ui_.events(), ElementsAre(status_event(L"Installing the update...")));
  EXPECT_THAT(at_status, ElementsAre(3U, 0U, 4U));
  EXPECT_EQ(ui_.progress_done, 4U);
  EXPECT_THAT(log_.messages(), ElementsAre("removed data/gone.pak"));
  EXPECT_EQ(saved_state(), "complete=0\nupdating.serial=7\n");
  EXPECT_TRUE(is_remembered(L"bin\\game.exe", "new game"));
  EXPECT_TRUE(is_remembered(L"data\\deep\\new.pak", "new data"));
  EXPECT_THAT(read_text(cache_path_), testing::Not(testing::HasSubstr("gone.pak")));
  EXPECT_THAT(read_text(cache_path_), testing::Not(testing::HasSubstr("absent.pak")));
}

TEST_F(InstallStep, PlacesOnlyTheFilesOfItsList) {
  write_text(blob("b"), "b");
  ASSERT_EQ(install_only(ReleaseBuilder().file("a", "a").file("b", "b"), {1}), "");
  EXPECT_FALSE(exists(game(L"a")));
  EXPECT_EQ(read_text(game(L"b")), "b");
  EXPECT_EQ(ui_.progress_total, 1U);
}

TEST_F(InstallStep, CopiesABlobForAllButItsLastFile) {
  const ReleaseBuilder release = ReleaseBuilder().file("a", "same").file("data/b", "same").file("c", "same");
  for (const wchar_t* name : {L"a", L"data\\b", L"c"}) make_folder(game(name) + L".copy");  // obstructs copying
  std::vector<bool> blob_was_there;
  ui_.on_prompt([&](const UiEvent& prompt) {
    blob_was_there.push_back(exists(blob("same")));
    const std::wstring name = prompt.text.find(L"\na\n") != std::wstring::npos ? L"a" : L"data\\b";
    RemoveDirectoryW(long_path(game(name) + L".copy").c_str());
    return button_retry;
  });
  ASSERT_EQ(install_all(release), "");
  for (const wchar_t* name : {L"a", L"data\\b", L"c"}) {
    EXPECT_EQ(read_text(game(name)), "same");
    EXPECT_TRUE(is_remembered(name, "same"));
  }
  EXPECT_THAT(blob_was_there, ElementsAre(true, true));  // and the last file needed no copy
  EXPECT_TRUE(is_folder(game(L"c.copy")));
  EXPECT_FALSE(exists(game(L"a.copy")));
  EXPECT_FALSE(exists(game(L"data\\b.copy")));
  EXPECT_FALSE(exists(blob("same")));
  EXPECT_EQ(ui_.progress_done, 3U);
}

TEST_F(InstallStep, OverwritesAStaleCopy) {
  write_text(game(L"a.copy"), "left by an interrupted install");
  ASSERT_EQ(install_all(ReleaseBuilder().file("a", "same").file("b", "same")), "");
  EXPECT_EQ(read_text(game(L"a")), "same");
  EXPECT_FALSE(exists(game(L"a.copy")));
}

TEST_F(InstallStep, OverwritesAStaleReadOnlyCopy) {
  write_text(game(L"a.copy"), "left by an interrupted install");
  SetFileAttributesW(game(L"a.copy").c_str(), FILE_ATTRIBUTE_READONLY);
  ASSERT_EQ(install_all(ReleaseBuilder().file("a", "same").file("b", "same")), "");
  EXPECT_EQ(read_text(game(L"a")), "same");
  EXPECT_FALSE(exists(game(L"a.copy")));
}

TEST_F(InstallStep, NeverRewritesAFileInPlace) {
  for (const wchar_t* name : {L"a", L"b"}) {
    write_text(game(name), "old");
    ASSERT_TRUE(CreateHardLinkW((folder_ / name).c_str(), game(name).c_str(), nullptr)) << GetLastError();
  }
  ASSERT_EQ(install_all(ReleaseBuilder().file("a", "new").file("b", "new")), "");
  for (const wchar_t* name : {L"a", L"b"}) {
    EXPECT_EQ(read_text(game(name)), "new");
    EXPECT_EQ(read_text(folder_ / name), "old");  // the other name of the file that was replaced
  }
}

TEST_F(InstallStep, PlacesContentsInTheOrderOfTheirDigests) {
  ReleaseBuilder release;
  std::vector<std::string> by_digest;
  for (int i = 0; i < 6; ++i) {
    const std::string name = "file" + std::to_string(i);
    release.file(name, name);
    by_digest.push_back(name);
    make_folder(game(to_wide(name)));
  }
  std::sort(by_digest.begin(), by_digest.end(),
            [](const std::string& a, const std::string& b) { return sha256_hex(a) < sha256_hex(b); });
  ASSERT_FALSE(std::is_sorted(by_digest.begin(), by_digest.end()));
  std::vector<std::string> asked;
  ui_.on_prompt([&](const UiEvent& prompt) {
    const size_t start = prompt.text.find(L'\n') + 1;
    const std::wstring name = prompt.text.substr(start, prompt.text.find(L'\n', start) - start);
    asked.push_back(to_utf8(name));
    RemoveDirectoryW(game(name).c_str());
    return button_retry;
  });
  ASSERT_EQ(install_all(release), "");
  EXPECT_EQ(asked, by_digest);
}

TEST_F(InstallStep, AsksAfterEachFailedAttemptAndGoesOnWhenTheFileIsFree) {
  const ReleaseBuilder release = ReleaseBuilder().file("bin/game.exe", "new game").file("b", "b");
  write_text(game(L"bin\\game.exe"), "old game");
  FileLock lock(game(L"bin\\game.exe"), FILE_SHARE_READ);
  const uint32_t code = code_of_moving_onto(game(L"bin\\game.exe"));
  int prompts = 0;
  ui_.on_prompt([&](const UiEvent&) {
    if (++prompts == 2) lock.release();
    return button_retry;
  });
  ASSERT_EQ(install_all(release), "");
  const UiEvent prompt = could_not_replace("bin/game.exe", code);
  EXPECT_THAT(ui_.prompts(), ElementsAre(prompt, prompt));
  const std::string logged = "replace bin/game.exe failed: " + error_text(code);
  EXPECT_THAT(log_.messages(), ElementsAre(logged, logged));
  EXPECT_EQ(clock_.total_slept_ms(), 12000U);
  EXPECT_EQ(read_text(game(L"bin\\game.exe")), "new game");
  EXPECT_EQ(read_text(game(L"b")), "b");
  EXPECT_EQ(ui_.progress_done, 2U);
}

TEST_F(InstallStep, StopsWhereTheUserCancels) {
  ReleaseBuilder release;
  release.serial(12).remove("old");
  std::vector<std::string> names;
  for (int i = 0; i < 10; ++i) {
    names.push_back("file" + std::to_string(i));
    release.file(names.back(), "new " + names.back());
    write_text(game(to_wide(names.back())), "old");
  }
  write_text(game(L"old"), "old");
  std::sort(names.begin(), names.end(),
            [](const std::string& a, const std::string& b) { return sha256_hex("new " + a) < sha256_hex("new " + b); });
  const std::wstring second = game(to_wide(names[1]));
  const FileLock lock(second, FILE_SHARE_READ);
  const uint32_t code = code_of_moving_onto(second);
  std::string state_at_prompt;
  ui_.on_prompt([&](const UiEvent&) {
    state_at_prompt = saved_state();
    return button_cancel;
  });
  EXPECT_EQ(install_all(release), "could not replace " + names[1] + ": " + error_text(code));
  EXPECT_EQ(read_text(game(to_wide(names[0]))), "new " + names[0]);
  for (size_t i = 1; i < names.size(); ++i) {
    EXPECT_EQ(read_text(game(to_wide(names[i]))), "old");
    EXPECT_EQ(read_text(blob("new " + names[i])), "new " + names[i]);
  }
  EXPECT_TRUE(exists(game(L"old")));
  EXPECT_EQ(state_at_prompt, "complete=0\nupdating.serial=12\n");
  EXPECT_EQ(saved_state(), "complete=0\nupdating.serial=12\n");
  EXPECT_EQ(ui_.progress_done, 1U);
  EXPECT_EQ(ui_.progress_total, 11U);
  EXPECT_FALSE(exists(cache_path_));
  EXPECT_EQ(ui_.prompts().size(), 1U);
}

TEST_F(InstallStep, TouchesNothingWhileTheStateCannotSayThatItIsUnfinished) {
  write_text(game(L"a"), "old");
  write_text(game(L"old"), "old");
  const ReleaseBuilder release = ReleaseBuilder().serial(7).file("a", "new").file("b", "new").remove("old");
  make_folder(staging(L"state.txt.tmp"));  // in the way of the new state
  ui_.answer(button_retry);
  ui_.answer(button_cancel);
  const std::string reason = error_text(ERROR_ACCESS_DENIED);
  EXPECT_EQ(install_all(release), "could not replace .kvx_patch/state.txt: " + reason);
  const UiEvent prompt = could_not_replace(".kvx_patch/state.txt", ERROR_ACCESS_DENIED);
  EXPECT_THAT(ui_.prompts(), ElementsAre(prompt, prompt));
  const std::string logged = "replace .kvx_patch/state.txt failed: " + reason;
  EXPECT_THAT(log_.messages(), ElementsAre(logged, logged));
  EXPECT_EQ(saved_state(), "complete=1\n");
  EXPECT_EQ(read_text(game(L"a")), "old");
  EXPECT_FALSE(exists(game(L"b")));
  EXPECT_TRUE(exists(game(L"old")));
  EXPECT_EQ(read_text(blob("new")), "new");
  EXPECT_EQ(ui_.progress_done, 0U);
}

TEST_F(InstallStep, GoesOnOnceTheStateIsWritten) {
  write_text(game(L"a"), "old");
  make_folder(staging(L"state.txt.tmp"));
  ui_.on_prompt([&](const UiEvent&) {
    EXPECT_EQ(read_text(game(L"a")), "old");
    RemoveDirectoryW(long_path(staging(L"state.txt.tmp")).c_str());
    return button_retry;
  });
  EXPECT_EQ(install_all(ReleaseBuilder().serial(7).file("a", "new")), "");
  EXPECT_EQ(ui_.prompts().size(), 1U);
  EXPECT_EQ(saved_state(), "complete=0\nupdating.serial=7\n");
  EXPECT_EQ(read_text(game(L"a")), "new");
}

TEST_F(InstallStep, TakesEveryAnswerButRetryForACancel) {
  make_folder(game(L"a"));
  const uint32_t code = code_of_moving_onto(game(L"a"));
  for (const uint32_t button : {0U, button_ok, button_cancel, button_abort, button_yes}) {
    ui_.answer(button);
    EXPECT_EQ(install_all(ReleaseBuilder().file("a", "a")), "could not replace a: " + error_text(code)) << button;
  }
}

TEST_F(InstallStep, NamesTheCallThatFailed) {
  struct Case {
    std::function<void()> obstruct;
    const char* path;
    uint32_t code;
  };
  for (const Case& c :
       {Case{[&] { write_text(game(L"data"), "a file in a folder's place"); }, "data/a", ERROR_ALREADY_EXISTS},
        Case{[&] { remove_tree(staging(L"blobs")); }, "b", ERROR_PATH_NOT_FOUND},
        Case{[&] { make_folder(staging(L"blobs")); }, "b", ERROR_FILE_NOT_FOUND}}) {
    c.obstruct();
    const size_t before = ui_.prompts().size();
    ui_.answer(button_cancel);
    EXPECT_EQ(install_only(ReleaseBuilder().file(c.path, "content"), {0}),
              std::string("could not replace ") + c.path + ": " + error_text(c.code));
    ASSERT_EQ(ui_.prompts().size(), before + 1);
    EXPECT_EQ(ui_.prompts().back(), could_not_replace(c.path, c.code));
    EXPECT_EQ(log_.messages().back(), std::string("replace ") + c.path + " failed: " + error_text(c.code));
  }
}

TEST_F(InstallStep, ReplacesReadOnlyFilesAndDeletesReadOnlyRemovals) {
  for (const wchar_t* name : {L"a", L"old"}) {
    write_text(game(name), "old");
    make_read_only(game(name));
  }
  ASSERT_EQ(install_all(ReleaseBuilder().file("a", "new").remove("old")), "");
  EXPECT_EQ(read_text(game(L"a")), "new");
  EXPECT_FALSE(exists(game(L"old")));
  EXPECT_THAT(ui_.prompts(), IsEmpty());
}

TEST_F(InstallStep, MakesAFolderAgainThatIsGoneWhenTheUserRetries) {
  const ReleaseBuilder release = ReleaseBuilder().file("data/a", "new a");
  const std::wstring target = game(L"data\\a");
  write_text(target, "old a");
  FileLock lock(target, FILE_SHARE_READ);
  ui_.on_prompt([&](const UiEvent&) {
    if (!exists(target)) return button_cancel;
    lock.release();
    EXPECT_TRUE(DeleteFileW(long_path(target).c_str()));
    EXPECT_TRUE(RemoveDirectoryW(long_path(game(L"data")).c_str()));
    return button_retry;
  });
  EXPECT_EQ(install_all(release), "");
  EXPECT_EQ(ui_.prompts().size(), 1U);
  EXPECT_EQ(read_text(target), "new a");
}

TEST_F(InstallStep, MakesAFolderAgainThatSomebodyRemoves) {
  const ReleaseBuilder release = ReleaseBuilder().file("data/a", "first").file("data/b", "second");
  const std::string later = std::max(sha256_hex("first"), sha256_hex("second"));
  std::unique_ptr<FileLock> lock;
  ui_.on_status([&](const UiEvent&) { lock = std::make_unique<FileLock>(store_.blob_path(later), FILE_SHARE_READ); });
  clock_.on_sleep([&](uint32_t) {
    remove_tree(game(L"data"));
    lock->release();
  });
  EXPECT_EQ(install_all(release), "");
  EXPECT_THAT(ui_.prompts(), IsEmpty());
  EXPECT_THAT(list_folder(game(L"data")), testing::SizeIs(1));
}

TEST_F(InstallStep, AsksAboutARemovalUntilItIsGone) {
  write_text(game(L"data\\old.pak"), "old");
  write_text(game(L"data\\next.pak"), "next");
  FileLock lock(game(L"data\\old.pak"));
  int prompts = 0;
  ui_.on_prompt([&](const UiEvent&) {
    if (++prompts == 2) lock.release();
    return button_retry;
  });
  ASSERT_EQ(install_all(ReleaseBuilder().file("a", "a").remove("data/old.pak").remove("data/next.pak")), "");
  const UiEvent prompt = could_not_delete("data/old.pak", ERROR_SHARING_VIOLATION);
  EXPECT_THAT(ui_.prompts(), ElementsAre(prompt, prompt));
  const std::string logged = "remove data/old.pak failed: " + error_text(ERROR_SHARING_VIOLATION);
  EXPECT_THAT(log_.messages(), ElementsAre(logged, logged, "removed data/old.pak", "removed data/next.pak"));
  EXPECT_FALSE(exists(game(L"data\\old.pak")));
  EXPECT_EQ(ui_.progress_done, 3U);
}

TEST_F(InstallStep, StopsAtARemovalThatTheUserGivesUp) {
  write_text(game(L"old.pak"), "old");
  write_text(game(L"next.pak"), "next");
  const FileLock lock(game(L"old.pak"));
  ui_.answer(button_cancel);
  EXPECT_EQ(install_all(ReleaseBuilder().file("a", "a").remove("old.pak").remove("next.pak")),
            "could not delete old.pak: " + error_text(ERROR_SHARING_VIOLATION));
  EXPECT_EQ(read_text(game(L"a")), "a");
  EXPECT_TRUE(exists(game(L"old.pak")));
  EXPECT_TRUE(exists(game(L"next.pak")));
  EXPECT_EQ(state_.get("complete"), "0");
  EXPECT_FALSE(exists(cache_path_));
}

TEST_F(InstallStep, MarksAndRemembersWithRemovalsOnly) {
  write_text(game(L"old.pak"), "old");
  write_text(cache_path_, sha256_hex("old") + " 3 1 old.pak\n" + sha256_hex("kept") + " 4 1 kept.pak\n");
  cache_.load(cache_path_);
  const ReleaseBuilder release = ReleaseBuilder().serial(7).file("a", "a").remove("OLD.pak").remove("absent");
  ASSERT_EQ(install_only(release, {}), "");
  EXPECT_FALSE(exists(game(L"old.pak")));
  EXPECT_EQ(saved_state(), "complete=0\nupdating.serial=7\n");
  EXPECT_EQ(read_text(cache_path_), sha256_hex("kept") + " 4 1 kept.pak\n");
  EXPECT_EQ(ui_.progress_done, 2U);
  EXPECT_EQ(ui_.progress_total, 2U);
  EXPECT_THAT(log_.messages(), ElementsAre("removed OLD.pak"));
  EXPECT_THAT(ui_.prompts(), IsEmpty());
}

}  // namespace
}  // namespace kvx::test
