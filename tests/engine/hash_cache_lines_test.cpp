#include "engine/hash_cache_lines.h"

#include <gtest/gtest.h>

namespace kvx {
namespace {

const std::string line_digest(64, 'a');

TEST(HashCacheLines, HoldDigestSizeTimeAndAPathThatMayHaveBlanks) {
  HashCacheEntry entry;
  ASSERT_TRUE(read_hash_cache_line(line_digest + " 1048576 133456789012345678 Data\\File One.pak", entry));
  EXPECT_EQ(entry.sha256, line_digest);
  EXPECT_EQ(entry.size, 1048576U);
  EXPECT_EQ(entry.last_write_time, 133456789012345678U);
  EXPECT_EQ(entry.path, "Data\\File One.pak");
}

TEST(HashCacheLines, CountNumbersAsFarAsTheyAreSome) {
  struct Case {
    const char* rest;
    uint64_t size;
    uint64_t time;
  };
  for (const Case& c : {Case{" x 2 a", 0, 2}, Case{" 12x 2y a", 12, 2}, Case{"  2 a", 0, 2}, Case{"   a", 0, 0},
                        Case{" -1 +7 a", UINT64_MAX, 7}, Case{" 18446744073709551616 1 a", UINT64_MAX, 1}}) {
    HashCacheEntry entry;
    ASSERT_TRUE(read_hash_cache_line(line_digest + c.rest, entry)) << c.rest;
    EXPECT_EQ(entry.size, c.size) << c.rest;
    EXPECT_EQ(entry.last_write_time, c.time) << c.rest;
  }
}

TEST(HashCacheLines, AreRefusedWhereAPartIsMissing) {
  std::string upper = line_digest;
  upper[63] = 'A';
  for (const std::string& line :
       {std::string(), line_digest, line_digest + " ", line_digest + " 1", line_digest + " 1 2", line_digest + " 1 2 ",
        line_digest + "a 1 2 a", line_digest.substr(1) + " 1 2 a", upper + " 1 2 a"}) {
    HashCacheEntry entry;
    entry.path = "before";
    EXPECT_FALSE(read_hash_cache_line(line, entry)) << line;
    EXPECT_EQ(entry.path, "before") << line;
  }
}

TEST(HashCacheLines, AreReadAsTheyAreWritten) {
  std::string text;
  append_hash_cache_line({line_digest, 1, UINT64_MAX, "bin\\a b.exe"}, text);
  EXPECT_EQ(text, line_digest + " 1 18446744073709551615 bin\\a b.exe\n");
}

}  // namespace
}  // namespace kvx
