#include "engine/hash_cache.h"

#include <algorithm>

#include "engine/text_lines.h"
#include "tests/engine/engine_test.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

using testing::Pointee;

const std::string digest(64, 'a');
const std::string other_digest(64, 'b');

class HashCacheOnDisk : public testing::Test {
 protected:
  HashCache loaded(const std::string& bytes) {
    write_text(path_, bytes);
    HashCache cache;
    cache.load(path_);
    return cache;
  }

  TestClock clock_;
  TempFolder folder_;
  const std::wstring path_ = folder_ / L"hashcache.txt";
};

TEST_F(HashCacheOnDisk, LoadsWellFormedLines) {
  struct Case {
    std::string line;
    const char* path;
    uint64_t size;
    uint64_t time;
  };
  for (const Case& c :
       {Case{digest + " 1048576 133456789012345678 bin\\KVX.exe", "bin\\KVX.exe", 1048576, 133456789012345678},
        Case{digest + " 1 2 Data\\File One.pak", "Data\\File One.pak", 1, 2},
        Case{digest + " 1 2 Data\\File One.pak", "data\\file one.PAK", 1, 2},
        Case{digest + " 1 2 \xC3\xA4.pak", "\xC3\x84.PAK", 1, 2}, Case{digest + " 1 2 a\r", "a", 1, 2},
        Case{digest + " 0 18446744073709551615 a", "a", 0, UINT64_MAX}, Case{digest + " x 2 a", "a", 0, 2},
        Case{digest + " 12x 2y a", "a", 12, 2}, Case{digest + "  2 a", "a", 0, 2}, Case{digest + "   a", "a", 0, 0},
        Case{digest + " 1 2  a", " a", 1, 2}, Case{digest + " -1 +7 a", "a", UINT64_MAX, 7},
        Case{digest + " 18446744073709551616 00000000000000000000012 a", "a", UINT64_MAX, 12},
        Case{digest + " 9999999999999999999 1 a", "a", 9999999999999999999U, 1}}) {
    const HashCache cache = loaded(c.line + "\n");
    EXPECT_THAT(cache.lookup(c.path, c.size, c.time), Pointee(digest)) << c.line;
    EXPECT_THAT(loaded("\n" + other_digest + " 9 9 other\n" + c.line).lookup(c.path, c.size, c.time), Pointee(digest))
        << c.line;
  }
}

TEST_F(HashCacheOnDisk, SkipsEveryOtherLine) {
  std::string upper = digest;
  upper[63] = 'A';
  std::string not_hex = digest;
  not_hex[0] = 'g';
  for (const std::string& line : {upper + " 1 2 a", not_hex + " 1 2 a", digest.substr(1) + " 1 2 a", digest + "a 1 2 a",
                                  digest + " 1 2 ", digest + " 1 2", digest + " 1", digest + " ", digest, std::string(),
                                  " " + digest + " 1 2 a", digest + "\t1\t2\ta", std::string("a")}) {
    HashCache cache = loaded(line + "\n" + other_digest + " 1 2 good\n");
    EXPECT_EQ(cache.lookup("a", 1, 2), nullptr) << line;
    EXPECT_THAT(cache.lookup("good", 1, 2), Pointee(other_digest)) << line;
    cache.put("good", 3, 4, other_digest);
    ASSERT_TRUE(cache.save());
    EXPECT_EQ(read_text(path_), other_digest + " 3 4 good\n") << line;
  }
}

TEST_F(HashCacheOnDisk, KnowsAFileOnlyWithItsSizeAndTime) {
  HashCache cache;
  cache.put("Data\\File One.pak", 10, 1000, digest);
  EXPECT_THAT(cache.lookup("data\\file one.pak", 10, 1000), Pointee(digest));
  EXPECT_EQ(cache.lookup("data\\file one.pak", 10, 1001), nullptr);
  EXPECT_EQ(cache.lookup("data\\file one.pak", 10, 999), nullptr);
  EXPECT_EQ(cache.lookup("data\\file one.pak", 11, 1000), nullptr);
  cache.put("DATA\\file one.pak", 10, 1001, other_digest);
  EXPECT_EQ(cache.lookup("Data\\File One.pak", 10, 1000), nullptr);
  EXPECT_THAT(cache.lookup("Data\\File One.pak", 10, 1001), Pointee(other_digest));
}

TEST_F(HashCacheOnDisk, TakesPathsForOneFileThatAreEqualInUpperCase) {
  std::vector<std::wstring> paths;
  for (wchar_t c = 1; c < 0x180; ++c) {
    if (c != L'/') paths.push_back(L"a\\" + std::wstring(1, c));
  }
  for (const wchar_t c : {L'\u2126', L'\u212A', L'\u03C9', L'\uFF21', L'\uFF41'}) {
    paths.push_back(L"a\\" + std::wstring(1, c));
  }
  for (const std::wstring& known : paths) {
    HashCache cache;
    cache.put(to_utf8(known), 1, 2, digest);
    for (const std::wstring& path : paths) {
      EXPECT_EQ(cache.lookup(to_utf8(path), 1, 2) != nullptr, to_upper(path) == to_upper(known))
          << to_utf8(path) << " and " << to_utf8(known);
    }
  }
}

