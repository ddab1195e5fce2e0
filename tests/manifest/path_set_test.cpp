#include "manifest/path_set.h"

#include <gtest/gtest.h>
#include <random>
#include <unordered_set>

#include "manifest/managed_path.h"

namespace kvx {
namespace {

// Short enough to repeat, of letters whose case is a matter of rules: long s, dotless i, the Kelvin sign, and bytes
// that are not UTF-8.
std::string random_path(std::mt19937& random) {
  static constexpr const char* letters[] = {"a",
                                            "A",
                                            "k",
                                            "K",
                                            "s",
                                            "S",
                                            "i",
                                            "I",
                                            "/",
                                            "_",
                                            "\xC3\xA9",
                                            "\xC3\x89",
                                            "\xC5\xBF",
                                            "\xC4\xB1",
                                            "\xE2\x84\xAA",
                                            "\xFF",
                                            "\xFE",
                                            "\xF0\x90\x90\x80",
                                            "\xF0\x90\x90\xA8"};
  std::string path;
  const size_t kinds = random() % 2 == 0 ? 10 : std::size(letters);
  for (size_t length = 1 + random() % 4; length > 0; --length) path += letters[random() % kinds];
  return path;
}

TEST(PathSet, FindsWhatHasTheSameIdentity) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    constexpr size_t most = 300;
    std::vector<ManifestFile> files;
    PathSet set(files);
    set.reserve(most);
    std::unordered_set<std::wstring> identities;
    while (files.size() < most) {
      const std::string path = random_path(random);
      const std::wstring identity = path_identity(native_path(path));
      const bool listed = identities.contains(identity);
      EXPECT_EQ(set.contains(path), listed) << path;
      files.push_back({path, 0, {}});
      EXPECT_EQ(set.add_last(), !listed) << path;
      if (listed) files.pop_back();
      identities.insert(identity);
    }
  }
}

}  // namespace
}  // namespace kvx
