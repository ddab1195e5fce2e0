#include "manifest/file_digest.h"

#include <windows.h>

#include <gmock/gmock.h>

#include "foundations/error_text.h"
#include "foundations/system_handles.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/temp_folder.h"

namespace kvx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t mib = 1048576;

class FileDigestTest : public testing::Test {
 protected:
  HashProgress counting() {
    return [this](uint64_t bytes) {
      steps.push_back(bytes);
      return true;
    };
  }

  static FileHandle opened(const std::wstring& name) {
    return FileHandle(CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  }

  test::TempFolder folder;
  std::wstring path = folder / L"f";
  std::vector<uint64_t> steps;
  std::string error = "untouched";
};

TEST_F(FileDigestTest, HashesTheWholeFileInBlocksOfFourMiB) {
  std::string bytes(9 * mib + 123, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>((i * 2654435761U) >> 11);
  test::write_text(path, bytes);
  EXPECT_EQ(hash_file(path, counting(), error), test::sha256_hex(bytes));
  EXPECT_THAT(steps, ElementsAre(4 * mib, 4 * mib, mib + 123));
  EXPECT_EQ(error, "untouched");
  EXPECT_EQ(hash_file(path, nullptr, error), test::sha256_hex(bytes));
}

TEST_F(FileDigestTest, OfManyFilesComesFromOneHasher) {
  FileHasher hasher;
  for (const uint64_t size : {uint64_t{0}, uint64_t{5}, 5 * mib, uint64_t{3}, 100000 + mib, uint64_t{0}, 9 * mib}) {
    const std::string bytes(size, static_cast<char>('a' + size % 26));
    test::write_text(path, bytes);
    steps.clear();
    EXPECT_EQ(hasher.hash(path, counting(), error), test::sha256_hex(bytes)) << size;
    EXPECT_THAT(steps, testing::Each(testing::Le(4 * mib))) << size;
    EXPECT_EQ(hasher.hash(folder / L"missing", nullptr, error), "");
  }
}

TEST_F(FileDigestTest, OfAnEmptyFileIsTheDigestOfNothing) {
  test::write_text(path, "");
  EXPECT_EQ(hash_file(path, counting(), error), test::sha256_hex(""));
  EXPECT_THAT(steps, IsEmpty());
}

TEST_F(FileDigestTest, StopsWhenTheProgressSaysSo) {
  test::write_text(path, std::string(9 * mib, 'x'));
  EXPECT_EQ(hash_file(
                path,
                [this](uint64_t bytes) {
                  steps.push_back(bytes);
                  return steps.size() < 2;
                },
                error),
            "");
  EXPECT_EQ(error, "cancelled");
  EXPECT_THAT(steps, ElementsAre(4 * mib, 4 * mib));
}

TEST_F(FileDigestTest, SaysWhyAFileCannotBeRead) {
  EXPECT_EQ(hash_file(folder / L"missing", counting(), error), "");
  EXPECT_EQ(error, error_text(ERROR_FILE_NOT_FOUND));
  test::write_text(path, "x");
  const test::FileLock hold(path);
  EXPECT_EQ(hash_file(path, counting(), error), "");
  EXPECT_EQ(error, error_text(ERROR_SHARING_VIOLATION));
  EXPECT_THAT(steps, IsEmpty());
}

TEST_F(FileDigestTest, SaysWhyReadingFailed) {
  test::write_text(path, "x");
  const FileHandle other = opened(path);
  ASSERT_TRUE(LockFile(other.get(), 0, 0, 1, 0));
  // Wine reads over another's lock. It has this instead, whose first page cannot be read.
  const std::wstring memory = L"Z:\\proc\\self\\mem";
  const std::wstring unreadable = test::exists(memory) ? memory : path;
  char byte = 0;
  DWORD got = 0;
  const FileHandle probe = opened(unreadable);
  ASSERT_FALSE(ReadFile(probe.get(), &byte, 1, &got, nullptr));
  const std::string reason = error_text(GetLastError());
  EXPECT_EQ(hash_file(unreadable, counting(), error), "");
  EXPECT_EQ(error, reason);
  EXPECT_THAT(steps, IsEmpty());
}

TEST_F(FileDigestTest, WorksBesideReadersAndBeyondTheClassicPathLength) {
  const std::wstring deep = folder / std::wstring(150, L'd') + L'\\' + std::wstring(150, L'f');
  test::write_text(deep, "abc");
  const test::FileLock reader(deep, FILE_SHARE_READ);
  EXPECT_EQ(hash_file(deep, nullptr, error), test::sha256_hex("abc"));
}

}  // namespace
}  // namespace kvx
