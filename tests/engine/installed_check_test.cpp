#include "engine/installed_check.h"

#include <optional>

#include "foundations/error_text.h"
#include "tests/engine/engine_test.h"
#include "tests/support/release_builder.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t checking[] = L"Checking installed files...";

class InstalledCheck : public EngineTest {
 protected:
  InstalledCheck() { cache_.load(cache_path_); }

  // The indices to replace; nothing when the check was stopped.
  std::optional<std::vector<uint64_t>> check(const ReleaseBuilder& release, bool repair = false) {
    Manifest manifest;
    if (!release.files().empty()) manifest = release.manifest();
    std::vector<uint64_t> to_replace;
    if (check_installed_files({ui_, stop_, cache_, install_dir_, repair}, manifest, to_replace)) return to_replace;
    return std::nullopt;
  }

  [[nodiscard]] static std::string native(const std::string& path) {
    std::string name = path;
    for (char& c : name) c = c == '/' ? '\\' : c;
    return name;
  }

  [[nodiscard]] FileStamp stamp_of(const std::string& path) const {
    FileStamp stamp;
    EXPECT_TRUE(file_stamp(game(to_wide(native(path))), stamp)) << path;
    return stamp;
  }

  void put_on_disk(const std::string& path, const std::string& content) const {
    write_text(game(to_wide(native(path))), content);
  }

  // The cache says that the file on disk has this content.
  void remember(const std::string& path, const std::string& content) {
    const FileStamp stamp = stamp_of(path);
    cache_.put(native(path), stamp.size, stamp.last_write_time, sha256_hex(content));
  }

  // The digest that the saved cache has for the file as it is.
  [[nodiscard]] std::string remembered(const std::string& path) const {
    HashCache saved;
    saved.load(cache_path_);
    const FileStamp stamp = stamp_of(path);
    const std::string* digest = saved.lookup(native(path), stamp.size, stamp.last_write_time);
    return digest == nullptr ? "" : *digest;
  }

  TestClock clock_;
  const std::wstring cache_path_ = staging(L"hashcache.txt");
  HashCache cache_;
};

TEST_F(InstalledCheck, IsDoneAtOnceWithoutFiles) {
  EXPECT_THAT(check(ReleaseBuilder()), testing::Optional(IsEmpty()));
  EXPECT_THAT(check(ReleaseBuilder(), true), testing::Optional(IsEmpty()));
  EXPECT_THAT(log_.messages(), IsEmpty());
  EXPECT_THAT(ui_.events(), IsEmpty());
}

TEST_F(InstalledCheck, DoesNotOpenFilesThatTheCacheKnows) {
  const ReleaseBuilder release = ReleaseBuilder().file("bin/game.exe", "game").file("data/a b.pak", "right");
  put_on_disk("bin/game.exe", "game");
  put_on_disk("data/a b.pak", "wrong");
  remember("bin/game.exe", "game");
  remember("data/a b.pak", "wrong");
  const FileLock game_lock(game(L"bin\\game.exe"));  // whoever opens them fails
  const FileLock data_lock(game(L"data\\a b.pak"));
  EXPECT_EQ(check(release), std::vector<uint64_t>({1}));
  EXPECT_THAT(log_.messages(), IsEmpty());
  EXPECT_THAT(ui_.events(), IsEmpty());
  EXPECT_FALSE(exists(cache_path_));
}