TEST_F(HashCacheOnDisk, TakesASlashForABackslashAndWritesBackslashes) {
  for (const std::string name : {"Data/sub/a", "Data/\xC3\xA9"}) {
    std::string native = name;
    std::replace(native.begin(), native.end(), '/', '\\');
    HashCache cache = loaded("");
    cache.put(name, 1, 2, digest);
    EXPECT_THAT(cache.lookup(native, 1, 2), Pointee(digest));
    EXPECT_TRUE(cache.save());
    EXPECT_EQ(read_text(path_), digest + " 1 2 " + native + "\n");
    EXPECT_THAT(loaded(digest + " 1 2 " + native + "\n").lookup(name, 1, 2), Pointee(digest));
    cache.drop(name);
    EXPECT_EQ(cache.lookup(native, 1, 2), nullptr);
  }
}

TEST_F(HashCacheOnDisk, TakesTheLastOfTwoLinesForOneFile) {
  const HashCache cache = loaded(digest + " 1 2 a\n" + other_digest + " 3 4 A\n");
  EXPECT_EQ(cache.lookup("a", 1, 2), nullptr);
  EXPECT_THAT(cache.lookup("a", 3, 4), Pointee(other_digest));
}

TEST_F(HashCacheOnDisk, WritesNothingWhileUnchanged) {
  HashCache cache = loaded(digest + " 1 2 a\n");
  write_text(path_, "somebody else's");
  EXPECT_TRUE(cache.save());
  cache.drop("absent");
  EXPECT_TRUE(cache.save());
  EXPECT_EQ(read_text(path_), "somebody else's");
  cache.put("b", 3, 4, other_digest);
  EXPECT_TRUE(cache.save());
  const std::string saved = read_text(path_);
  EXPECT_THAT(split_lines(saved), testing::UnorderedElementsAre(digest + " 1 2 a", other_digest + " 3 4 b", ""));
  write_text(path_, "somebody else's");
  EXPECT_TRUE(cache.save());
  EXPECT_EQ(read_text(path_), "somebody else's");
  cache.load(path_);
  EXPECT_TRUE(cache.save());
  EXPECT_EQ(read_text(path_), "somebody else's");
}

TEST_F(HashCacheOnDisk, ForgetsADroppedFileWhateverItsCase) {
  HashCache cache = loaded(digest + " 1 2 Data\\a\n" + digest + " 1 2 b\n");
  cache.drop("data\\A");
  EXPECT_EQ(cache.lookup("Data\\a", 1, 2), nullptr);
  EXPECT_TRUE(cache.save());
  EXPECT_EQ(read_text(path_), digest + " 1 2 b\n");
}

TEST_F(HashCacheOnDisk, StaysUnsavedAfterAFailureAndKeepsTheOldFile) {
  HashCache cache = loaded(digest + " 1 2 a\n");
  cache.put("a", 3, 4, digest);
  {
    const FileLock lock(path_, FILE_SHARE_READ);
    EXPECT_FALSE(cache.save());
  }
  EXPECT_EQ(read_text(path_), digest + " 1 2 a\n");
  EXPECT_TRUE(cache.save());
  EXPECT_EQ(read_text(path_), digest + " 3 4 a\n");
}

TEST_F(HashCacheOnDisk, WaitsForAHeldFileNoLongerThanUntilAStop) {
  std::atomic<bool> cancel_requested{false};
  const StopSignal stop(cancel_requested);
  HashCache cache = loaded(digest + " 1 2 a\n");
  cache.put("a", 3, 4, digest);
  {
    const FileLock lock(path_, FILE_SHARE_READ);
    clock_.on_sleep([&](uint32_t) { cancel_requested = true; });
    EXPECT_FALSE(cache.save(&stop));
    EXPECT_THAT(clock_.sleeps(), testing::ElementsAre(100U, 150U));
  }
  EXPECT_TRUE(cache.save(&stop));  // a free file is written all the same
  EXPECT_EQ(read_text(path_), digest + " 3 4 a\n");
}

TEST_F(HashCacheOnDisk, CountsAsEmptyAbove64Mebibytes) {
  constexpr size_t limit = 67108864;
  const std::string line = digest + " 1 2 a\n";
  EXPECT_THAT(loaded(line + std::string(limit - line.size(), 'x')).lookup("a", 1, 2), Pointee(digest));
  EXPECT_EQ(loaded(line + std::string(limit + 1 - line.size(), 'x')).lookup("a", 1, 2), nullptr);
}

TEST_F(HashCacheOnDisk, CountsAsEmptyWhenItIsMissing) {
  HashCache cache = loaded(digest + " 1 2 a\n");
  cache.load(folder_ / L"absent.txt");
  EXPECT_EQ(cache.lookup("a", 1, 2), nullptr);
}

}  // namespace
}  // namespace kvx::test
