#include "foundations/files.h"

#include <windows.h>
#include <winioctl.h>

#include <atomic>
#include <functional>
#include <gmock/gmock.h>

#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "tests/support/file_lock.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_clock.h"

namespace kvx {
namespace {

using test::exists;
using test::read_text;
using test::write_text;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr uint64_t mib = 1048576;

const auto whole_schedule = ElementsAre(150U, 250U, 350U, 450U, 550U, 650U, 750U, 850U, 950U, 1050U);

class FilesTest : public testing::Test {
 protected:
  [[nodiscard]] std::wstring file(const std::wstring& name, const std::string& bytes) const {
    write_text(folder / name, bytes);
    return folder / name;
  }

  static void set_attributes(const std::wstring& path, uint32_t attributes) {
    ASSERT_TRUE(SetFileAttributesW(long_path(path).c_str(), attributes));
  }
  static uint32_t attributes_of(const std::wstring& path) { return GetFileAttributesW(long_path(path).c_str()); }

  // A file that has a size but takes no space.
  [[nodiscard]] std::wstring sparse_file(const std::wstring& name, uint64_t size) const {
    const FileHandle sparse(CreateFileW(long_path(folder / name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD ignored = 0;
    DeviceIoControl(sparse.get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &ignored, nullptr);
    LARGE_INTEGER end;
    end.QuadPart = static_cast<LONGLONG>(size);
    EXPECT_TRUE(SetFilePointerEx(sparse.get(), end, nullptr, FILE_BEGIN));
    EXPECT_TRUE(SetEndOfFile(sparse.get()));
    return folder / name;
  }

  test::TempFolder folder;
  test::TestClock clock;
  uint32_t error = 0xDEAD;
};

TEST_F(FilesTest, TellsFilesFromFolders) {
  const std::wstring name = file(L"sub\\f", "x");
  EXPECT_TRUE(is_file(name));
  EXPECT_FALSE(is_folder(name));
  EXPECT_TRUE(is_folder(folder / L"sub"));
  EXPECT_FALSE(is_file(folder / L"sub"));
  EXPECT_FALSE(is_file(folder / L"missing"));
  EXPECT_FALSE(is_folder(folder / L"missing"));
}

TEST_F(FilesTest, StampHasSizeTimeAndAttributes) {
  const std::wstring name = file(L"f", "12345");
  {
    const FileHandle opened(CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    const FILETIME time{0x80000010, 0x01DC0000};  // a low word with its highest bit set
    ASSERT_TRUE(SetFileTime(opened.get(), nullptr, nullptr, &time));
  }
  set_attributes(name, FILE_ATTRIBUTE_READONLY);
  FileStamp stamp;
  ASSERT_TRUE(file_stamp(name, stamp));
  EXPECT_EQ(stamp.size, 5U);
  EXPECT_EQ(stamp.last_write_time, 0x01DC000080000010U);
  EXPECT_NE(stamp.attributes & FILE_ATTRIBUTE_READONLY, 0U);
  EXPECT_FALSE(file_stamp(folder.path(), stamp));
  EXPECT_FALSE(file_stamp(folder / L"missing", stamp));
}

TEST_F(FilesTest, StampTellsWhetherTheFolderIsMissingToo) {
  const std::wstring name = file(L"sub\\f", "x");
  FileStamp stamp;
  bool folder_is_missing = true;
  EXPECT_TRUE(file_stamp(name, stamp, folder_is_missing));
  EXPECT_FALSE(folder_is_missing);
  folder_is_missing = true;
  EXPECT_FALSE(file_stamp(folder / L"sub", stamp, folder_is_missing));
  EXPECT_FALSE(folder_is_missing);
  folder_is_missing = true;
  EXPECT_FALSE(file_stamp(folder / L"sub\\missing", stamp, folder_is_missing));
  EXPECT_FALSE(folder_is_missing);
  EXPECT_FALSE(file_stamp(folder / L"missing\\f", stamp, folder_is_missing));
  EXPECT_TRUE(folder_is_missing);
}

TEST_F(FilesTest, StampHasTheWholeSizeOfALargeFile) {
  constexpr uint64_t size = (uint64_t{5} << 30) + 7;
  FileStamp stamp;
  ASSERT_TRUE(file_stamp(sparse_file(L"large", size), stamp));
  EXPECT_EQ(stamp.size, size);
}

TEST_F(FilesTest, CreatesMissingParents) {
  EXPECT_TRUE(create_folders(folder / L"a\\b\\c"));
  EXPECT_TRUE(is_folder(folder / L"a\\b\\c"));
  EXPECT_TRUE(create_folders(folder / L"a\\b\\c", error));
  EXPECT_TRUE(create_folders(L"C:\\"));
  EXPECT_FALSE(create_folders(L""));
}

TEST_F(FilesTest, CreatesNoFolderWhereAFileIs) {
  const std::wstring name = file(L"f", "x");
  EXPECT_FALSE(create_folders(name, error));
  EXPECT_EQ(error, DWORD{ERROR_ALREADY_EXISTS});
  EXPECT_FALSE(create_folders(name + L"\\sub", error));
  EXPECT_EQ(error, DWORD{ERROR_ALREADY_EXISTS});
  EXPECT_EQ(read_text(name), "x");
}

TEST_F(FilesTest, CreatesNoFolderOnADriveThatIsNotThere) {
  wchar_t letter = L'B';
  while (((GetLogicalDrives() >> (letter - L'A')) & 1U) != 0) ++letter;
  EXPECT_FALSE(create_folders(std::wstring(1, letter) + L":\\a\\b", error));
  EXPECT_NE(error, 0U);
}

TEST_F(FilesTest, ListsEveryEntryButTheDots) {
  static_cast<void>(file(L"a.txt", ""));
  static_cast<void>(file(L"sub\\inner", ""));
  set_attributes(file(L".hidden", ""), FILE_ATTRIBUTE_HIDDEN);
  EXPECT_THAT(list_folder(folder.path()), UnorderedElementsAre(L"a.txt", L"sub", L".hidden"));
  EXPECT_THAT(list_folder(folder.path() + L"\\"), UnorderedElementsAre(L"a.txt", L"sub", L".hidden"));
}

TEST_F(FilesTest, ListsSizesAndTellsFoldersFromFiles) {
  static_cast<void>(file(L"empty", ""));
  static_cast<void>(file(L"sub\\inner", ""));
  static_cast<void>(sparse_file(L"large", (uint64_t{5} << 32) + 7));
  std::vector<std::string> entries;
  for (const FolderEntry& entry : list_entries(folder.path())) {
    entries.push_back(to_utf8(entry.name) + (entry.is_folder ? " folder" : " " + std::to_string(entry.size)));
  }
  EXPECT_THAT(entries, UnorderedElementsAre("empty 0", "sub folder", "large 21474836487"));
  EXPECT_THAT(list_entries(folder / L"missing"), IsEmpty());
}

TEST_F(FilesTest, ListsNothingForAMissingFolderOrAFile) {
  EXPECT_THAT(list_folder(folder / L"missing"), IsEmpty());
  EXPECT_THAT(list_folder(file(L"f", "x")), IsEmpty());
  ASSERT_TRUE(create_folders(folder / L"empty"));
  EXPECT_THAT(list_folder(folder / L"empty"), IsEmpty());
}

TEST_F(FilesTest, ReadsUpToTheLimitAndNotAByteMore) {
  std::string bytes;
  const std::wstring name = file(L"f", "12345");
  EXPECT_TRUE(read_file(name, 5, bytes));
  EXPECT_EQ(bytes, "12345");
  EXPECT_FALSE(read_file(name, 4, bytes));
  EXPECT_EQ(bytes, "");
  EXPECT_TRUE(read_file(file(L"empty", ""), 0, bytes));
  EXPECT_EQ(bytes, "");
  bytes = "stale";
  EXPECT_FALSE(read_file(folder / L"missing", 100, bytes));
  EXPECT_EQ(bytes, "");
}

// Reading it, or making room for it, would not go unnoticed.
TEST_F(FilesTest, RefusesAFileOverTheLimitWithoutReadingIt) {
  std::string bytes = "stale";
  const std::wstring huge = sparse_file(L"huge", uint64_t{1} << 36);
  EXPECT_FALSE(read_file(huge, (uint64_t{1} << 36) - 1, bytes));
  EXPECT_EQ(bytes, "");
}

TEST_F(FilesTest, ReadsAndWritesFilesOfSeveralChunks) {
  for (const uint64_t size : {mib - 1, mib, mib + 1, 3 * mib + 5}) {
    std::string written(size, '\0');
    for (size_t i = 0; i < written.size(); ++i) written[i] = static_cast<char>((i * 2654435761U) >> 13);
    ASSERT_TRUE(write_file_atomic(folder / L"f", written));
    std::string bytes;
    ASSERT_TRUE(read_file(folder / L"f", size, bytes));
    EXPECT_EQ(bytes == written, true) << size;
  }
}

TEST_F(FilesTest, ReadsBesideReadersAndDeletersButNotBesideWriters) {
  const std::wstring name = file(L"f", "x");
  std::string bytes;
  {
    const FileHandle deleter(CreateFileW(name.c_str(), GENERIC_READ | DELETE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(deleter);
    EXPECT_TRUE(read_file(name, 1, bytes));
  }
  const FileHandle writer(CreateFileW(name.c_str(), GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(writer);
  EXPECT_FALSE(read_file(name, 1, bytes));
  EXPECT_EQ(bytes, "");
}

TEST_F(FilesTest, WritesANewFileAndReplacesAnOldOne) {
  EXPECT_TRUE(write_file_atomic(folder / L"state.txt", "one"));
  EXPECT_TRUE(write_file_atomic(folder / L"state.txt", "two"));
  EXPECT_EQ(read_text(folder / L"state.txt"), "two");
  EXPECT_TRUE(write_file_atomic(folder / L"state.txt", ""));
  EXPECT_EQ(read_text(folder / L"state.txt"), "");
  EXPECT_THAT(list_folder(folder.path()), ElementsAre(L"state.txt"));
}

TEST_F(FilesTest, WritesOverATemporaryFileLeftBehind) {
  static_cast<void>(file(L"f.tmp", "a longer rest of a write that was cut off"));
  EXPECT_TRUE(write_file_atomic(folder / L"f", "new"));
  EXPECT_EQ(read_text(folder / L"f"), "new");
  EXPECT_THAT(list_folder(folder.path()), ElementsAre(L"f"));
}

TEST_F(FilesTest, AFailedRenameLeavesTheOldFileAndNoTemporaryOne) {
  const std::wstring name = file(L"f", "old");
  const test::FileLock hold(name, FILE_SHARE_READ);
  EXPECT_FALSE(write_file_atomic(name, "new", error));
  EXPECT_EQ(error, ERROR_ACCESS_DENIED);
  EXPECT_THAT(clock.sleeps(), whole_schedule);
  EXPECT_EQ(read_text(name), "old");
  EXPECT_THAT(list_folder(folder.path()), ElementsAre(L"f"));
}

TEST_F(FilesTest, AtomicWriteWaitsForAHeldTarget) {
  const std::wstring name = file(L"f", "old");
  test::FileLock hold(name);
  clock.on_sleep([&](uint32_t slept_ms) {
    EXPECT_EQ(read_text(name + L".tmp"), "new");  // complete before it is moved
    if (slept_ms == 150) hold.release();
  });
  EXPECT_TRUE(write_file_atomic(name, "new"));
  EXPECT_THAT(clock.sleeps(), ElementsAre(150U, 250U));
  EXPECT_EQ(read_text(name), "new");
}

TEST_F(FilesTest, AtomicWriteFailsWhenItsTemporaryFileCannotBeMade) {
  static_cast<void>(file(L"f", "old"));
  ASSERT_TRUE(create_folders(folder / L"f.tmp"));
  EXPECT_FALSE(write_file_atomic(folder / L"f", "new", error));
  EXPECT_EQ(error, ERROR_ACCESS_DENIED);
  EXPECT_FALSE(write_file_atomic(folder / L"missing\\f", "new", error));
  EXPECT_EQ(error, ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(read_text(folder / L"f"), "old");
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(FilesTest, MoveReplacesTheTarget) {
  const std::wstring from = file(L"from", "new");
  const std::wstring to = file(L"to", "old");
  EXPECT_TRUE(move_file(from, to, error));
  EXPECT_EQ(error, 0U);
  EXPECT_EQ(read_text(to), "new");
  EXPECT_FALSE(exists(from));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(FilesTest, MoveReplacesAReadOnlyTargetOnTheSecondTry) {
  const std::wstring from = file(L"from", "new");
  const std::wstring to = file(L"to", "old");
  set_attributes(to, FILE_ATTRIBUTE_READONLY);
  // Wine lets a superuser replace a read-only file; an open one is refused with the same error everywhere.
  test::FileLock hold(to, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  clock.on_sleep([&](uint32_t) {
    EXPECT_EQ(attributes_of(to) & FILE_ATTRIBUTE_READONLY, 0U);
    hold.release();
  });
  EXPECT_TRUE(move_file(from, to, error));
  EXPECT_EQ(error, DWORD{ERROR_ACCESS_DENIED});  // of the first try
  EXPECT_EQ(read_text(to), "new");
  EXPECT_THAT(clock.sleeps(), ElementsAre(150U));
}

TEST_F(FilesTest, MoveKeepsTheTargetsReadOnlyAttributeWhileTheSourceIsHeld) {
  const std::wstring from = file(L"from", "new");
  const std::wstring to = file(L"to", "old");
  set_attributes(to, FILE_ATTRIBUTE_READONLY);
  const test::FileLock hold(from);
  EXPECT_FALSE(move_file(from, to, error));
  EXPECT_EQ(error, DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_NE(attributes_of(to) & FILE_ATTRIBUTE_READONLY, 0U);
}

TEST_F(FilesTest, MoveGivesUpOnAHeldFileAfterTenTries) {
  const std::wstring from = file(L"from", "new");
  const std::wstring to = file(L"to", "old");
  for (const std::wstring& held : {from, to}) {
    const test::TestClock fresh;
    const test::FileLock hold(held, FILE_SHARE_READ);
    EXPECT_FALSE(move_file(from, to, error));
    // Windows reports a held target as a refused access, Wine as a held file.
    if (held == to && error == ERROR_ACCESS_DENIED) error = ERROR_SHARING_VIOLATION;
    EXPECT_EQ(error, DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_THAT(fresh.sleeps(), whole_schedule);
    EXPECT_EQ(fresh.total_slept_ms(), 6000U);
    EXPECT_EQ(read_text(from), "new");
    EXPECT_EQ(read_text(to), "old");
  }
}

TEST_F(FilesTest, MoveSucceedsOnceTheFileIsLetGo) {
  const std::wstring from = file(L"from", "new");
  test::FileLock hold(from);
  clock.on_sleep([&](uint32_t slept_ms) {
    if (slept_ms == 4950) hold.release();  // during the tenth pause, after which there is no try left
  });
  EXPECT_FALSE(move_file(from, folder / L"to", error));
  EXPECT_THAT(clock.sleeps(), whole_schedule);

  test::TestClock again;
  test::FileLock second_hold(from);
  again.on_sleep([&](uint32_t slept_ms) {
    if (slept_ms == 4000) second_hold.release();
  });
  EXPECT_TRUE(move_file(from, folder / L"to", error));
  EXPECT_THAT(again.sleeps(), ElementsAre(150U, 250U, 350U, 450U, 550U, 650U, 750U, 850U, 950U));
}

TEST_F(FilesTest, MoveTriesOnWhenAccessIsRefused) {
  const std::wstring from = file(L"from", "new");
  ASSERT_TRUE(create_folders(folder / L"to"));
  EXPECT_FALSE(move_file(from, folder / L"to", error));
  EXPECT_EQ(error, DWORD{ERROR_ACCESS_DENIED});
  EXPECT_THAT(clock.sleeps(), whole_schedule);
}

TEST_F(FilesTest, MoveFailsAtOnceOnAnErrorThatWillNotPass) {
  EXPECT_FALSE(move_file(folder / L"missing", folder / L"to", error));
  EXPECT_EQ(error, DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_FALSE(move_file(file(L"from", "x"), folder / L"missing\\to", error));
  EXPECT_EQ(error, DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(FilesTest, MoveToAnotherVolumeFailsAtOnce) {
  const std::wstring other_volume = L"Z:\\dev\\shm";  // Wine's view of a memory disk
  if (!is_folder(other_volume)) GTEST_SKIP() << "needs a second volume at " << to_utf8(other_volume);
  const std::wstring from = file(L"from", "x");
  const std::wstring to = join_path(other_volume, L"kvx-test-" + std::to_wstring(GetCurrentProcessId()));
  EXPECT_FALSE(move_file(from, to, error));
  EXPECT_EQ(error, DWORD{ERROR_NOT_SAME_DEVICE});
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_FALSE(exists(to));
  EXPECT_EQ(read_text(from), "x");
}

TEST_F(FilesTest, DeletesFilesReadOnlyOnesToo) {
  const std::wstring plain = file(L"plain", "x");
  EXPECT_TRUE(delete_file(plain, error));
  EXPECT_EQ(error, 0U);
  EXPECT_FALSE(exists(plain));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  const std::wstring read_only = file(L"read_only", "x");
  set_attributes(read_only, FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(delete_file(read_only, error));
  EXPECT_FALSE(exists(read_only));
  EXPECT_THAT(clock.sleeps(), ElementsAre(150U));
}

TEST_F(FilesTest, AFileThatIsGoneCountsAsDeleted) {
  EXPECT_TRUE(delete_file(folder / L"missing", error));
  EXPECT_EQ(error, DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_TRUE(delete_file(folder / L"missing\\f", error));
  EXPECT_EQ(error, DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(FilesTest, DeleteGivesUpOnAHeldFileAfterTenTries) {
  const std::wstring name = file(L"f", "x");
  const test::FileLock hold(name);
  EXPECT_FALSE(delete_file(name, error));
  EXPECT_EQ(error, DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_THAT(clock.sleeps(), whole_schedule);
}

TEST_F(FilesTest, DeleteSucceedsOnceTheFileIsLetGo) {
  const std::wstring name = file(L"f", "x");
  test::FileLock hold(name);
  clock.on_sleep([&](uint32_t slept_ms) {
    if (slept_ms == 400) hold.release();
  });
  EXPECT_TRUE(delete_file(name, error));
  EXPECT_FALSE(exists(name));
  EXPECT_THAT(clock.sleeps(), ElementsAre(150U, 250U, 350U));
}

class HeldFiles : public FilesTest {
 protected:
  // A move, a delete and a write, each of which meets a held file.
  template <typename Test>
  void each_way(Test test) {
    const std::wstring from = file(L"from", "new");
    const std::wstring held = file(L"held", "old");
    const std::function<bool()> ways[] = {
        [&] { return move_file(from, held, error, &stop); },
        [&] { return delete_file(held, error, &stop); },
        [&] { return write_file_atomic(held, "new", error, &stop); },
    };
    for (const std::function<bool()>& way : ways) {
      write_text(from, "new");
      write_text(held, "old");
      test::TestClock fresh;
      cancel_requested = false;
      stop_workers = false;
      test::FileLock lock(held, FILE_SHARE_READ);
      test(fresh, lock, way);
    }
  }

  std::atomic<bool> cancel_requested{false};
  std::atomic<bool> stop_workers{false};
  const StopSignal stop{cancel_requested, stop_workers};
};

TEST_F(HeldFiles, AreTriedOnceMoreAMomentAfterAStop) {
  each_way([&](test::TestClock& fresh, test::FileLock&, const std::function<bool()>& way) {
    fresh.on_sleep([&](uint32_t slept_ms) {
      if (slept_ms == 150 + 100) stop_workers = true;  // in the middle of the second pause
    });
    EXPECT_FALSE(way());
    EXPECT_NE(error, 0U);
    EXPECT_THAT(fresh.sleeps(), ElementsAre(100U, 50U, 100U, 100U, 150U));
  });
  each_way([&](test::TestClock& fresh, test::FileLock&, const std::function<bool()>& way) {
    cancel_requested = true;
    EXPECT_FALSE(way());
    EXPECT_THAT(fresh.sleeps(), ElementsAre(150U));
  });
}

TEST_F(HeldFiles, AreTakenWhereTheyAreLetGoInThatMoment) {
  each_way([&](test::TestClock& fresh, test::FileLock& lock, const std::function<bool()>& way) {
    cancel_requested = true;
    fresh.on_sleep([&](uint32_t) { lock.release(); });
    EXPECT_TRUE(way());
    EXPECT_THAT(fresh.sleeps(), ElementsAre(150U));
  });
}

TEST_F(HeldFiles, AreWaitedForAsLongAsEverWithoutAStop) {
  each_way([&](test::TestClock& fresh, test::FileLock&, const std::function<bool()>& way) {
    EXPECT_FALSE(way());
    EXPECT_EQ(fresh.total_slept_ms(), 6000U);
    EXPECT_THAT(fresh.sleeps(), testing::Each(testing::Le(100U)));
  });
}

TEST_F(FilesTest, OneTryOfADeletePreparesTheNext) {
  const std::wstring name = file(L"f", "x");
  set_attributes(name, FILE_ATTRIBUTE_READONLY);
  EXPECT_FALSE(delete_file_once(name, error));
  EXPECT_EQ(error, DWORD{ERROR_ACCESS_DENIED});
  EXPECT_TRUE(delete_file_once(name, error));
  EXPECT_TRUE(delete_file_once(name, error));
  EXPECT_EQ(error, DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(FilesTest, CopyOverwritesTheTarget) {
  const std::wstring from = file(L"from", "new");
  const std::wstring to = file(L"to", "old");
  EXPECT_TRUE(copy_file(from, to, error));
  EXPECT_EQ(read_text(to), "new");
  EXPECT_EQ(read_text(from), "new");
}

TEST_F(FilesTest, CopyNeverTriesAgain) {
  EXPECT_FALSE(copy_file(folder / L"missing", folder / L"to", error));
  EXPECT_EQ(error, DWORD{ERROR_FILE_NOT_FOUND});
  const std::wstring from = file(L"from", "x");
  const test::FileLock hold(from);
  EXPECT_FALSE(copy_file(from, folder / L"to", error));
  EXPECT_EQ(error, DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(FilesTest, ClearsTheReadOnlyAttributeAlone) {
  const std::wstring name = file(L"f", "x");
  set_attributes(name, FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  clear_read_only(name);
  EXPECT_EQ(attributes_of(name) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN), DWORD{FILE_ATTRIBUTE_HIDDEN});
  clear_read_only(name);
  EXPECT_EQ(attributes_of(name) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN), DWORD{FILE_ATTRIBUTE_HIDDEN});
  clear_read_only(folder / L"missing");
}

TEST_F(FilesTest, KnowsTheFreeSpaceOfAVolume) {
  EXPECT_GT(free_space(folder.path()), 0U);
  EXPECT_GT(free_space(folder.path() + L"\\"), 0U);
  wchar_t letter = L'B';
  while (((GetLogicalDrives() >> (letter - L'A')) & 1U) != 0) ++letter;
  EXPECT_EQ(free_space(std::wstring(1, letter) + L":\\"), 0U);
}

TEST_F(FilesTest, WorksBeyondTheClassicPathLength) {
  const std::wstring part(120, L'd');
  const std::wstring deep = folder / part + L'\\' + part + L'\\' + part;
  ASSERT_TRUE(create_folders(deep));
  ASSERT_GT(deep.size(), 360U);
  const std::wstring name = deep + L"\\f";
  std::string bytes;
  FileStamp stamp;
  EXPECT_TRUE(is_folder(deep));
  EXPECT_TRUE(write_file_atomic(name, "x"));
  EXPECT_TRUE(is_file(name));
  EXPECT_TRUE(read_file(name, 1, bytes));
  EXPECT_TRUE(file_stamp(name, stamp));
  EXPECT_THAT(list_folder(deep), ElementsAre(L"f"));
  EXPECT_TRUE(copy_file(name, name + L"2", error));
  EXPECT_TRUE(move_file(name, name + L"2", error));
  set_attributes(name + L"2", FILE_ATTRIBUTE_READONLY);
  clear_read_only(name + L"2");
  EXPECT_EQ(attributes_of(name + L"2") & FILE_ATTRIBUTE_READONLY, 0U);
  EXPECT_TRUE(delete_file(name + L"2", error));
  EXPECT_THAT(list_folder(deep), IsEmpty());
  EXPECT_GT(free_space(deep), 0U);
}

}  // namespace
}  // namespace kvx
