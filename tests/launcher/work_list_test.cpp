#include "launcher/work_list.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>

#include "engine/blob_store.h"
#include "tests/support/release_builder.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/temp_folder.h"

namespace kvx {
namespace {

TEST(WorkList, HasEachContentOnceInTheOrderOfItsDigest) {
  const test::TempFolder folder;
  const BlobStore store(folder / L"dl", folder / L"blobs");
  const std::string contents[] = {"one", "twotwo", "three", std::string(1000, 'x')};
  const Manifest manifest = test::ReleaseBuilder()
                                .file("a", contents[0])
                                .file("b", contents[1])
                                .file("b2", contents[1])
                                .file("c", contents[2])
                                .file("d", contents[3])
                                .file("kept", "not replaced")
                                .min_free_disk(500)
                                .manifest();
  test::write_text(store.blob_path(test::sha256_hex(contents[1])), contents[1]);  // 6 bytes, finished
  test::write_text(store.partial_path(test::sha256_hex(contents[3])), contents[3].substr(0, 400));
  WorkList work;
  work.files_to_replace = {0, 1, 2, 3, 4};
  plan_downloads(
      manifest, [&](const std::string& hash, uint64_t size) { return store.staged_bytes(hash, size); }, work);

  std::vector<std::pair<std::string, uint64_t>> expected;
  for (const std::string& content : contents) expected.emplace_back(test::sha256_hex(content), content.size());
  std::sort(expected.begin(), expected.end());
  ASSERT_EQ(work.downloads.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(work.downloads[i].hash, expected[i].first);
    EXPECT_EQ(work.downloads[i].size, expected[i].second);
  }
  EXPECT_EQ(work.download_bytes, 3U + 6U + 5U + 1000U);
  EXPECT_EQ(work.staged_bytes, 6U + 400U);
  EXPECT_EQ(work.needed_bytes, 500U + 1014U - 406U);
}

TEST(WorkList, CountsTheRemovalsThatAreThere) {
  const test::TempFolder folder;
  test::write_text(folder / L"old.pak", "x");
  test::write_text(folder / L"deep\\old.pak", "x");
  const Manifest manifest =
      test::ReleaseBuilder().file("a", "a").remove("old.pak").remove("deep/old.pak").remove("gone.pak").manifest();
  std::atomic<bool> cancel_requested{false};
  const StopSignal stop(cancel_requested);
  EXPECT_EQ(count_removable(manifest, folder.path(), stop), 2U);
  EXPECT_EQ(count_removable(manifest, folder / L"deep", stop), 1U);
  cancel_requested = true;
  EXPECT_EQ(count_removable(manifest, folder.path(), stop), 0U);
}

}  // namespace
}  // namespace kvx