TEST_F(InstalledCheck, TrustsADifferentCachedDigestWithoutReading) {
  const ReleaseBuilder release = ReleaseBuilder().file("game.exe", "game");
  put_on_disk("game.exe", "game");
  remember("game.exe", "gone");
  EXPECT_EQ(check(release), std::vector<uint64_t>({0}));
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(InstalledCheck, ReplacesMissingFilesFoldersAndOtherSizesWithoutHashing) {
  const ReleaseBuilder release = ReleaseBuilder()
                                     .file("game.exe", "game")
                                     .file("absent/a", "a")
                                     .file("folder", "")
                                     .file("short", "long enough")
                                     .file("long", "x");
  put_on_disk("game.exe", "game");
  remember("game.exe", "game");
  make_folder(game(L"folder"));
  put_on_disk("short", "long enoug");
  put_on_disk("long", "xx");
  EXPECT_EQ(check(release), std::vector<uint64_t>({1, 2, 3, 4}));
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(InstalledCheck, TellsMissingFoldersFromOthers) {
  ReleaseBuilder release;
  for (const char* path : {"a/1", "a/2", "b/1", "a/3", "b/2", "b/3", "b/c/1", "b/c/2", "1", "a/b/1", "2"}) {
    release.file(path, path);
  }
  for (const char* path : {"b/1", "b/3", "2"}) {
    put_on_disk(path, path);
    remember(path, path);
  }
  EXPECT_EQ(check(release), std::vector<uint64_t>({0, 1, 3, 4, 6, 7, 8, 9}));
}

TEST_F(InstalledCheck, HashesWhatTheCacheDoesNotKnow) {
  const ReleaseBuilder release = ReleaseBuilder()
                                     .file("bad1", "content 1")
                                     .file("good", "content 2!")
                                     .file("missing", "")
                                     .file("touched", "content 4!!")
                                     .file("bad2", "content 5!!!");
  put_on_disk("bad1", "CONTENT 1");
  put_on_disk("good", "content 2!");
  put_on_disk("touched", "content 4!!");
  put_on_disk("bad2", "CONTENT 5!!!");
  const FileStamp touched = stamp_of("touched");
  cache_.put("touched", touched.size, touched.last_write_time + 1, sha256_hex("another"));
  std::vector<uint64_t> progress;
  ui_.on_status([&](const UiEvent&) {
    EXPECT_EQ(ui_.progress_mode, ProgressMode::checking);
    progress = {ui_.progress_done, ui_.progress_total};
  });
  ui_.progress_done = 1000;
  EXPECT_EQ(check(release), std::vector<uint64_t>({2, 0, 4}));  // first what needs no reading
  EXPECT_THAT(log_.messages(), ElementsAre("checking 4 installed files (42 bytes)"));
  EXPECT_THAT(ui_.events(), ElementsAre(status_event(checking)));
  EXPECT_THAT(progress, ElementsAre(0U, 42U));
  EXPECT_EQ(ui_.progress_done, 42U);
  EXPECT_EQ(ui_.progress_mode, ProgressMode::busy);
  EXPECT_EQ(remembered("bad1"), sha256_hex("CONTENT 1"));
  EXPECT_EQ(remembered("good"), sha256_hex("content 2!"));
  EXPECT_EQ(remembered("touched"), sha256_hex("content 4!!"));
  EXPECT_EQ(remembered("bad2"), sha256_hex("CONTENT 5!!!"));
  EXPECT_EQ(check(release), std::vector<uint64_t>({0, 2, 4}));  // and the second time nothing is read
  EXPECT_EQ(log_.messages().size(), 1U);
}

TEST_F(InstalledCheck, DoesNotWaitAfterEachFileForACacheThatCannotBeSaved) {
  constexpr uint32_t one_failed_save_ms = 6000;
  make_folder(cache_path_);
  ReleaseBuilder release;
  for (const char* name : {"a", "b", "c", "d"}) {
    release.file(name, name);
    put_on_disk(name, name);
  }
  EXPECT_EQ(check(release), std::vector<uint64_t>());
  EXPECT_EQ(clock_.total_slept_ms(), 2 * one_failed_save_ms);  // after the first file, and at the end
}

TEST_F(InstalledCheck, SavesDigestsLaterThatAFailedSaveDidNot) {
  constexpr uint32_t time_for_another_save_ms = 20 * 6000;  // a failed one has taken 6 s
  const std::string large(12582912, 'x');                   // three blocks
  const ReleaseBuilder release = ReleaseBuilder().file("first", "first").file("large", large);
  put_on_disk("first", "first");
  put_on_disk("large", large);
  write_text(cache_path_, "");
  FileLock lock(cache_path_, FILE_SHARE_READ);
  bool saved_on_the_way = false;
  clock_.on_look([&] {
    if (ui_.progress_done > 5) {
      lock.release();
      clock_.set_tick_count_ms(time_for_another_save_ms);
    }
    if (ui_.progress_done < 5 + large.size() && remembered("first") == sha256_hex("first")) saved_on_the_way = true;
  });
  EXPECT_EQ(check(release), std::vector<uint64_t>());
  EXPECT_TRUE(saved_on_the_way);
}

TEST_F(InstalledCheck, SavesTheCacheAlongTheWayForATwentiethOfItsTimeAtMost) {
  constexpr size_t files = 200;
  constexpr uint32_t one_step_ms = 10;  // from one look at the clock to the next: hashing, or one save
  ReleaseBuilder release;
  for (size_t i = 0; i < files; ++i) {
    const std::string name = "file" + std::to_string(i);
    release.file(name, name);
    put_on_disk(name, name);
  }
  uint32_t now_ms = 0;
  size_t saved_bytes = 0;
  std::vector<uint32_t> save_ends_ms;
  clock_.on_look([&] {
    const size_t bytes = exists(cache_path_) ? read_text(cache_path_).size() : 0;
    if (bytes != saved_bytes) save_ends_ms.push_back(now_ms + one_step_ms);
    saved_bytes = bytes;
    clock_.set_tick_count_ms(now_ms += one_step_ms);
  });
  EXPECT_EQ(check(release), std::vector<uint64_t>());
  // The first look is the check's start, the second one comes after the first file.
  ASSERT_THAT(save_ends_ms, testing::SizeIs(testing::Ge(9U)));
  EXPECT_EQ(save_ends_ms.front(), 3 * one_step_ms);
  for (size_t saves = 1; saves < save_ends_ms.size(); ++saves) {
    const uint32_t begin_ms = save_ends_ms[saves] - one_step_ms;
    EXPECT_LE(saves * one_step_ms * 20, begin_ms - one_step_ms) << saves;
  }
  EXPECT_EQ(remembered("file199"), sha256_hex("file199"));  // at the end all is saved
}

TEST_F(InstalledCheck, SavesADigestThatHasWaitedInTheMiddleOfALargeFile) {
  const std::string large(12582912, 'x');  // three blocks
  const ReleaseBuilder release = ReleaseBuilder().file("first", "first").file("second", "second").file("large", large);
  put_on_disk("first", "first");
  put_on_disk("second", "second");
  put_on_disk("large", large);
  uint32_t now_ms = 0;
  uint64_t hashed_when_saved = 0;
  clock_.on_look([&] {
    if (hashed_when_saved == 0 && !remembered("second").empty()) hashed_when_saved = ui_.progress_done;
    clock_.set_tick_count_ms(now_ms += ui_.progress_done > 11 ? 10000U : 1000U);  // a save takes as long
  });
  EXPECT_EQ(check(release), std::vector<uint64_t>());
  EXPECT_GT(hashed_when_saved, 11U);
  EXPECT_LT(hashed_when_saved, 11 + large.size());
}

TEST_F(InstalledCheck, HashesEveryFileOfTheRightSizeForARepair) {
  const ReleaseBuilder release =
      ReleaseBuilder().file("damaged", "right").file("sound", "sound!").file("short", "longer").file("stale", "stale");
  put_on_disk("damaged", "wrong");
  remember("damaged", "right");
  put_on_disk("sound", "sound!");
  remember("sound", "sound!");
  put_on_disk("short", "sh");
  put_on_disk("stale", "stale");
  remember("stale", "other");
  EXPECT_EQ(check(release, true), std::vector<uint64_t>({2, 0}));
  EXPECT_THAT(log_.messages(), ElementsAre("checking 3 installed files (16 bytes)"));
  EXPECT_EQ(remembered("damaged"), sha256_hex("wrong"));
  EXPECT_EQ(remembered("stale"), sha256_hex("stale"));
}

TEST_F(InstalledCheck, ReplacesAFileThatCannotBeRead) {
  const ReleaseBuilder release = ReleaseBuilder().file("data/a.pak", "aaaa").file("data/b.pak", "bb");
  put_on_disk("data/a.pak", "aaaa");
  put_on_disk("data/b.pak", "bb");
  {
    const FileLock lock(game(L"data\\a.pak"));
    EXPECT_EQ(check(release), std::vector<uint64_t>({0}));
  }
  EXPECT_THAT(log_.messages(), ElementsAre("checking 2 installed files (6 bytes)",
                                           "cannot read data/a.pak: " + error_text(ERROR_SHARING_VIOLATION)));
  EXPECT_EQ(remembered("data/a.pak"), "");
  EXPECT_EQ(remembered("data/b.pak"), sha256_hex("bb"));
}

using StoppedInstalledCheck = WithEitherStop<InstalledCheck>;
INSTANTIATE_TEST_SUITE_P(ByEitherFlag, StoppedInstalledCheck, testing::Bool(), who_stops);

TEST_P(StoppedInstalledCheck, KeepsTheDigestsFoundSoFar) {
  const ReleaseBuilder release = ReleaseBuilder().file("first", "first").file("second", "second");
  put_on_disk("first", "first");
  put_on_disk("second", "second");
  write_text(cache_path_, "");
  FileLock lock(cache_path_, FILE_SHARE_READ);  // holds the first save up until the clock moves
  clock_.on_sleep([&](uint32_t) {
    lock.release();
    request_stop();
  });
  EXPECT_EQ(check(release), std::nullopt);
  EXPECT_EQ(remembered("first"), sha256_hex("first"));
  EXPECT_EQ(remembered("second"), "");
  EXPECT_THAT(log_.messages(), ElementsAre("checking 2 installed files (11 bytes)"));
}

TEST_P(StoppedInstalledCheck, KeepsTheDigestsThatASaveHasWaitedFor) {
  const ReleaseBuilder release = ReleaseBuilder().file("first", "first").file("second", "second").file("third", "3");
  put_on_disk("first", "first");
  put_on_disk("second", "second");
  put_on_disk("third", "3");
  uint32_t now_ms = 0;
  clock_.on_look([&] {
    clock_.set_tick_count_ms(now_ms += 1000);
    if (now_ms == 4000) request_stop();  // after the start, the first file, its save, and the second file
  });
  EXPECT_EQ(check(release), std::nullopt);
  EXPECT_EQ(remembered("first"), sha256_hex("first"));
  EXPECT_EQ(remembered("second"), sha256_hex("second"));
  EXPECT_EQ(remembered("third"), "");
}

TEST_P(StoppedInstalledCheck, EndsBeforeTheFirstFileIsHashed) {
  const ReleaseBuilder release = ReleaseBuilder().file("missing", "x").file("known", "known").file("new", "new");
  put_on_disk("known", "known");
  remember("known", "known");
  put_on_disk("new", "new");
  request_stop();
  EXPECT_EQ(check(release), std::nullopt);
  EXPECT_THAT(log_.messages(), IsEmpty());
  EXPECT_THAT(ui_.events(), IsEmpty());
}

TEST_P(StoppedInstalledCheck, EndsInTheMiddleOfAFile) {
  constexpr size_t read_bytes = 4194304;
  const ReleaseBuilder release = ReleaseBuilder().file("large", std::string(3 * read_bytes, 'x'));
  put_on_disk("large", std::string(3 * read_bytes, 'x'));
  ui_.on_status([&](const UiEvent&) { request_stop(); });
  EXPECT_EQ(check(release), std::nullopt);
  EXPECT_EQ(ui_.progress_done, read_bytes);
  EXPECT_EQ(remembered("large"), "");
}

}  // namespace
}  // namespace kvx::test
