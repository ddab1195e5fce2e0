#include "tools/kvxpublish/platform/files.h"

#include <gmock/gmock.h>

#include "tests/tools/kvxpublish/support/work_folder.h"
#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/folders.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/platform/system.h"

namespace kvx::test {
namespace {

using publish::FileKind;
using publish::FileStamp;
using publish::FolderEntry;
using publish::path_of;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class FilesTest : public testing::Test {
 protected:
  [[nodiscard]] fs::path put(const std::string& name, const std::string& bytes) const {
    std::string reason;
    const fs::path path = folder_.path() / path_of(name);
    EXPECT_TRUE(publish::write_file_atomic(path, bytes, reason)) << reason;
    return path;
  }

  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<FolderEntry> entries;
    std::string reason;
    EXPECT_TRUE(publish::list_folder(folder_.path(), entries, reason)) << reason;
    std::vector<std::string> found;
    for (const FolderEntry& entry : entries) found.push_back(publish::path_text(entry.name));
    return found;
  }

  WorkFolder folder_;
};

std::string content_of(const fs::path& path) {
  std::string bytes;
  return publish::read_file(path, 1000, bytes) ? bytes : "unreadable";
}

TEST_F(FilesTest, KnowsFilesAndFolders) {
  const fs::path file = put("file", "text");
  const fs::path missing = folder_.path() / "missing";
  EXPECT_TRUE(publish::is_file(file));
  EXPECT_FALSE(publish::is_folder(file));
  EXPECT_TRUE(publish::is_folder(folder_.path()));
  EXPECT_FALSE(publish::is_file(folder_.path()));
  EXPECT_FALSE(publish::is_file(missing));
  EXPECT_FALSE(publish::is_folder(missing));
}

TEST_F(FilesTest, StampsFilesAlone) {
  FileStamp stamp;
  FileKind kind{};
  std::string reason;
  ASSERT_TRUE(publish::file_stamp(put("file", "text"), stamp, kind, reason)) << reason;
  EXPECT_EQ(stamp.size, 4U);
  constexpr uint64_t minute = 600'000'000;
  EXPECT_GT(stamp.last_write_time + minute, publish::file_time_now());
  EXPECT_LT(stamp.last_write_time, publish::file_time_now() + minute);
  EXPECT_FALSE(publish::file_stamp(folder_.path(), stamp, kind, reason));
  EXPECT_EQ(kind, FileKind::folder);
  EXPECT_FALSE(publish::file_stamp(folder_.path() / "missing" / "file", stamp, kind, reason));
  EXPECT_EQ(kind, FileKind::missing);
  EXPECT_THAT(reason, Not(IsEmpty()));
}

TEST_F(FilesTest, ListsAFolderByName) {
  static_cast<void>(put("b", "text"));
  static_cast<void>(put("\xC3\xA4", ""));
  bool exists = false;
  std::string reason;
  ASSERT_TRUE(publish::make_folder(folder_.path() / "a", exists, reason)) << reason;
  std::vector<FolderEntry> entries;
  ASSERT_TRUE(publish::list_folder(folder_.path(), entries, reason)) << reason;
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(entries[0].name, fs::path("a"));
  EXPECT_EQ(entries[0].kind, FileKind::folder);
  EXPECT_EQ(entries[1].name, fs::path("b"));
  EXPECT_EQ(entries[1].kind, FileKind::file);
  EXPECT_EQ(entries[1].stamp.size, 4U);
  EXPECT_EQ(entries[2].name, path_of("\xC3\xA4"));
}

TEST_F(FilesTest, ListsNothingOfAFolderThatIsMissing) {
  std::vector<FolderEntry> entries(1);
  std::string reason;
  EXPECT_TRUE(publish::list_folder(folder_.path() / "missing", entries, reason));
  EXPECT_THAT(entries, IsEmpty());
}

TEST_F(FilesTest, ReadsUpToALimit) {
  const fs::path file = put("file", "text");
  std::string bytes;
  EXPECT_TRUE(publish::read_file(file, 4, bytes));
  EXPECT_EQ(bytes, "text");
  EXPECT_FALSE(publish::read_file(file, 3, bytes));
  EXPECT_THAT(bytes, IsEmpty());
  EXPECT_FALSE(publish::read_file(folder_.path() / "missing", 4, bytes));
  EXPECT_FALSE(publish::read_file(folder_.path(), 4, bytes));
}

TEST_F(FilesTest, ReplacesAFileWhole) {
  static_cast<void>(put("file", "longer text"));
  EXPECT_EQ(content_of(put("file", "text")), "text");
  EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(FilesTest, LeavesNothingOfAFileThatCannotBeReplaced) {
  bool exists = false;
  std::string reason;
  ASSERT_TRUE(publish::make_folder(folder_.path() / "taken", exists, reason));
  EXPECT_FALSE(publish::write_file_atomic(folder_.path() / "taken", "text", reason));
  EXPECT_THAT(reason, Not(IsEmpty()));
  EXPECT_THAT(names(), ElementsAre("taken"));
}

TEST_F(FilesTest, WritesNewFilesOnly) {
  const fs::path file = folder_.path() / "key";
  bool exists = true;
  std::string reason;
  ASSERT_TRUE(publish::write_new_file(file, "text", publish::NewFileRights::owner_only, exists, reason)) << reason;
  EXPECT_FALSE(exists);
  EXPECT_FALSE(publish::write_new_file(file, "other", publish::NewFileRights::usual, exists, reason));
  EXPECT_TRUE(exists);
  EXPECT_EQ(content_of(file), "text");
}

TEST_F(FilesTest, MovesOverWhatIsThere) {
  const fs::path from = put("from", "new");
  const fs::path to = put("to", "old");
  std::string reason;
  EXPECT_TRUE(publish::move_file(from, to, reason)) << reason;
  EXPECT_EQ(content_of(to), "new");
  EXPECT_FALSE(publish::move_file(from, to, reason));
  EXPECT_THAT(reason, Not(IsEmpty()));
}

TEST_F(FilesTest, CountsAMissingFileAsDeleted) {
  const fs::path file = put("file", "text");
  std::string reason;
  EXPECT_TRUE(publish::delete_file(file, reason)) << reason;
  EXPECT_TRUE(publish::delete_file(file, reason)) << reason;
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(FilesTest, ReadsAndWritesInPieces) {
  const fs::path path = folder_.path() / "pieces";
  publish::OutputFile output;
  std::string reason;
  ASSERT_TRUE(output.create(path, reason)) << reason;
  const std::string text = "some text";
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  ASSERT_TRUE(output.write(bytes, 4, reason) && output.write(bytes + 4, text.size() - 4, reason)) << reason;
  output.close();
  EXPECT_FALSE(publish::OutputFile().create(path, reason));

  publish::InputFile input;
  FileKind kind{};
  ASSERT_TRUE(input.open(path, kind, reason)) << reason;
  uint64_t size = 0;
  EXPECT_TRUE(input.size(size, reason));
  EXPECT_EQ(size, text.size());
  for (int round = 0; round < 2; ++round) {
    std::string read;
    uint8_t piece[5];
    for (size_t got = 1; got > 0; read.append(piece, piece + got)) {
      ASSERT_TRUE(input.read(piece, sizeof(piece), got, reason)) << reason;
    }
    EXPECT_EQ(read, text);
    EXPECT_TRUE(input.rewind(reason)) << reason;
  }
}

TEST_F(FilesTest, TellsWhatCannotBeOpened) {
  publish::InputFile input;
  FileKind kind{};
  std::string reason;
  EXPECT_FALSE(input.open(folder_.path() / "missing", kind, reason));
  EXPECT_EQ(kind, FileKind::missing);
  EXPECT_FALSE(input.open(folder_.path(), kind, reason));
  EXPECT_EQ(kind, FileKind::folder);
}

TEST_F(FilesTest, LocksOnceAtATime) {
  const fs::path path = folder_.path() / "lock";
  bool is_held = true;
  std::string reason;
  {
    publish::LockFile first;
    ASSERT_TRUE(first.acquire(path, is_held, reason)) << reason;
    EXPECT_FALSE(is_held);
    EXPECT_FALSE(publish::LockFile().acquire(path, is_held, reason));
    EXPECT_TRUE(is_held);
  }
  EXPECT_THAT(names(), IsEmpty());
  publish::LockFile second;
  EXPECT_TRUE(second.acquire(path, is_held, reason)) << reason;
}

TEST_F(FilesTest, MakesFoldersAndTakesThemAway) {
  std::vector<fs::path> made;
  publish::Failure failure;
  const fs::path inner = folder_.path() / "a" / "b";
  ASSERT_TRUE(publish::make_folders(inner, made, failure)) << failure.text;
  EXPECT_THAT(made, ElementsAre(inner, folder_.path() / "a"));
  EXPECT_TRUE(publish::make_folders(inner, made, failure)) << failure.text;
  EXPECT_EQ(made.size(), 2U);
  publish::remove_empty_folders(made);
  EXPECT_THAT(names(), IsEmpty());

  const fs::path file = put("file", "");
  EXPECT_FALSE(publish::make_folders(file / "below", made, failure));
  EXPECT_THAT(failure.text, testing::StartsWith(publish::path_text(file / "below") + ": the folder cannot be made: "));
}

TEST(Paths, LieInAFolderOrDoNot) {
  const fs::path folder = publish::given_path("some/folder");
  EXPECT_TRUE(publish::lies_in(folder, folder));
  EXPECT_TRUE(publish::lies_in(folder / "x", folder));
  EXPECT_FALSE(publish::lies_in(folder.parent_path(), folder));
  EXPECT_FALSE(publish::lies_in(publish::given_path("some/folder2"), folder));
}

TEST(Paths, BecomeFullWithoutASeparatorAtTheEnd) {
  const fs::path folder = publish::given_path("some/folder");
  EXPECT_TRUE(folder.is_absolute());
  EXPECT_EQ(publish::given_path("some/folder/"), folder);
  EXPECT_EQ(publish::given_path("some/../some/./folder"), folder);
  EXPECT_EQ(publish::given_path(""), fs::path());
  EXPECT_EQ(publish::path_text(publish::given_path("\xC3\xA4").filename()), "\xC3\xA4");
}

}  // namespace
}  // namespace kvx::test
